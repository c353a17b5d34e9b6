// What the recordset layer needs of a database engine, and nothing more: run one statement with
// bound parameters, describe a table, and hold a transaction. One implementation for each client
// library; their headers are included nowhere else.
//
// Cells and parameters cross this interface as text in one form for every engine: integers in
// decimal, booleans "0" and "-1", dates "yyyy-mm-dd hh:mm:ss", text in UTF-8.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "database.h"

namespace korvane {

struct DatabaseUrl;

enum class Dialect { kSqlite, kPostgresql, kMariadb };

enum class ColumnKind { kInteger, kReal, kBoolean, kDate, kText };

/// A cell's text; nothing is NULL.
using Cell = std::optional<std::string>;

struct Column {
  std::string name;
  ColumnKind kind = ColumnKind::kText;
  bool key = false;        ///< part of the primary key; known of tables only
  size_t longest = 0;      ///< characters that a text column takes; 0 is no limit of its own
  bool generated = false;  ///< the engine makes its values from those of other columns
};

struct Parameter {
  ColumnKind kind = ColumnKind::kText;
  Cell value;
};

inline Parameter IntegerParameter(int64_t value) {
  return {ColumnKind::kInteger, std::to_string(value)};
}

/// The rows of one statement, row after row.
struct Rows {
  std::vector<Column> columns;
  std::vector<Cell> cells;
  int64_t affected = 0;  ///< rows that an UPDATE, DELETE or INSERT found
  size_t Count() const { return columns.empty() ? 0 : cells.size() / columns.size(); }
  const Cell* Row(size_t index) const { return cells.data() + index * columns.size(); }
};

class Driver {
 public:
  Driver() = default;
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;
  virtual ~Driver() = default;

  virtual Dialect dialect() const = 0;
  /// True when a statement's parameters are $1, $2 and so on; they are question marks otherwise.
  virtual bool NumbersParameters() const { return false; }
  /// Runs one statement. It is prepared once and kept.
  virtual Rows Run(const std::string& statement, std::span<const Parameter> parameters) = 0;
  Rows Run(const std::string& statement) { return Run(statement, {}); }
  /// Runs the statements of a script, separated by ";" at the end of a line.
  virtual void RunScript(const std::string& script) = 0;

  virtual void Begin() = 0;
  /// Begins, holding the one lock under which identifiers are made.
  virtual void BeginAllocating() = 0;
  virtual void Commit() = 0;
  virtual void Rollback() = 0;

  /// Statements until EndReading only read. Where each has to ask somebody else, two more to say so
  /// would cost more than they save.
  virtual void BeginReading() {}
  virtual void EndReading() {}

  /// See Connection::Reopens.
  virtual bool Reopens() const { return false; }
};

std::unique_ptr<Driver> OpenSqlite(const DatabaseUrl& url, bool create);
std::unique_ptr<Driver> OpenPostgresql(const DatabaseUrl& url);
std::unique_ptr<Driver> OpenMariadb(const DatabaseUrl& url);
std::unique_ptr<Driver> OpenOdbc(const DatabaseUrl& url, bool create);

/// The driver that a connection string asks for, over the first of its servers that answers.
/// `create` makes the file of an SQLite database.
std::unique_ptr<Driver> OpenDriver(const DatabaseUrl& url, bool create);
/// A driver over servers that may go away: it is opened again. An embedded engine's is as it is.
std::unique_ptr<Driver> OpenReopeningDriver(const DatabaseUrl& url);
/// The connection that the layers above see, over any driver.
std::shared_ptr<Connection> ConnectionOver(std::unique_ptr<Driver> driver, bool month_first);

/// Prepared statements by their text, the least recently used given up first.
template <class Handle>
class StatementCache {
 public:
  explicit StatementCache(std::function<void(Handle&)> release) : release_(std::move(release)) {}
  StatementCache(const StatementCache&) = delete;
  StatementCache& operator=(const StatementCache&) = delete;
  ~StatementCache() { Clear(); }

  Handle* Find(const std::string& statement) {
    const auto found = by_text_.find(statement);
    if (found == by_text_.end()) return nullptr;
    entries_.splice(entries_.begin(), entries_, found->second);
    return &entries_.front().second;
  }
  Handle& Insert(const std::string& statement, Handle handle) {
    if (entries_.size() >= kMost) {
      release_(entries_.back().second);
      by_text_.erase(entries_.back().first);
      entries_.pop_back();
    }
    entries_.emplace_front(statement, std::move(handle));
    by_text_.emplace(entries_.front().first, entries_.begin());
    return entries_.front().second;
  }
  void Clear() {
    for (auto& entry : entries_) release_(entry.second);
    by_text_.clear();
    entries_.clear();
  }

 private:
  static constexpr size_t kMost = 64;
  using Entries = std::list<std::pair<const std::string, Handle>>;
  std::function<void(Handle&)> release_;
  Entries entries_;
  std::unordered_map<std::string_view, typename Entries::iterator> by_text_;
};

}  // namespace korvane
