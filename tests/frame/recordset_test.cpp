// The recordset contract on SQLite, and what is SQLite's own: the file.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "frame/recordset_contract.h"
#include "support/temp_folder.h"

namespace korvane::test {
namespace {

class OnSqlite : public testing::TestWithParam<Claim> {};

TEST_P(OnSqlite, Holds) {
  const TempFolder folder;
  Engine engine("sqlite://" + folder / "mail.db");
  GetParam().check(engine);
}

INSTANTIATE_TEST_SUITE_P(Recordset, OnSqlite, testing::ValuesIn(Claims()),
                         [](const auto& claim) { return std::string(claim.param.name); });

/// A database file reached through ODBC's driver for this engine.
std::string OdbcUrl(const std::string& path) { return "odbc:Driver=SQLite3;Database=" + path; }

class OnSqliteThroughOdbc : public testing::TestWithParam<Claim> {};

TEST_P(OnSqliteThroughOdbc, Holds) {
  const TempFolder folder;
  Engine engine(OdbcUrl(folder / "mail.db"));
  GetParam().check(engine);
}

INSTANTIATE_TEST_SUITE_P(Recordset, OnSqliteThroughOdbc, testing::ValuesIn(Claims()),
                         [](const auto& claim) { return std::string(claim.param.name); });

std::string MessageThrownBy(const std::function<void()>& action) {
  try {
    action();
  } catch (const DatabaseError& fault) {
    EXPECT_EQ(fault.kind(), Kind::kOther);
    return fault.what();
  }
  ADD_FAILURE() << "nothing was thrown";
  return "";
}

TEST(SqliteFile, AMissingFileIsAnErrorAndIsNotMade) {
  const TempFolder folder;
  const std::string path = folder / "none.db";
  EXPECT_THAT(MessageThrownBy([&] { OpenDatabase("sqlite://" + path); }),
              testing::HasSubstr("none.db"));
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(SqliteThroughOdbc, AMissingFileIsAnErrorAndIsNotMade) {
  const TempFolder folder;
  MessageThrownBy([&] { OpenDatabase(OdbcUrl(folder / "none.db")); });
  EXPECT_FALSE(std::filesystem::exists(folder / "none.db"));
}

TEST(SqliteThroughOdbc, TheFileIsMadeForItsOwnerOnly) {
  const TempFolder folder;
  const mode_t before = umask(0);
  Engine engine(OdbcUrl(folder / "mail.db"));
  umask(before);
  Add(*engine.connection);
  for (const auto& file : std::filesystem::directory_iterator(folder.path())) {
    struct stat state {};
    stat(file.path().c_str(), &state);
    EXPECT_EQ(state.st_mode & 0777, 0600u) << file.path();
  }
}

TEST(SqliteThroughOdbc, ItIsWrittenAheadAndFullySynchronised) {
  const TempFolder folder;
  Engine engine(OdbcUrl(folder / "mail.db"));
  EXPECT_EQ(Text(FirstValue(*engine.connection, "PRAGMA journal_mode")), "wal");
  EXPECT_EQ(Number(FirstValue(*engine.connection, "PRAGMA synchronous")), 2);
  EXPECT_EQ(Number(FirstValue(*engine.connection, "PRAGMA foreign_keys")), 1);
}

TEST(SqliteThroughOdbc, ItSharesItsFileWithTheClientLibrary) {
  const TempFolder folder;
  Engine through(OdbcUrl(folder / "mail.db"));
  const auto direct = OpenDatabase("sqlite://" + folder / "mail.db");
  Add(*through.connection, {.id = 1, .sender = "Citt\xC3\xA0 \xF0\x9F\x93\xA7"});
  Add(*direct, {.id = 2, .date = "01/01/0001 00:00:00"});
  EXPECT_EQ(Text(direct->Open(Row(1))->Field("mittente")), "Citt\xC3\xA0 \xF0\x9F\x93\xA7");
  EXPECT_EQ(Text(through.connection->Open(Row(2))->Field("data")), "01/01/0001 00:00:00");
  const auto ours = OpenDatabase("sqlite://" + folder / "mail.db?timeout=100");
  Transaction transaction(*through.connection, Transaction::Kind::kAllocating);
  EXPECT_EQ(KindThrownBy([&] { ours->BeginAllocating(); }), Kind::kBusy);
}

TEST(SqliteThroughOdbc, AFaultThatIsNoTakenKeyIsNotCalledOne) {
  const TempFolder folder;
  Engine engine(OdbcUrl(folder / "mail.db"));
  for (const char* statement : {"INSERT INTO mail (id_mail, id_utente, Letto) VALUES (1, 7, 5)",
                                "INSERT INTO mail (id_mail) VALUES (1)",
                                "INSERT INTO utenti (id_utente, Account_default) VALUES (7, 99)"}) {
    EXPECT_EQ(KindThrownBy([&] { engine.connection->Execute(statement); }), Kind::kOther)
        << statement;
  }
}

TEST(SqliteThroughOdbc, BehindAFaultATransactionTakesNothingMore) {
  const TempFolder folder;
  Engine engine(OdbcUrl(folder / "mail.db"));
  Add(*engine.connection, {.id = 1});
  Transaction transaction(*engine.connection);
  EXPECT_THROW(Add(*engine.connection, {.id = 1}), DatabaseError);
  EXPECT_THROW(Add(*engine.connection, {.id = 2}), DatabaseError);
  EXPECT_THROW(transaction.Commit(), DatabaseError);
  engine.connection->Rollback();
  EXPECT_EQ(Number(FirstValue(*engine.connection, "SELECT COUNT(*) FROM mail")), 1);
}

TEST(Odbc, ASourceThatIsNotThereIsAnErrorWithoutItsPassword) {
  for (const char* url : {"odbc:DSN=no-such-source;UID=ada;PWD=a-secret-word",
                          "odbc:Driver=PostgreSQL Unicode;Servername=/nowhere;Database=x;UID=ada;"
                          "PWD={a-secret-word}",
                          "odbc:Driver=/nowhere.so;Password=a-secret-word"}) {
    EXPECT_THAT(MessageThrownBy([&] { OpenDatabase(url); }),
                testing::Not(testing::HasSubstr("secret")));
  }
}

TEST(SqliteFile, AFileThatIsNoDatabaseIsAnError) {
  const TempFolder folder;
  std::ofstream(folder / "text.db") << std::string(5000, 'x');
  EXPECT_THAT(MessageThrownBy([&] { OpenDatabase("sqlite://" + folder / "text.db"); }),
              testing::HasSubstr("not a database"));
}

TEST(SqliteFile, AFileInAMissingFolderIsAnErrorAlsoForTheSchema) {
  const TempFolder folder;
  MessageThrownBy([&] { CreateSchema("sqlite://" + folder / "none/mail.db"); });
}

TEST(SqliteFile, ADatabaseWithoutTablesGivesAnErrorForEveryStatement) {
  const TempFolder folder;
  std::ofstream(folder / "empty.db").close();
  const std::string url = "sqlite://" + folder / "empty.db";
  const auto connection = OpenDatabase(url);
  EXPECT_EQ(SchemaVersion(url), 0);
  EXPECT_FALSE(connection->HasTable("mail"));
  for (const char* statement :
       {"mail", "SELECT * FROM mail WHERE id_mail=1",
        "SELECT COUNT(*) AS NumMail FROM mail WHERE id_utente=7 AND id_cartella=1AND Cancellata=0",
        "SELECT * FROM Query1_account WHERE id_utente=7"}) {
    EXPECT_THAT(
        MessageThrownBy([&] { connection->Open(statement); }),
        testing::AnyOf(testing::HasSubstr("no table"), testing::HasSubstr("no such table")));
  }
}

TEST(SqliteFile, TheCountsOfUnreadMessagesFollowEveryChange) {
  const TempFolder folder;
  Engine engine("sqlite://" + folder / "mail.db");
  Connection& database = *engine.connection;
  const auto unread = [&](int32_t box) {
    const auto row = database.Execute(
        "SELECT numero FROM conteggi_non_letti WHERE id_utente=7 AND "
        "id_cartella=" +
        std::to_string(box));
    return row->Eof() ? 0 : Number(row->FieldAt(0));
  };
  const auto set = [&](int32_t id, const char* column, const Any& value) {
    const auto row = database.Open("SELECT * FROM mail WHERE id_mail=" + std::to_string(id));
    row->SetField(column, value);
    row->Update();
    row->Close();
  };
  for (int32_t id = 1; id <= 4; ++id) Add(database, {.id = id});
  Add(database, {.id = 5, .deleted = true});
  EXPECT_EQ(unread(1), 4);
  set(1, "Letto", -1);
  set(2, "Cancellata", true);
  set(3, "id_cartella", 2);
  set(5, "Letto", -1);
  EXPECT_EQ(unread(1), 1);
  EXPECT_EQ(unread(2), 1);
  set(1, "Letto", 0);
  set(2, "Cancellata", false);
  EXPECT_EQ(unread(1), 3);
  database.Execute("DELETE FROM mail WHERE id_mail<>4");
  EXPECT_EQ(unread(1), 1);
  EXPECT_EQ(unread(2), 0);
}

TEST(SqliteFile, ATableThatWasFilledBeforeIsCountedWhenTheSchemaComes) {
  const TempFolder folder;
  Engine engine("sqlite://" + folder / "mail.db");
  Add(*engine.connection, {.id = 1});
  Add(*engine.connection, {.id = 2});
  engine.connection->Execute("DROP TABLE conteggi_non_letti");
  CreateSchema(engine.url);
  EXPECT_EQ(Number(FirstValue(*engine.connection, "SELECT numero FROM conteggi_non_letti")), 2);
}

TEST(SqliteFile, ALockedDatabaseIsBusyAfterTheTimeout) {
  const TempFolder folder;
  Engine engine("sqlite://" + folder / "mail.db");
  const auto other = engine.Another("timeout=50");
  Transaction transaction(*engine.connection);
  EXPECT_EQ(KindThrownBy([&] { Add(*other); }), Kind::kBusy);
  EXPECT_EQ(KindThrownBy([&] { other->Begin(); }), Kind::kBusy);
  EXPECT_TRUE(other->Open("SELECT * FROM mail")->Eof());
}

/// Runs `action` where the rights of files count also for a test that runs as root.
int AsAnybody(const std::function<int()>& action) {
  const pid_t child = fork();
  if (child == 0) {
    if (getuid() == 0 && setuid(65534) != 0) _exit(99);
    _exit(action());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(SqliteFile, AReadOnlyDatabaseIsReadAndRefusesChanges) {
  const TempFolder folder;
  const std::string path = folder / "mail.db";
  {
    Engine engine("sqlite://" + path);
    Add(*engine.connection, {.id = 1});
  }
  // The write-ahead log needs its own files beside the database; the folder stays writable.
  chmod(folder.path().c_str(), 0777);
  chmod(path.c_str(), 0444);
  const int result = AsAnybody([&] {
    try {
      const auto connection = OpenDatabase("sqlite://" + path);
      const auto row = connection->Open(Row(1));
      if (row->Field("mittente").ToText() != "Ada") return 1;
      row->SetField("Letto", -1);
      try {
        row->Update();
      } catch (const DatabaseError& fault) {
        return fault.kind() == Kind::kOther ? 0 : 2;
      }
      return 3;
    } catch (const DatabaseError& fault) {
      fprintf(stderr, "%s\n", fault.what());
      return 4;
    }
  });
  EXPECT_EQ(result, 0);
}

TEST(SqliteFile, AnUnreadableDatabaseIsAnError) {
  const TempFolder folder;
  const std::string path = folder / "mail.db";
  { Engine engine("sqlite://" + path); }
  chmod(folder.path().c_str(), 0777);
  EXPECT_EQ(AsAnybody([&] {
              try {
                OpenDatabase("sqlite://" + path);
                return 1;
              } catch (const DatabaseError&) {
                return 0;
              }
            }),
            getuid() == 0 ? 0 : 1);
}

TEST(SqliteFile, TheFileIsMadeForItsOwnerOnly) {
  const TempFolder folder;
  const mode_t before = umask(0);
  Engine engine("sqlite://" + folder / "mail.db");
  umask(before);
  Add(*engine.connection);
  for (const auto& file : std::filesystem::directory_iterator(folder.path())) {
    struct stat state {};
    stat(file.path().c_str(), &state);
    EXPECT_EQ(state.st_mode & 0777, 0600u) << file.path();
  }
}

TEST(SqliteFile, ItIsWrittenAheadAndFullySynchronised) {
  const TempFolder folder;
  Engine engine("sqlite://" + folder / "mail.db");
  EXPECT_EQ(Text(FirstValue(*engine.connection, "PRAGMA journal_mode")), "wal");
  EXPECT_EQ(Number(FirstValue(*engine.connection, "PRAGMA synchronous")), 2);
}

TEST(SqliteFile, APathWithPercentSignsAndBlanksIsFound) {
  const TempFolder folder;
  CreateSchema("sqlite://" + folder / "my%20mail%2525.db");
  EXPECT_TRUE(std::filesystem::exists(folder / "my mail%25.db"));
}

/// The plan of a page's identifiers never sorts and never touches the table.
TEST(SqlitePlans, EveryOrderOfAListingComesFromAnIndexAlone) {
  const TempFolder folder;
  Engine engine("sqlite://" + folder / "mail.db");
  for (const char* column :
       {"data", "mittente", "oggetto", "dimensione", "destinatario", "id_mail"}) {
    for (const int directions : {0, 1, 2, 3}) {
      const std::string first = directions & 1 ? " DESC" : " ASC";
      const std::string second = directions & 2 ? ",data DESC" : ",data ASC";
      const std::string name = column;
      std::string order = name + first;
      if (name != "data" && name != "id_mail") order += second;
      if (name != "id_mail") order += ",id_mail" + first;
      const auto plan = engine.connection->Execute(
          "EXPLAIN QUERY PLAN SELECT id_mail FROM mail WHERE id_utente=7 AND id_cartella=1 AND "
          "Cancellata=0 ORDER BY " +
          order + " LIMIT 25");
      std::string text;
      for (; !plan->Eof(); plan->MoveNext()) text += Text(plan->Field("detail")) + "\n";
      EXPECT_THAT(text, testing::HasSubstr("COVERING INDEX")) << order;
      EXPECT_THAT(text, testing::Not(testing::HasSubstr("TEMP B-TREE"))) << order;
    }
  }
}

TEST(SqlitePlans, TheDuplicateCheckAndTheWalkOverRecordsUseTheirIndexes) {
  const TempFolder folder;
  Engine engine("sqlite://" + folder / "mail.db");
  const auto plan = [&](const std::string& statement) {
    return Text(engine.connection->Execute("EXPLAIN QUERY PLAN " + statement)->Field("detail"));
  };
  EXPECT_THAT(
      plan("SELECT id_mail FROM mail WHERE id_utente=7 AND id_server=3 AND campo_received='a' "
           "AND campo_MessageId='b' ORDER BY id_mail"),
      testing::HasSubstr("mail_doppioni"));
  EXPECT_THAT(plan("SELECT id_mail FROM mail WHERE id_utente=7 AND body_scaricato<>-1 ORDER BY "
                   "body_scaricato,id_mail"),
              testing::HasSubstr("COVERING INDEX mail_posizioni"));
}

}  // namespace
}  // namespace korvane::test
