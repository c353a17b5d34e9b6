// The engine over the database servers: what SQLite does in the other tests, they do as well.
#include "cut_runs.h"
#include "support/mariadb_server.h"
#include "support/postgres_server.h"

namespace korvane::test {
namespace {

/// From the first download to a compaction.
void RunOver(const std::string& url) {
  Store store(url);
  DovecotServer dovecot;
  dovecot.AddUser("bob");
  dovecot.Start();
  TcpProxy proxy(dovecot.port());
  Store::Account row;
  row.port = proxy.port();
  row.name = "bob";
  row.password = DovecotServer::kPassword;
  const int32_t account = store.Add(row);
  auto messages = AwkwardMailbox(107);
  messages.push_back(Mail(108, 36'100, "X-Nothing: 1\n", "l'ora \xF0\x9F\x98\x80 \\ ;--"));
  for (const auto& message : messages) dovecot.Deliver("bob", message);
  const auto subjects = [&] {
    auto stored = store.Subjects();
    std::sort(stored.begin(), stored.end());
    return stored;
  };
  std::vector<std::string> expected;
  for (int i = 1; i <= 108; ++i) expected.push_back("mail " + std::to_string(i));
  std::sort(expected.begin(), expected.end());

  // Under look-ups, cut in the middle, resumed and settled.
  proxy.Set({.cut_at_verb = "TOP 40 "});
  Request cut(store);
  cut.engine.SetOptions({.settle = true});
  cut.SyncWhole();
  EXPECT_EQ(cut.Error(), error::SelectMessageHeaderFailed);
  proxy.Clear();
  Request resumed(store);
  resumed.engine.SetOptions({.settle = true});
  resumed.SyncWhole();
  ASSERT_EQ(resumed.Error(), 0);
  ASSERT_EQ(subjects(), expected);
  for (const auto& stored : store.Rows()) ASSERT_TRUE(stored.known_with_older);
  EXPECT_FALSE(store.Kept(account)->error);
  proxy.Forget();
  Request second(store);
  const auto page = second.SyncWhole();
  EXPECT_EQ(second.Error(), 0);
  EXPECT_EQ(page->Count(), 25);
  EXPECT_EQ(proxy.Count("TOP "), 1);
  ASSERT_EQ(subjects(), expected);

  Request request(store);
  const auto rows = store.Rows();
  for (size_t i = 0; i < rows.size(); i += 9) {
    ASSERT_TRUE(request.engine.GetMessage(rows[i].id, "", false)) << request.Error();
    EXPECT_TRUE(store.RowOf(rows[i].id).read);
  }
  // Two kinds of deletion, and one that is undone.
  EXPECT_TRUE(request.engine.DeleteMessage(rows[0].id, EDelType::DEL_TYPE_LOCALE));
  EXPECT_TRUE(request.engine.DeleteMessage(rows[1].id, EDelType::DEL_TYPE_LOCALE_SERVER))
      << request.Error();
  EXPECT_EQ(dovecot.Count("bob"), 107);
  proxy.Set({.cut_at_verb = "QUIT"});
  EXPECT_FALSE(request.engine.DeleteMessage(rows[2].id, EDelType::DEL_TYPE_LOCALE_SERVER));
  EXPECT_FALSE(store.RowOf(rows[2].id).deleted);
  EXPECT_EQ(store.RowOf(rows[2].id).number, rows[2].number);
  proxy.Clear();
  ASSERT_TRUE(store.DeadBytes());
}

TEST(Databases, TheEngineOverPostgresql) {
  PostgresServer server;
  RunOver(server.MakeDatabase("mail"));
}

TEST(Databases, TheEngineOverMariadb) {
  MariadbServer server;
  RunOver(server.MakeDatabase("mail"));
}

TEST(Databases, TheEngineOverSqlite) { RunOver(""); }

TEST(Databases, TheEngineOverPostgresqlThroughOdbc) {
  PostgresServer server;
  server.MakeDatabase("mail");
  RunOver(server.OdbcUrl("mail"));
}

TEST(Databases, TheEngineOverMariadbThroughOdbc) {
  MariadbServer server;
  server.MakeDatabase("mail");
  RunOver(server.OdbcUrl("mail"));
}

TEST(Databases, TheEngineOverSqliteThroughOdbc) {
  const TempFolder folder;
  RunOver("odbc:Driver=SQLite3;Database=" + (folder / "mail.db"));
}

}  // namespace
}  // namespace korvane::test
