#include "frame/schema.h"

#include "frame/database.h"
#include "frame/database_url.h"
#include "frame/driver.h"
#include "frame/schema_texts.h"
#include "frame/sql_text.h"

namespace korvane {

void CreateSchema(const std::string& text) {
  const auto driver = OpenDriver(DatabaseUrl::Parse(text), true);
  switch (driver->dialect()) {
    case Dialect::kSqlite:
      driver->RunScript(kSqliteSchema);
      break;
    case Dialect::kPostgresql:
      driver->RunScript(kPostgresqlSchema);
      break;
    case Dialect::kMariadb:
      driver->RunScript(kMariadbSchema);
      break;
  }
}

int32_t SchemaVersion(const std::string& url) {
  const auto connection = OpenDatabase(url);
  if (!connection->HasTable("schema_version")) return 0;
  const Any version = FirstValue(*connection, "SELECT MAX(version) FROM schema_version");
  return version.ToInt32().value_or(0);
}

}  // namespace korvane
