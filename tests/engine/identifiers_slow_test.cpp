// Eight processes on every engine, and what they cost against one.
#include "identifiers.h"
#include "support/mariadb_server.h"
#include "support/postgres_server.h"

namespace korvane::test {
namespace {

constexpr int kUsers = 8;
constexpr int kEach = 1000;

void EightProcesses(const std::string& url, const std::string& alone_url) {
  Store store(url);
  const double together = StoreFromProcesses(store, kUsers, kUsers, kEach);
  CheckStored(store, kUsers, kEach);
  Store alone_store(alone_url);
  const double alone = StoreFromProcesses(alone_store, 1, kUsers, kEach);
  CheckStored(alone_store, kUsers, kEach);
  std::printf("8000 messages: eight processes %.1f s (%.0f a second), one process %.1f s (%.0f)\n",
              together, kUsers * kEach / together, alone, kUsers * kEach / alone);
}

TEST(Identifiers, EightProcessesOnSqlite) { EightProcesses("", ""); }

TEST(Identifiers, EightProcessesOnPostgresql) {
  PostgresServer server;
  EightProcesses(server.MakeDatabase("together"), server.MakeDatabase("alone"));
}

TEST(Identifiers, EightProcessesOnMariadb) {
  MariadbServer server;
  EightProcesses(server.MakeDatabase("together"), server.MakeDatabase("alone"));
}

TEST(Identifiers, EightProcessesOnSqliteThroughOdbc) {
  const TempFolder folder;
  const std::string source = "odbc:Driver=SQLite3;Database=";
  EightProcesses(source + (folder / "together.db"), source + (folder / "alone.db"));
}

TEST(Identifiers, EightProcessesOnPostgresqlThroughOdbc) {
  PostgresServer server;
  server.MakeDatabase("together");
  server.MakeDatabase("alone");
  EightProcesses(server.OdbcUrl("together"), server.OdbcUrl("alone"));
}

TEST(Identifiers, EightProcessesOnMariadbThroughOdbc) {
  MariadbServer server;
  server.MakeDatabase("together");
  server.MakeDatabase("alone");
  EightProcesses(server.OdbcUrl("together"), server.OdbcUrl("alone"));
}

}  // namespace
}  // namespace korvane::test
