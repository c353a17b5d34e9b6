// Copies from engine to engine.
#include "frame/database_copy_check.h"
#include "support/mariadb_server.h"
#include "support/postgres_server.h"
#include "support/temp_folder.h"

namespace korvane::test {
namespace {

TEST(DatabaseCopy, IsWholeFromEveryEngineToAnother) {
  const TempFolder folder;
  PostgresServer postgres;
  MariadbServer mariadb;
  int made = 0;
  const auto sqlite = [&] { return "sqlite://" + folder / (std::to_string(++made) + ".db"); };
  const auto named = [&] { return "copy" + std::to_string(++made); };
  const std::pair<std::string, std::string> copies[] = {
      {sqlite(), postgres.MakeDatabase(named())},
      {postgres.MakeDatabase(named()), mariadb.MakeDatabase(named())},
      {mariadb.MakeDatabase(named()), sqlite()}};
  for (const auto& [from_url, to_url] : copies) {
    SCOPED_TRACE(from_url + " to " + to_url);
    Engine from(from_url);
    Engine to(to_url);
    ACopyIsWholeAndGoesOnWhereItWasBrokenOff(from, to);
  }
}

}  // namespace
}  // namespace korvane::test
