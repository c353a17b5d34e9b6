-- The tables of a Korvane database in MariaDB. Run by "korvane init"; what is there stays.
-- Every column's meaning: docs/database.md.
--
-- Booleans are 0 and -1, the numbers that the statements compare them with. Texts that a box is
-- ordered by compare without regard to case; all others byte by byte.

SET SESSION sql_mode = 'STRICT_ALL_TABLES,NO_BACKSLASH_ESCAPES,ANSI_QUOTES';

CREATE TABLE IF NOT EXISTS schema_version (
  version INTEGER NOT NULL PRIMARY KEY
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_nopad_bin;
INSERT IGNORE INTO schema_version (version) VALUES (1), (2), (3);

CREATE TABLE IF NOT EXISTS mail (
  id_mail          INTEGER NOT NULL PRIMARY KEY,
  id_utente        INTEGER NOT NULL,
  id_server        INTEGER NOT NULL DEFAULT -1,
  id_cartella      INTEGER NOT NULL DEFAULT 1,
  Letto            TINYINT(1) NOT NULL DEFAULT 0 CHECK (Letto IN (0, -1)),
  mittente         VARCHAR(255) COLLATE utf8mb4_general_nopad_ci,
  destinatario     LONGTEXT COLLATE utf8mb4_general_nopad_ci,
  data             DATETIME,
  oggetto          VARCHAR(150) COLLATE utf8mb4_general_nopad_ci,
  dimensione       INTEGER,
  campo_received   LONGTEXT,
  campo_MessageId  VARCHAR(255),
  allegati         TINYINT(1) NOT NULL DEFAULT 0 CHECK (allegati IN (0, -1)),
  body_scaricato   INTEGER NOT NULL DEFAULT -1,
  IdSulServer      INTEGER NOT NULL DEFAULT -10,
  DataDownload     VARCHAR(40),
  Cancellata       TINYINT(1) NOT NULL DEFAULT 0 CHECK (Cancellata IN (0, -1)),
  DwnldCorrettoFAQ TINYINT(1) NOT NULL DEFAULT 0 CHECK (DwnldCorrettoFAQ IN (0, -1))
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_nopad_bin;

-- Recipients can be longer than an index entry. Their order is that of their beginning, then what ends
-- there before what goes on, then the whole; the index below holds the first two.
ALTER TABLE mail
  ADD COLUMN IF NOT EXISTS destinatario_inizio VARCHAR(255) COLLATE utf8mb4_general_nopad_ci
    GENERATED ALWAYS AS (LEFT(destinatario, 255)) STORED,
  ADD COLUMN IF NOT EXISTS destinatario_lungo SMALLINT
    GENERATED ALWAYS AS (CASE WHEN CHAR_LENGTH(destinatario) > 255 THEN 1 ELSE 0 END) STORED;

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
DROP INDEX IF EXISTS mail_per_destinatario ON mail;
CREATE INDEX IF NOT EXISTS mail_per_inizio
  ON mail (id_utente, id_cartella, Cancellata, destinatario_inizio, destinatario_lungo, data, id_mail);
CREATE INDEX IF NOT EXISTS mail_per_inizio_contro
  ON mail (id_utente, id_cartella, Cancellata, destinatario_inizio, destinatario_lungo, data DESC,
           id_mail);
CREATE INDEX IF NOT EXISTS mail_per_id
  ON mail (id_utente, id_cartella, Cancellata, id_mail);

-- Is this message stored already?
CREATE INDEX IF NOT EXISTS mail_doppioni
  ON mail (id_utente, id_server, campo_MessageId);
-- Which messages of a box are not read?
CREATE INDEX IF NOT EXISTS mail_non_letti
  ON mail (id_utente, id_cartella, Cancellata, Letto, id_mail);
-- The records of a user's message file in their order.
CREATE INDEX IF NOT EXISTS mail_posizioni
  ON mail (id_utente, body_scaricato, id_mail, Cancellata);

-- How many messages a box holds. Every page of a listing asks; counting a box of 100,000 takes longer
-- than all the rest of it. Kept by the triggers, in the transaction of the change.
CREATE TABLE IF NOT EXISTS conteggi_cartelle (
  id_utente   INTEGER NOT NULL,
  id_cartella INTEGER NOT NULL,
  Cancellata  TINYINT(1) NOT NULL,
  numero      INTEGER NOT NULL,
  PRIMARY KEY (id_utente, id_cartella, Cancellata)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_nopad_bin;
-- Nobody may add a row between the triggers and the counting of what was there before them.
LOCK TABLES mail WRITE, conteggi_cartelle WRITE;
CREATE TRIGGER IF NOT EXISTS mail_conta_nuova AFTER INSERT ON mail FOR EACH ROW
BEGIN
  INSERT INTO conteggi_cartelle VALUES (NEW.id_utente, NEW.id_cartella, NEW.Cancellata, 1)
    ON DUPLICATE KEY UPDATE numero = numero + 1;
END;
CREATE TRIGGER IF NOT EXISTS mail_conta_tolta AFTER DELETE ON mail FOR EACH ROW
BEGIN
  UPDATE conteggi_cartelle SET numero = numero - 1
   WHERE id_utente = OLD.id_utente AND id_cartella = OLD.id_cartella
     AND Cancellata = OLD.Cancellata;
END;
CREATE TRIGGER IF NOT EXISTS mail_conta_cambiata AFTER UPDATE ON mail FOR EACH ROW
BEGIN
  IF NEW.id_utente <> OLD.id_utente OR NEW.id_cartella <> OLD.id_cartella
     OR NEW.Cancellata <> OLD.Cancellata THEN
    UPDATE conteggi_cartelle SET numero = numero - 1
     WHERE id_utente = OLD.id_utente AND id_cartella = OLD.id_cartella
       AND Cancellata = OLD.Cancellata;
    INSERT INTO conteggi_cartelle VALUES (NEW.id_utente, NEW.id_cartella, NEW.Cancellata, 1)
      ON DUPLICATE KEY UPDATE numero = numero + 1;
  END IF;
END;
INSERT IGNORE INTO conteggi_cartelle
  SELECT id_utente, id_cartella, Cancellata, COUNT(*) FROM mail GROUP BY 1, 2, 3;
UNLOCK TABLES;

CREATE TABLE IF NOT EXISTS messaggi_eliminati (
  id_eliminato     INTEGER NOT NULL PRIMARY KEY,
  id_utente        INTEGER NOT NULL,
  id_server        INTEGER NOT NULL,
  campo_received   LONGTEXT,
  campo_MessageId  VARCHAR(255),
  mittente         VARCHAR(255) COLLATE utf8mb4_general_nopad_ci,
  oggetto          VARCHAR(150) COLLATE utf8mb4_general_nopad_ci,
  data             DATETIME,
  dimensione       INTEGER,
  DwnldCorrettoFAQ TINYINT(1) NOT NULL DEFAULT 0 CHECK (DwnldCorrettoFAQ IN (0, -1))
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_nopad_bin;
CREATE INDEX IF NOT EXISTS messaggi_eliminati_doppioni
  ON messaggi_eliminati (id_utente, id_server, campo_MessageId);

CREATE TABLE IF NOT EXISTS ultimi_scaricamenti (
  Id_scaricamento INTEGER NOT NULL PRIMARY KEY,
  id_utente       INTEGER NOT NULL,
  id_server       INTEGER NOT NULL,
  Data            DATETIME,
  Error           TINYINT(1) NOT NULL DEFAULT 0 CHECK (Error IN (0, -1)),
  UNIQUE (id_utente, id_server)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_nopad_bin;

CREATE TABLE IF NOT EXISTS Pulizia (
  id_pulizia        INTEGER NOT NULL PRIMARY KEY,
  id_utente         INTEGER NOT NULL UNIQUE,
  dim_msg_canc_file INTEGER NOT NULL DEFAULT 0
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_nopad_bin;

CREATE TABLE IF NOT EXISTS testdata (
  idtestdata INTEGER NOT NULL PRIMARY KEY,
  data1      DATETIME,
  data3      DATETIME
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_nopad_bin;
INSERT IGNORE INTO testdata (idtestdata, data1, data3)
  VALUES (1, '2002-04-03 00:00:00', '2002-03-22 00:00:00');

CREATE TABLE IF NOT EXISTS account_email (
  Id_account_email INTEGER NOT NULL PRIMARY KEY,
  Nome_server      VARCHAR(255) NOT NULL,
  Porta_server     INTEGER NOT NULL DEFAULT 110,
  Time_out_server  INTEGER NOT NULL DEFAULT 60000,
  Username_server  VARCHAR(255) NOT NULL,
  Password_server  VARCHAR(255),
  caso             INTEGER
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_nopad_bin;

CREATE TABLE IF NOT EXISTS account_email_utenti (
  Id_account_email_utenti INTEGER NOT NULL PRIMARY KEY,
  id_utente               INTEGER NOT NULL,
  Id_account_email        INTEGER NOT NULL REFERENCES account_email (Id_account_email) ON DELETE CASCADE,
  UNIQUE (id_utente, Id_account_email)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_nopad_bin;
CREATE INDEX IF NOT EXISTS account_email_utenti_account
  ON account_email_utenti (Id_account_email);

CREATE TABLE IF NOT EXISTS utenti (
  id_utente       INTEGER NOT NULL PRIMARY KEY,
  Account_default INTEGER REFERENCES account_email_utenti (Id_account_email_utenti) ON DELETE SET NULL
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_nopad_bin;

CREATE OR REPLACE VIEW Query1_account AS
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
