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

/// What a table keeps of a text that is too long for an index: generated columns with its
/// beginning, and with 1 where it goes on behind that.
struct BoundedText {
  std::string whole;
  std::string beginning;
  std::string goes_on;
};

std::optional<BoundedText> BoundedTextOf(const std::vector<Column>& columns, const Column& text) {
  const auto generated = [&](std::string_view ending) -> const Column* {
    const auto found = std::ranges::find_if(columns, [&](const Column& column) {
      return column.generated && SameName(column.name, text.name + std::string(ending));
    });
    return found == columns.end() ? nullptr : &*found;
  };
  const Column* const beginning = generated("_inizio");
  const Column* const goes_on = generated("_lungo");
  if (!beginning || !goes_on) return std::nullopt;
  return BoundedText{Quoted(text.name), Quoted(beginning->name), Quoted(goes_on->name)};
}

/// The statements that give the rows by the index of such a text; `rest` is the order behind it.
BeginningQuery ByBeginning(const StatementTranslator& translator, const BoundStatement& rows,
                           const std::string& key, const BoundedText& text, bool descending,
                           const std::string& rest) {
  const std::string down = descending ? " DESC" : "";
  const auto statement = [&](const std::string& columns, const std::string& condition,
                             const std::string& order) {
    return BoundStatement{"SELECT " + columns + rows.text + condition + " ORDER BY " + order + rest,
                          rows.parameters};
  };
  const size_t bound = rows.parameters.size();
  const std::string next = translator.Placeholder(bound + 1);
  const std::string going_on =
      (rows.text.find(" WHERE ") == std::string::npos ? " WHERE " : " AND ") + text.goes_on + "=1";
  const std::string by_beginning = text.beginning + down;
  return {statement(key + ",CASE WHEN " + text.goes_on + "=1 THEN " + text.beginning + " END", "",
                    by_beginning + "," + text.goes_on + down),
          statement(key, going_on + " AND " + text.beginning + "=" + next,
                    by_beginning + "," + text.goes_on + down),
          statement(key,
                    going_on + " AND " + text.beginning + ">=" + next + " AND " + text.beginning +
                        "<=" + translator.Placeholder(bound + 2),
                    by_beginning + "," + text.whole + down),
          descending};
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
    std::erase_if(columns, &Column::generated);
    key = FindColumn(columns, all[*table_key].name);
  } else if (!key) {
    key = columns.size();
    columns.push_back(all[*table_key]);
  }

  const std::string table = TableName(*session, shape.table);
  const std::string key_name = Quoted(all[*table_key].name);
  BoundStatement rows{" FROM " + table, shape.condition.parameters};
  // In parentheses, so that more can be asked for.
  if (!shape.condition.text.empty()) rows.text += " WHERE (" + shape.condition.text + ")";
  std::string order;
  std::optional<BoundedText> bounded;
  bool ordered_by_key = false;
  for (const SelectShape::Term& term : shape.order) {
    const size_t index = FindColumn(all, term.column);
    ordered_by_key = ordered_by_key || index == *table_key;
    const std::string direction = term.descending ? " DESC" : "";
    if (&term == &shape.order.front()) {
      bounded = BoundedTextOf(all, all[index]);
      if (bounded) continue;
    }
    order += "," + Quoted(all[index].name) + direction;
  }
  const bool descending = !shape.order.empty() && shape.order.front().descending;
  if (!ordered_by_key) order += "," + key_name + (descending ? " DESC" : "");
  KeyQuery query{rows, shape.top, std::nullopt};
  std::string first;
  if (bounded) {
    query.beginning = ByBeginning(session->translator, rows, key_name, *bounded, descending, order);
    const std::string down = descending ? " DESC" : "";
    first = bounded->beginning + down + "," + bounded->goes_on + down + "," + bounded->whole + down;
  } else {
    order.erase(0, 1);
  }
  query.keys.text = "SELECT " + key_name + rows.text + " ORDER BY " + first + order;

  return MakeKeyset(session, table, std::move(columns), key, std::move(query));
}

std::shared_ptr<Recordset> OpenForAdding(const std::shared_ptr<DatabaseSession>& session,
                                         const std::string& table) {
  std::vector<Column> columns = session->ColumnsOf(table);
  if (columns.empty()) Fail("no table " + table);
  std::erase_if(columns, &Column::generated);
  const auto key = KeyColumn(columns);
  return MakeKeyset(session, TableName(*session, table), std::move(columns), key, {});
}

}  // namespace korvane
