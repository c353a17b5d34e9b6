// Opening a recordset: what the columns of its table are, which of them identifies a row, and the
// statement that gives the identifiers in order.
#include <algorithm>

#include "frame/database_values.h"
#include "frame/dialect_sql.h"
#include "frame/keyset_recordset.h"

namespace korvane {

namespace recordset {

void Fail(const std::string& what, DatabaseError::Kind kind) {
  throw DatabaseError(kind, "recordset: " + what);
}

size_t FindColumn(const std::vector<Column>& columns, std::string_view name) {
  for (size_t i = 0; i < columns.size(); ++i) {
    if (SameName(columns[i].name, name)) return i;
  }
  Fail("no column " + std::string(name));
}

std::string Quoted(const std::string& name) { return '"' + name + '"'; }

}  // namespace recordset

namespace {

using namespace recordset;

/// The one identifier among the columns.
std::optional<size_t> KeyColumn(const std::vector<Column>& columns) {
  std::optional<size_t> key;
  for (size_t i = 0; i < columns.size(); ++i) {
    if (!columns[i].key) continue;
    if (key || columns[i].kind != ColumnKind::kInteger) return std::nullopt;
    key = i;
  }
  return key;
}

std::string TableName(const DatabaseSession& session, const std::string& table) {
  return Quoted(session.driver->dialect() == Dialect::kPostgresql ? LowerName(table) : table);
}

/// Where a site declared no primary key, the system's own identifiers still are one.
void MarkIdentifier(const std::string& table, std::vector<Column>& columns) {
  static constexpr std::pair<std::string_view, std::string_view> kIdentifiers[] = {
      {"mail", "id_mail"},
      {"ultimi_scaricamenti", "id_scaricamento"},
      {"pulizia", "id_pulizia"},
      {"testdata", "idtestdata"}};
  if (std::ranges::any_of(columns, &Column::key)) return;
  const auto known =
      std::ranges::find(kIdentifiers, LowerName(table), [](const auto& one) { return one.first; });
  if (known == std::end(kIdentifiers)) return;
  for (Column& column : columns) column.key = SameName(column.name, known->second);
}

}  // namespace

const std::vector<Column>& DatabaseSession::ColumnsOf(const std::string& table) {
  const auto found = tables_.find(table);
  if (found != tables_.end()) return found->second;
  static const std::vector<Column> kNone;
  std::vector<Column> columns = DescribeTable(*driver, table);
  if (columns.empty()) return kNone;  // not kept: it may be made later
  MarkIdentifier(table, columns);
  return tables_.emplace(table, std::move(columns)).first->second;
}

std::shared_ptr<Recordset> OpenKeyset(const std::shared_ptr<DatabaseSession>& session,
                                      const SelectShape& shape) {
  const std::vector<Column>& all = session->ColumnsOf(shape.table);
  if (all.empty()) Fail("no table " + shape.table);
  const auto table_key = KeyColumn(all);
  if (!table_key) return nullptr;

  std::vector<Column> columns;
  std::optional<size_t> key;
  for (const std::string& name : shape.columns) {
    const size_t index = FindColumn(all, name);
    if (index == *table_key) key = columns.size();
    columns.push_back(all[index]);
  }
  if (shape.columns.empty()) {
    columns = all;
    key = table_key;
  } else if (!key) {
    key = columns.size();
    columns.push_back(all[*table_key]);
  }

  const std::string table = TableName(*session, shape.table);
  const std::string key_name = Quoted(all[*table_key].name);
  BoundStatement keys{"SELECT " + key_name + " FROM " + table, shape.condition.parameters};
  if (!shape.condition.text.empty()) keys.text += " WHERE " + shape.condition.text;
  std::string order;
  bool ordered_by_key = false;
  for (const SelectShape::Term& term : shape.order) {
    const size_t index = FindColumn(all, term.column);
    ordered_by_key = ordered_by_key || index == *table_key;
    const std::string direction = term.descending ? " DESC" : "";
    if (!order.empty()) order += ",";
    if (session->driver->dialect() == Dialect::kPostgresql &&
        all[index].kind == ColumnKind::kText && all[index].longest == 0) {
      // An index entry there is bounded: the beginning is indexed, and to order by it first changes
      // nothing in the order of the whole.
      order += "left(" + Quoted(all[index].name) + ",200)" + direction + ",";
    }
    order += Quoted(all[index].name) + direction;
  }
  if (!ordered_by_key) {
    const bool descending = !shape.order.empty() && shape.order.front().descending;
    order += (order.empty() ? "" : ",") + key_name + (descending ? " DESC" : "");
  }
  keys.text += " ORDER BY " + order;

  return MakeKeyset(session, table, std::move(columns), key, KeyQuery{std::move(keys), shape.top});
}

std::shared_ptr<Recordset> OpenForAdding(const std::shared_ptr<DatabaseSession>& session,
                                         const std::string& table) {
  const std::vector<Column>& columns = session->ColumnsOf(table);
  if (columns.empty()) Fail("no table " + table);
  return MakeKeyset(session, TableName(*session, table), columns, KeyColumn(columns), {});
}

}  // namespace korvane
