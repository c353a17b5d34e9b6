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
INSERT INTO schema_version (version) VALUES (1), (2) ON CONFLICT DO NOTHING;

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
-- Recipients can be longer than an index entry: their beginning is indexed, and the order is first by
-- the beginning and then by the whole, which is the same order.
CREATE INDEX IF NOT EXISTS mail_per_destinatario
  ON mail (id_utente, id_cartella, cancellata, left(destinatario, 200), data, id_mail);
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
