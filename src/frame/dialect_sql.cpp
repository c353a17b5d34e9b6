#include "frame/dialect_sql.h"

#include <algorithm>
#include <charconv>

#include "frame/database_values.h"

namespace korvane {

namespace {

ColumnKind KindOfDeclaration(std::string_view type) {
  const std::string lower = LowerName(type);
  if (lower.starts_with("int") || lower.starts_with("bigint")) return ColumnKind::kInteger;
  if (lower.starts_with("bool")) return ColumnKind::kBoolean;
  if (lower.starts_with("date") || lower.starts_with("timestamp")) return ColumnKind::kDate;
  if (lower.starts_with("real") || lower.starts_with("double")) return ColumnKind::kReal;
  return ColumnKind::kText;
}

/// The 255 of "VARCHAR(255)".
size_t LengthOfDeclaration(std::string_view type) {
  const size_t open = type.find('(');
  size_t length = 0;
  if (open == std::string_view::npos) return 0;
  std::from_chars(type.data() + open + 1, type.data() + type.size(), length);
  return length;
}

ColumnKind PostgresqlKind(std::string_view type) {
  if (type == "boolean") return ColumnKind::kBoolean;
  if (type == "integer" || type == "bigint" || type == "smallint") return ColumnKind::kInteger;
  if (type == "date" || type.starts_with("timestamp")) return ColumnKind::kDate;
  if (type == "real" || type == "double precision" || type.starts_with("numeric")) {
    return ColumnKind::kReal;
  }
  return ColumnKind::kText;
}

ColumnKind MariadbKind(std::string_view type, std::string_view declaration) {
  if (declaration == "tinyint(1)") return ColumnKind::kBoolean;
  if (type == "int" || type == "bigint" || type == "smallint" || type == "tinyint" ||
      type == "mediumint") {
    return ColumnKind::kInteger;
  }
  if (type == "date" || type == "datetime" || type == "timestamp") return ColumnKind::kDate;
  if (type == "double" || type == "float" || type == "decimal") return ColumnKind::kReal;
  return ColumnKind::kText;
}

/// Every row of an answer: name, type, declaration, part of the key, length of a text, generated.
const char* CatalogueQuestion(Dialect dialect, bool numbered) {
  switch (dialect) {
    case Dialect::kSqlite:
      return "SELECT name, type, type, pk, NULL, 0 FROM pragma_table_info(?) ORDER BY cid";
    case Dialect::kPostgresql:
#define KORVANE_COLUMNS_OF(name)                                                            \
  "SELECT a.attname, format_type(a.atttypid, NULL), format_type(a.atttypid, a.atttypmod),"  \
  " CASE WHEN i.indrelid IS NULL THEN 0 ELSE 1 END, NULL,"                                  \
  " CASE a.attgenerated WHEN '' THEN 0 ELSE 1 END "                                         \
  "FROM pg_attribute a LEFT JOIN pg_index i ON i.indrelid = a.attrelid AND i.indisprimary " \
  "AND a.attnum = ANY (i.indkey) WHERE a.attrelid = to_regclass(quote_ident(" name          \
  ")) AND a.attnum > 0 AND NOT a.attisdropped ORDER BY a.attnum"
      return numbered ? KORVANE_COLUMNS_OF("$1") : KORVANE_COLUMNS_OF("?");
#undef KORVANE_COLUMNS_OF
    case Dialect::kMariadb:
      break;
  }
  return "SELECT COLUMN_NAME, DATA_TYPE, COLUMN_TYPE, "
         "CASE COLUMN_KEY WHEN 'PRI' THEN 1 ELSE 0 END, CHARACTER_MAXIMUM_LENGTH, "
         "CASE WHEN EXTRA LIKE '%GENERATED%' THEN 1 ELSE 0 END "
         "FROM information_schema.COLUMNS WHERE TABLE_SCHEMA = DATABASE() AND TABLE_NAME = ? "
         "ORDER BY ORDINAL_POSITION";
}

}  // namespace

int32_t LockSeconds(int32_t busy_timeout) { return std::max((busy_timeout + 999) / 1000, 1); }

std::vector<std::string> SessionSettings(Dialect dialect, int32_t busy_timeout) {
  switch (dialect) {
    case Dialect::kSqlite:
      return {};
    case Dialect::kPostgresql:
      return {"SET datestyle=ISO", "SET standard_conforming_strings=on",
              "SET lock_timeout=" + std::to_string(std::max(busy_timeout, 1))};
    case Dialect::kMariadb:
      break;
  }
  // A backslash is a character like any other, and nothing that does not fit is bent to fit.
  // Recipients are ordered by their first 8 KB; the engine's own limit is 1 KB.
  // Every statement sees what others have committed, so that a greatest identifier is today's.
  const std::string wait = std::to_string(LockSeconds(busy_timeout));
  return {
      "SET SESSION sql_mode='STRICT_ALL_TABLES,NO_BACKSLASH_ESCAPES,ANSI_QUOTES,"
      "ERROR_FOR_DIVISION_BY_ZERO,NO_ENGINE_SUBSTITUTION',"
      "SESSION innodb_lock_wait_timeout=" +
          wait + ",SESSION lock_wait_timeout=" + wait +
          ",SESSION max_sort_length=8192,SESSION sort_buffer_size=4194304",
      "SET SESSION TRANSACTION ISOLATION LEVEL READ COMMITTED"};
}

ColumnKind SqliteColumnKind(std::string_view name, std::string_view declaration) {
  const ColumnKind declared = KindOfDeclaration(declaration);
  const std::string lower = LowerName(name);
  const auto is_one_of = [&](std::initializer_list<std::string_view> names) {
    return std::ranges::find(names, lower) != names.end();
  };
  if (declared == ColumnKind::kText && is_one_of({"data", "data1", "data3"})) {
    return ColumnKind::kDate;
  }
  if (declared != ColumnKind::kDate &&
      is_one_of({"letto", "allegati", "cancellata", "dwnldcorrettofaq", "error"})) {
    return ColumnKind::kBoolean;
  }
  return declared;
}

std::vector<Column> DescribeTable(Driver& driver, const std::string& table) {
  const Dialect dialect = driver.dialect();
  const Parameter name{ColumnKind::kText,
                       dialect == Dialect::kPostgresql ? LowerName(table) : table};
  const Rows rows =
      driver.Run(CatalogueQuestion(dialect, driver.NumbersParameters()), std::span(&name, 1));
  std::vector<Column> columns;
  for (size_t i = 0; i < rows.Count(); ++i) {
    const Cell* row = rows.Row(i);
    const std::string type = row[1].value_or("");
    const std::string declaration = row[2].value_or("");
    Column column;
    column.name = row[0].value_or("");
    column.kind = dialect == Dialect::kSqlite       ? SqliteColumnKind(column.name, type)
                  : dialect == Dialect::kPostgresql ? PostgresqlKind(type)
                                                    : MariadbKind(type, declaration);
    if (row[4]) {
      column.longest = std::stoull(*row[4]);
    } else if (column.kind == ColumnKind::kText) {
      column.longest = LengthOfDeclaration(declaration);
    }
    column.key = row[3].value_or("0") != "0";
    column.generated = row[5].value_or("0") != "0";
    columns.push_back(std::move(column));
  }
  return columns;
}

std::vector<std::string> ScriptStatements(std::string_view script) {
  std::vector<std::string> statements;
  while (true) {
    // Comments in front of a statement are none of it.
    size_t begin = 0;
    while (begin < script.size()) {
      if (script.substr(begin).starts_with("--")) {
        begin = std::min(script.find('\n', begin), script.size());
      } else if (script[begin] == ' ' || script[begin] == '\n' || script[begin] == '\r') {
        ++begin;
      } else {
        break;
      }
    }
    script.remove_prefix(begin);
    if (script.empty()) return statements;
    std::string_view end = ";\n";
    if (script.starts_with("CREATE TRIGGER")) end = "\nEND;\n";
    if (script.starts_with("CREATE OR REPLACE FUNCTION")) end = "\n$$;\n";
    size_t length = script.find(end);
    length = length == std::string_view::npos ? script.size() : length + end.size() - 2;
    statements.emplace_back(script.substr(0, length));
    script.remove_prefix(std::min(length + 2, script.size()));
  }
}

}  // namespace korvane
