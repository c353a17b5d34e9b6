#include "frame/schema.h"

#include "frame/database.h"
#include "frame/database_url.h"
#include "frame/driver.h"
#include "frame/schema_texts.h"
#include "frame/sql_text.h"

namespace korvane {

void CreateSchema(const std::string& text) {
  const DatabaseUrl url = DatabaseUrl::Parse(text);
  switch (url.dialect) {
    case Dialect::kSqlite:
      OpenSqlite(url, true)->RunScript(kSqliteSchema);
      break;
    case Dialect::kPostgresql:
      OpenPostgresql(url)->RunScript(kPostgresqlSchema);
      break;
    case Dialect::kMariadb:
      OpenMariadb(url)->RunScript(kMariadbSchema);
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
