#include "frame/schema.h"

#include "frame/database.h"
#include "frame/database_url.h"
#include "frame/dialect_sql.h"
#include "frame/driver.h"
#include "frame/files.h"
#include "frame/schema_texts.h"

namespace korvane {

namespace {

const char* ScriptFor(Dialect dialect) {
  switch (dialect) {
    case Dialect::kSqlite:
      return kSqliteSchema;
    case Dialect::kPostgresql:
      return kPostgresqlSchema;
    case Dialect::kMariadb:
      break;
  }
  return kMariadbSchema;
}

int32_t VersionOf(Driver& driver) {
  if (DescribeTable(driver, "schema_version").empty()) return 0;
  const Rows rows = driver.Run("SELECT MAX(version) FROM schema_version");
  return rows.Count() == 1 && rows.Row(0)[0] ? std::stoi(*rows.Row(0)[0]) : 0;
}

/// Tables of a later program are not for this one to change.
void CheckVersion(int32_t version) {
  if (version <= kSchemaVersion) return;
  throw DatabaseError(DatabaseError::Kind::kOther,
                      "the tables are of version " + std::to_string(version) +
                          ", newer than this program's " + std::to_string(kSchemaVersion));
}

}  // namespace

void CreateSchema(const std::string& text) {
  const auto driver = OpenDriver(DatabaseUrl::Parse(text), true);
  CheckVersion(VersionOf(*driver));
  driver->RunScript(ScriptFor(driver->dialect()));
}

SchemaPlan PlanSchema(const std::string& text) {
  const DatabaseUrl url = DatabaseUrl::Parse(text);
  if (url.odbc.empty() && url.dialect == Dialect::kSqlite && !FileExists(url.name)) {
    return {0, ScriptStatements(kSqliteSchema)};
  }
  const auto driver = OpenDriver(url, false);
  SchemaPlan plan{VersionOf(*driver), {}};
  CheckVersion(plan.version);
  if (plan.version < kSchemaVersion) {
    plan.statements = ScriptStatements(ScriptFor(driver->dialect()));
  }
  return plan;
}

int32_t SchemaVersion(const std::string& url) {
  return VersionOf(*OpenDriver(DatabaseUrl::Parse(url), false));
}

}  // namespace korvane
