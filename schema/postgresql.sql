-- The tables of a Korvane database in PostgreSQL. Run by "korvane init"; what is there stays.
-- Every column's meaning: docs/database.md.
--
-- The database has the encoding UTF8. Names are lower-case, which is what unquoted names in the
-- statements become. Texts that a box is ordered by compare without regard to case; all others byte
-- by byte.

BEGIN;

CREATE COLLATION IF NOT EXISTS senza_maiuscole
  (provider = icu, locale = 'und-u-ks-level1', deterministic = false);

CREATE TABLE IF NOT EXISTS schema_version (
  version INTEGER NOT NULL PRIMARY KEY
);
INSERT INTO schema_version (version) VALUES (1), (2), (3) ON CONFLICT DO NOTHING;

CREATE TABLE IF NOT EXISTS mail (
  id_mail          INTEGER NOT NULL PRIMARY KEY,
  id_utente        INTEGER NOT NULL,
  id_server        INTEGER NOT NULL DEFAULT -1,
  id_cartella      INTEGER NOT NULL DEFAULT 1,
  letto            BOOLEAN NOT NULL DEFAULT FALSE,
  mittente         VARCHAR(255) COLLATE senza_maiuscole,
  destinatario     TEXT COLLATE senza_maiuscole,
  data             TIMESTAMP(0),
  oggetto          VARCHAR(150) COLLATE senza_maiuscole,
  dimensione       INTEGER,
  campo_received   TEXT COLLATE "C",
  campo_messageid  VARCHAR(255) COLLATE "C",
  allegati         BOOLEAN NOT NULL DEFAULT FALSE,
  body_scaricato   INTEGER NOT NULL DEFAULT -1,
  idsulserver      INTEGER NOT NULL DEFAULT -10,
  datadownload     VARCHAR(40),
  cancellata       BOOLEAN NOT NULL DEFAULT FALSE,
  dwnldcorrettofaq BOOLEAN NOT NULL DEFAULT FALSE
);

-- Recipients can be longer than an index entry. Their order is that of their beginning, then what ends
-- there before what goes on, then the whole; the index below holds the first two.
ALTER TABLE mail
  ADD COLUMN IF NOT EXISTS destinatario_inizio VARCHAR(255) COLLATE senza_maiuscole
    GENERATED ALWAYS AS (left(destinatario, 255)) STORED,
  ADD COLUMN IF NOT EXISTS destinatario_lungo SMALLINT
    GENERATED ALWAYS AS (CASE WHEN char_length(destinatario) > 255 THEN 1 ELSE 0 END) STORED;

-- One for each order of a box listing. They hold all that the order needs and end with the
-- identifier, so a page's identifiers come from the index alone, read forwards or backwards. The
-- orders with a second term have two: the date may run with the first term or against it.
CREATE INDEX IF NOT EXISTS mail_per_data
  ON mail (id_utente, id_cartella, cancellata, data, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_mittente
  ON mail (id_utente, id_cartella, cancellata, mittente, data, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_mittente_contro
  ON mail (id_utente, id_cartella, cancellata, mittente, data DESC, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_oggetto
  ON mail (id_utente, id_cartella, cancellata, oggetto, data, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_oggetto_contro
  ON mail (id_utente, id_cartella, cancellata, oggetto, data DESC, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_dimensione
  ON mail (id_utente, id_cartella, cancellata, dimensione, data, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_dimensione_contro
  ON mail (id_utente, id_cartella, cancellata, dimensione, data DESC, id_mail);
DROP INDEX IF EXISTS mail_per_destinatario;
CREATE INDEX IF NOT EXISTS mail_per_inizio
  ON mail (id_utente, id_cartella, cancellata, destinatario_inizio, destinatario_lungo, data, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_inizio_contro
  ON mail (id_utente, id_cartella, cancellata, destinatario_inizio, destinatario_lungo, data DESC,
           id_mail);
CREATE INDEX IF NOT EXISTS mail_per_id
  ON mail (id_utente, id_cartella, cancellata, id_mail);

-- Is this message stored already?
CREATE INDEX IF NOT EXISTS mail_doppioni
  ON mail (id_utente, id_server, campo_messageid);
-- Which messages of a box are not read?
CREATE INDEX IF NOT EXISTS mail_non_letti
  ON mail (id_utente, id_cartella, cancellata, letto, id_mail);
-- The records of a user's message file in their order.
CREATE INDEX IF NOT EXISTS mail_posizioni
  ON mail (id_utente, body_scaricato, id_mail, cancellata);

-- How many messages a box holds. Every page of a listing asks; counting a box of 100,000 takes longer
-- than all the rest of it. Kept by the triggers, in the transaction of the change.
CREATE TABLE IF NOT EXISTS conteggi_cartelle (
  id_utente   INTEGER NOT NULL,
  id_cartella INTEGER NOT NULL,
  cancellata  BOOLEAN NOT NULL,
  numero      INTEGER NOT NULL,
  PRIMARY KEY (id_utente, id_cartella, cancellata)
) WITH (fillfactor = 50);
-- Rows that come or go are counted once for each statement: one that changed a count for each of many
-- rows would walk over all the count's earlier versions every time.
CREATE OR REPLACE FUNCTION mail_conta_nuove() RETURNS TRIGGER LANGUAGE plpgsql AS $$
BEGIN
  INSERT INTO conteggi_cartelle AS c
    SELECT id_utente, id_cartella, cancellata, COUNT(*) FROM nuove GROUP BY 1, 2, 3 ORDER BY 1, 2, 3
    ON CONFLICT (id_utente, id_cartella, cancellata) DO UPDATE SET numero = c.numero + EXCLUDED.numero;
  RETURN NULL;
END;
$$;
CREATE OR REPLACE FUNCTION mail_conta_tolte() RETURNS TRIGGER LANGUAGE plpgsql AS $$
BEGIN
  INSERT INTO conteggi_cartelle AS c
    SELECT id_utente, id_cartella, cancellata, -COUNT(*) FROM tolte GROUP BY 1, 2, 3 ORDER BY 1, 2, 3
    ON CONFLICT (id_utente, id_cartella, cancellata) DO UPDATE SET numero = c.numero + EXCLUDED.numero;
  RETURN NULL;
END;
$$;
CREATE OR REPLACE FUNCTION mail_conta_cambiata() RETURNS TRIGGER LANGUAGE plpgsql AS $$
BEGIN
  INSERT INTO conteggi_cartelle AS c
    SELECT * FROM (VALUES (OLD.id_utente, OLD.id_cartella, OLD.cancellata, -1),
                          (NEW.id_utente, NEW.id_cartella, NEW.cancellata, 1)) AS v ORDER BY 1, 2, 3
    ON CONFLICT (id_utente, id_cartella, cancellata) DO UPDATE SET numero = c.numero + EXCLUDED.numero;
  RETURN NULL;
END;
$$;
CREATE OR REPLACE TRIGGER mail_conta_nuove AFTER INSERT ON mail
  REFERENCING NEW TABLE AS nuove FOR EACH STATEMENT EXECUTE FUNCTION mail_conta_nuove();
CREATE OR REPLACE TRIGGER mail_conta_tolte AFTER DELETE ON mail
  REFERENCING OLD TABLE AS tolte FOR EACH STATEMENT EXECUTE FUNCTION mail_conta_tolte();
CREATE OR REPLACE TRIGGER mail_conta_cambiata
  AFTER UPDATE OF id_utente, id_cartella, cancellata ON mail FOR EACH ROW
  WHEN ((OLD.id_utente, OLD.id_cartella, OLD.cancellata) IS DISTINCT FROM
        (NEW.id_utente, NEW.id_cartella, NEW.cancellata))
  EXECUTE FUNCTION mail_conta_cambiata();
-- A table that was filled before the triggers were there.
INSERT INTO conteggi_cartelle
  SELECT id_utente, id_cartella, cancellata, COUNT(*) FROM mail GROUP BY 1, 2, 3
  ON CONFLICT DO NOTHING;

CREATE TABLE IF NOT EXISTS messaggi_eliminati (
  id_eliminato     INTEGER NOT NULL PRIMARY KEY,
  id_utente        INTEGER NOT NULL,
  id_server        INTEGER NOT NULL,
  campo_received   TEXT COLLATE "C",
  campo_messageid  VARCHAR(255) COLLATE "C",
  mittente         VARCHAR(255) COLLATE senza_maiuscole,
  oggetto          VARCHAR(150) COLLATE senza_maiuscole,
  data             TIMESTAMP(0),
  dimensione       INTEGER,
  dwnldcorrettofaq BOOLEAN NOT NULL DEFAULT FALSE
);
CREATE INDEX IF NOT EXISTS messaggi_eliminati_doppioni
  ON messaggi_eliminati (id_utente, id_server, campo_messageid);

CREATE TABLE IF NOT EXISTS ultimi_scaricamenti (
  id_scaricamento INTEGER NOT NULL PRIMARY KEY,
  id_utente       INTEGER NOT NULL,
  id_server       INTEGER NOT NULL,
  data            TIMESTAMP(0),
  error           BOOLEAN NOT NULL DEFAULT FALSE,
  UNIQUE (id_utente, id_server)
);

CREATE TABLE IF NOT EXISTS pulizia (
  id_pulizia        INTEGER NOT NULL PRIMARY KEY,
  id_utente         INTEGER NOT NULL UNIQUE,
  dim_msg_canc_file INTEGER NOT NULL DEFAULT 0
);

CREATE TABLE IF NOT EXISTS testdata (
  idtestdata INTEGER NOT NULL PRIMARY KEY,
  data1      TIMESTAMP(0),
  data3      TIMESTAMP(0)
);
INSERT INTO testdata (idtestdata, data1, data3)
  VALUES (1, '2002-04-03 00:00:00', '2002-03-22 00:00:00')
  ON CONFLICT DO NOTHING;

CREATE TABLE IF NOT EXISTS account_email (
  id_account_email INTEGER NOT NULL PRIMARY KEY,
  nome_server      VARCHAR(255) NOT NULL,
  porta_server     INTEGER NOT NULL DEFAULT 110,
  time_out_server  INTEGER NOT NULL DEFAULT 60000,
  username_server  VARCHAR(255) NOT NULL,
  password_server  VARCHAR(255),
  caso             INTEGER
);

CREATE TABLE IF NOT EXISTS account_email_utenti (
  id_account_email_utenti INTEGER NOT NULL PRIMARY KEY,
  id_utente               INTEGER NOT NULL,
  id_account_email        INTEGER NOT NULL REFERENCES account_email ON DELETE CASCADE,
  UNIQUE (id_utente, id_account_email)
);
CREATE INDEX IF NOT EXISTS account_email_utenti_account
  ON account_email_utenti (id_account_email);

CREATE TABLE IF NOT EXISTS utenti (
  id_utente       INTEGER NOT NULL PRIMARY KEY,
  account_default INTEGER REFERENCES account_email_utenti ON DELETE SET NULL
);

CREATE OR REPLACE VIEW query1_account AS
  SELECT account_email_utenti.id_utente               AS id_utente,
         account_email.id_account_email               AS id_account_email,
         account_email_utenti.id_account_email_utenti AS id_account_email_utenti,
         utenti.account_default                       AS account_default,
         account_email.nome_server                    AS nome_server,
         account_email.porta_server                   AS porta_server,
         account_email.time_out_server                AS time_out_server,
         account_email.username_server                AS username_server,
         account_email.password_server                AS password_server,
         account_email.caso                           AS caso
    FROM account_email_utenti
    JOIN account_email ON account_email.id_account_email = account_email_utenti.id_account_email
    LEFT JOIN utenti ON utenti.id_utente = account_email_utenti.id_utente;

COMMIT;
