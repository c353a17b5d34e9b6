-- The tables of a Korvane database in SQLite. Run by "korvane init"; what is there stays.
-- Every column's meaning: docs/database.md.
--
-- Dates are texts "yyyy-mm-dd hh:mm:ss", so that their order is the order of the texts. Booleans are
-- 0 and -1, the numbers that the statements compare them with.

BEGIN IMMEDIATE;

CREATE TABLE IF NOT EXISTS schema_version (
  version INTEGER NOT NULL PRIMARY KEY
);
INSERT OR IGNORE INTO schema_version (version) VALUES (1), (2), (3);

CREATE TABLE IF NOT EXISTS mail (
  id_mail          INTEGER NOT NULL PRIMARY KEY,
  id_utente        INTEGER NOT NULL,
  id_server        INTEGER NOT NULL DEFAULT -1,
  id_cartella      INTEGER NOT NULL DEFAULT 1,
  Letto            BOOLEAN NOT NULL DEFAULT 0 CHECK (Letto IN (0, -1)),
  mittente         VARCHAR(255) COLLATE NOCASE,
  destinatario     TEXT COLLATE NOCASE,
  data             DATETIME,
  oggetto          VARCHAR(150) COLLATE NOCASE,
  dimensione       INTEGER,
  campo_received   TEXT,
  campo_MessageId  VARCHAR(255),
  allegati         BOOLEAN NOT NULL DEFAULT 0 CHECK (allegati IN (0, -1)),
  body_scaricato   INTEGER NOT NULL DEFAULT -1,
  IdSulServer      INTEGER NOT NULL DEFAULT -10,
  DataDownload     VARCHAR(40),
  Cancellata       BOOLEAN NOT NULL DEFAULT 0 CHECK (Cancellata IN (0, -1)),
  DwnldCorrettoFAQ BOOLEAN NOT NULL DEFAULT 0 CHECK (DwnldCorrettoFAQ IN (0, -1))
);

-- One for each order of a box listing. They hold all that the order needs and end with the
-- identifier, so a page's identifiers come from the index alone, read forwards or backwards. The
-- orders with a second term have two: the date may run with the first term or against it.
CREATE INDEX IF NOT EXISTS mail_per_data
  ON mail (id_utente, id_cartella, Cancellata, data, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_mittente
  ON mail (id_utente, id_cartella, Cancellata, mittente, data, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_mittente_contro
  ON mail (id_utente, id_cartella, Cancellata, mittente, data DESC, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_oggetto
  ON mail (id_utente, id_cartella, Cancellata, oggetto, data, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_oggetto_contro
  ON mail (id_utente, id_cartella, Cancellata, oggetto, data DESC, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_dimensione
  ON mail (id_utente, id_cartella, Cancellata, dimensione, data, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_dimensione_contro
  ON mail (id_utente, id_cartella, Cancellata, dimensione, data DESC, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_destinatario
  ON mail (id_utente, id_cartella, Cancellata, destinatario, data, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_destinatario_contro
  ON mail (id_utente, id_cartella, Cancellata, destinatario, data DESC, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_id
  ON mail (id_utente, id_cartella, Cancellata, id_mail);

-- Is this message stored already?
CREATE INDEX IF NOT EXISTS mail_doppioni
  ON mail (id_utente, id_server, campo_MessageId);
-- What conteggi_non_letti tells now.
DROP INDEX IF EXISTS mail_non_letti;
-- The records of a user's message file in their order.
CREATE INDEX IF NOT EXISTS mail_posizioni
  ON mail (id_utente, body_scaricato, id_mail, Cancellata);

-- How many messages a box holds. Every page of a listing asks; counting a box of 100,000 takes longer
-- than all the rest of it. Kept by the triggers, in the transaction of the change.
CREATE TABLE IF NOT EXISTS conteggi_cartelle (
  id_utente   INTEGER NOT NULL,
  id_cartella INTEGER NOT NULL,
  Cancellata  BOOLEAN NOT NULL,
  numero      INTEGER NOT NULL,
  PRIMARY KEY (id_utente, id_cartella, Cancellata)
) WITHOUT ROWID;
CREATE TRIGGER IF NOT EXISTS mail_conta_nuova AFTER INSERT ON mail
BEGIN
  INSERT INTO conteggi_cartelle VALUES (NEW.id_utente, NEW.id_cartella, NEW.Cancellata, 1)
    ON CONFLICT DO UPDATE SET numero = numero + 1;
END;
CREATE TRIGGER IF NOT EXISTS mail_conta_tolta AFTER DELETE ON mail
BEGIN
  UPDATE conteggi_cartelle SET numero = numero - 1
   WHERE id_utente = OLD.id_utente AND id_cartella = OLD.id_cartella
     AND Cancellata = OLD.Cancellata;
END;
CREATE TRIGGER IF NOT EXISTS mail_conta_cambiata
  AFTER UPDATE OF id_utente, id_cartella, Cancellata ON mail
BEGIN
  UPDATE conteggi_cartelle SET numero = numero - 1
   WHERE id_utente = OLD.id_utente AND id_cartella = OLD.id_cartella
     AND Cancellata = OLD.Cancellata;
  INSERT INTO conteggi_cartelle VALUES (NEW.id_utente, NEW.id_cartella, NEW.Cancellata, 1)
    ON CONFLICT DO UPDATE SET numero = numero + 1;
END;
-- A table that was filled before the triggers were there.
INSERT OR IGNORE INTO conteggi_cartelle
  SELECT id_utente, id_cartella, Cancellata, COUNT(*) FROM mail GROUP BY 1, 2, 3;

-- And how many of those that are here are not read: every page of a site shows it for every box.
CREATE TABLE IF NOT EXISTS conteggi_non_letti (
  id_utente   INTEGER NOT NULL,
  id_cartella INTEGER NOT NULL,
  numero      INTEGER NOT NULL,
  PRIMARY KEY (id_utente, id_cartella)
) WITHOUT ROWID;
CREATE TRIGGER IF NOT EXISTS mail_non_letta_nuova AFTER INSERT ON mail
  WHEN NEW.Cancellata = 0 AND NEW.Letto = 0
BEGIN
  INSERT INTO conteggi_non_letti VALUES (NEW.id_utente, NEW.id_cartella, 1)
    ON CONFLICT DO UPDATE SET numero = numero + 1;
END;
CREATE TRIGGER IF NOT EXISTS mail_non_letta_tolta AFTER DELETE ON mail
  WHEN OLD.Cancellata = 0 AND OLD.Letto = 0
BEGIN
  UPDATE conteggi_non_letti SET numero = numero - 1
   WHERE id_utente = OLD.id_utente AND id_cartella = OLD.id_cartella;
END;
CREATE TRIGGER IF NOT EXISTS mail_non_letta_cambiata
  AFTER UPDATE OF id_utente, id_cartella, Cancellata, Letto ON mail
BEGIN
  UPDATE conteggi_non_letti SET numero = numero - 1
   WHERE id_utente = OLD.id_utente AND id_cartella = OLD.id_cartella
     AND OLD.Cancellata = 0 AND OLD.Letto = 0;
  INSERT INTO conteggi_non_letti
    SELECT NEW.id_utente, NEW.id_cartella, 1 WHERE NEW.Cancellata = 0 AND NEW.Letto = 0
    ON CONFLICT DO UPDATE SET numero = numero + 1;
END;
INSERT OR IGNORE INTO conteggi_non_letti
  SELECT id_utente, id_cartella, COUNT(*) FROM mail WHERE Cancellata = 0 AND Letto = 0 GROUP BY 1, 2;

CREATE TABLE IF NOT EXISTS messaggi_eliminati (
  id_eliminato     INTEGER NOT NULL PRIMARY KEY,
  id_utente        INTEGER NOT NULL,
  id_server        INTEGER NOT NULL,
  campo_received   TEXT,
  campo_MessageId  VARCHAR(255),
  mittente         VARCHAR(255) COLLATE NOCASE,
  oggetto          VARCHAR(150) COLLATE NOCASE,
  data             DATETIME,
  dimensione       INTEGER,
  DwnldCorrettoFAQ BOOLEAN NOT NULL DEFAULT 0 CHECK (DwnldCorrettoFAQ IN (0, -1))
);
CREATE INDEX IF NOT EXISTS messaggi_eliminati_doppioni
  ON messaggi_eliminati (id_utente, id_server, campo_MessageId);

CREATE TABLE IF NOT EXISTS ultimi_scaricamenti (
  Id_scaricamento INTEGER NOT NULL PRIMARY KEY,
  id_utente       INTEGER NOT NULL,
  id_server       INTEGER NOT NULL,
  Data            DATETIME,
  Error           BOOLEAN NOT NULL DEFAULT 0 CHECK (Error IN (0, -1)),
  UNIQUE (id_utente, id_server)
);

CREATE TABLE IF NOT EXISTS Pulizia (
  id_pulizia        INTEGER NOT NULL PRIMARY KEY,
  id_utente         INTEGER NOT NULL UNIQUE,
  dim_msg_canc_file INTEGER NOT NULL DEFAULT 0
);

CREATE TABLE IF NOT EXISTS testdata (
  idtestdata INTEGER NOT NULL PRIMARY KEY,
  data1      DATETIME,
  data3      DATETIME
);
INSERT OR IGNORE INTO testdata (idtestdata, data1, data3)
  VALUES (1, '2002-04-03 00:00:00', '2002-03-22 00:00:00');

CREATE TABLE IF NOT EXISTS account_email (
  Id_account_email INTEGER NOT NULL PRIMARY KEY,
  Nome_server      VARCHAR(255) NOT NULL,
  Porta_server     INTEGER NOT NULL DEFAULT 110,
  Time_out_server  INTEGER NOT NULL DEFAULT 60000,
  Username_server  VARCHAR(255) NOT NULL,
  Password_server  VARCHAR(255),
  caso             INTEGER
);

CREATE TABLE IF NOT EXISTS account_email_utenti (
  Id_account_email_utenti INTEGER NOT NULL PRIMARY KEY,
  id_utente               INTEGER NOT NULL,
  Id_account_email        INTEGER NOT NULL REFERENCES account_email ON DELETE CASCADE,
  UNIQUE (id_utente, Id_account_email)
);
CREATE INDEX IF NOT EXISTS account_email_utenti_account
  ON account_email_utenti (Id_account_email);

CREATE TABLE IF NOT EXISTS utenti (
  id_utente       INTEGER NOT NULL PRIMARY KEY,
  Account_default INTEGER REFERENCES account_email_utenti ON DELETE SET NULL
);

CREATE VIEW IF NOT EXISTS Query1_account AS
  SELECT account_email_utenti.id_utente               AS id_utente,
         account_email.Id_account_email               AS Id_account_email,
         account_email_utenti.Id_account_email_utenti AS Id_account_email_utenti,
         utenti.Account_default                       AS Account_default,
         account_email.Nome_server                    AS Nome_server,
         account_email.Porta_server                   AS Porta_server,
         account_email.Time_out_server                AS Time_out_server,
         account_email.Username_server                AS Username_server,
         account_email.Password_server                AS Password_server,
         account_email.caso                           AS caso
    FROM account_email_utenti
    JOIN account_email ON account_email.Id_account_email = account_email_utenti.Id_account_email
    LEFT JOIN utenti ON utenti.id_utente = account_email_utenti.id_utente;

COMMIT;
