// The two kinds of recordset over a driver.
//
// KeysetRecordset: the rows of a query over one table, changeable. It holds the identifiers in the
// order asked for and reads whole rows in small blocks around the position, so that skipping,
// stepping back and jumping to the last row read no rows. Rows that are equal in every order term
// come in the order of the identifier, in the direction of the first term; a page that is read from
// the front and one that is read from the back then never overlap and never miss a row.
//
// RowsRecordset: the rows of any statement, read at once and not changeable.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "database.h"
#include "driver.h"
#include "statement_translator.h"

namespace korvane {

/// What the recordsets of one connection share; it lives as long as the last of them.
struct DatabaseSession {
  DatabaseSession(std::unique_ptr<Driver> open_driver, bool dates_month_first)
      : driver(std::move(open_driver)),
        translator(driver->dialect(), driver->NumbersParameters()),
        month_first(dates_month_first) {}

  std::unique_ptr<Driver> driver;
  StatementTranslator translator;
  bool month_first;

  /// The columns of a table, asked once; empty when there is none of that name.
  const std::vector<Column>& ColumnsOf(const std::string& table);

 private:
  std::map<std::string, std::vector<Column>, std::less<>> tables_;
};

/// The changeable recordset when the table has one identifier, nothing when it has none.
std::shared_ptr<Recordset> OpenKeyset(const std::shared_ptr<DatabaseSession>& session,
                                      const SelectShape& shape);
/// A table opened for adding only.
std::shared_ptr<Recordset> OpenForAdding(const std::shared_ptr<DatabaseSession>& session,
                                         const std::string& table);
std::shared_ptr<Recordset> HoldRows(const std::shared_ptr<DatabaseSession>& session, Rows rows);

/// An order by a text that is too long for an index, as an index gives it that holds the text's
/// beginning and whether there is more: rows whose texts go on behind the same beginning are next
/// to each other there, not yet in the order of what follows.
struct BeginningQuery {
  BoundStatement window;  ///< identifiers, and the beginning where the text goes on
  BoundStatement group;  ///< identifiers of those that go on behind one beginning, as in the window
  BoundStatement
      settled;  ///< those that go on, from one beginning to another, in their whole order
  bool descending = false;
};

/// What gives the identifiers of a keyset in order, without a limit, and how many of them count.
struct KeyQuery {
  BoundStatement keys;
  std::optional<int64_t> top;
  std::optional<BeginningQuery> beginning;  ///< gives the same for a part of the list
};

/// For OpenKeyset and OpenForAdding, which know what the table is like; without a query there are
/// no rows but new ones.
std::shared_ptr<Recordset> MakeKeyset(std::shared_ptr<DatabaseSession> session, std::string table,
                                      std::vector<Column> columns, std::optional<size_t> key,
                                      std::optional<KeyQuery> query);

namespace recordset {

[[noreturn]] void Fail(const std::string& what,
                       DatabaseError::Kind kind = DatabaseError::Kind::kOther);
/// Fails where there is no column of that name, in any case.
size_t FindColumn(const std::vector<Column>& columns, std::string_view name);
/// Name as the catalogue gives it, in a form that no engine takes for a word of its own.
std::string Quoted(const std::string& name);

}  // namespace recordset

}  // namespace korvane
