// SQLite, the embedded engine: one file, write-ahead log, full synchronisation, a busy time-out.
#include <sqlite3.h>

#include <charconv>
#include <chrono>
#include <random>
#include <thread>

#include "frame/database_url.h"
#include "frame/dialect_sql.h"
#include "frame/driver.h"

#ifndef _WIN32
#include <fcntl.h>
#include <unistd.h>
#endif

namespace korvane {

namespace {

DatabaseError::Kind KindOf(int code) {
  switch (code) {
    case SQLITE_CONSTRAINT_PRIMARYKEY:
    case SQLITE_CONSTRAINT_ROWID:
    case SQLITE_CONSTRAINT_UNIQUE:
      return DatabaseError::Kind::kDuplicateKey;
    default:
      break;
  }
  switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return DatabaseError::Kind::kBusy;
    default:
      return DatabaseError::Kind::kOther;
  }
}

class SqliteDriver final : public Driver {
 public:
  SqliteDriver(const DatabaseUrl& url, bool create) {
#ifndef _WIN32
    if (create) {
      // Made by us first: the engine would let the mask of the process decide who reads mail.
      const int file = ::open(url.name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
      if (file >= 0) ::close(file);
    }
#endif
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE |
                      (create ? SQLITE_OPEN_CREATE : 0);
    if (sqlite3_open_v2(url.name.c_str(), &database_, flags, nullptr) != SQLITE_OK) {
      const std::string what = database_ ? sqlite3_errmsg(database_) : "out of memory";
      sqlite3_close(database_);
      throw DatabaseError(DatabaseError::Kind::kOther, "sqlite: " + what + ": " + url.name);
    }
    try {
      busy_timeout_ = std::chrono::milliseconds(url.BusyTimeout());
      sqlite3_busy_handler(database_, &SqliteDriver::WaitForOthers, this);
      Configure();
    } catch (...) {
      statements_.Clear();
      sqlite3_close(database_);
      throw;
    }
  }

  ~SqliteDriver() override {
    statements_.Clear();
    sqlite3_close(database_);
  }

  Dialect dialect() const override { return Dialect::kSqlite; }

  Rows Run(const std::string& text, std::span<const Parameter> parameters) override {
    sqlite3_stmt** kept = statements_.Find(text);
    sqlite3_stmt* statement = kept ? *kept : statements_.Insert(text, Prepare(text));
    const Reset reset{statement};
    for (size_t i = 0; i < parameters.size(); ++i) {
      Bind(statement, static_cast<int>(i + 1), parameters[i]);
    }
    Rows rows;
    const int columns = sqlite3_column_count(statement);
    for (int i = 0; i < columns; ++i) {
      Column column;
      column.name = sqlite3_column_name(statement, i);
      const char* declared = sqlite3_column_decltype(statement, i);
      if (declared) column.kind = SqliteColumnKind(column.name, declared);
      rows.columns.push_back(std::move(column));
    }
    int code = sqlite3_step(statement);
    if (code == SQLITE_ROW) NameComputedKinds(statement, rows.columns);
    for (; code == SQLITE_ROW; code = sqlite3_step(statement)) {
      for (int i = 0; i < columns; ++i) {
        if (sqlite3_column_type(statement, i) == SQLITE_NULL) {
          rows.cells.emplace_back();
          continue;
        }
        // In this order: the text of a number is made before its length is taken.
        const auto* cell_text = reinterpret_cast<const char*>(sqlite3_column_text(statement, i));
        const auto length = static_cast<size_t>(sqlite3_column_bytes(statement, i));
        rows.cells.emplace_back(std::in_place, cell_text ? cell_text : "", length);
      }
    }
    if (code != SQLITE_DONE) Throw();
    if (columns == 0) rows.affected = sqlite3_changes64(database_);
    return rows;
  }

  void RunScript(const std::string& script) override {
    if (sqlite3_exec(database_, script.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) Throw();
  }

  // Every transaction here writes, so it takes the writer's lock at once: one that read first would
  // fail, without waiting, where somebody else wrote in between.
  void Begin() override { Run("BEGIN IMMEDIATE", {}); }
  void BeginAllocating() override { Begin(); }
  void Commit() override { Run("COMMIT", {}); }
  void Rollback() override {
    // A serious fault has already rolled back.
    if (sqlite3_get_autocommit(database_) == 0) Run("ROLLBACK", {});
  }
  // Takes the reader's lock with the first statement and keeps it.
  void BeginReading() override { Run("BEGIN", {}); }
  void EndReading() override { Rollback(); }

 private:
  struct Reset {
    sqlite3_stmt* statement;
    ~Reset() {
      sqlite3_reset(statement);
      sqlite3_clear_bindings(statement);
    }
  };

  /// Short pauses of changing length: the engine's own grow to a tenth of a second, and among
  /// several processes that write without a break the one that sleeps longest would never find it
  /// free.
  static int WaitForOthers(void* driver, int before) {
    auto* self = static_cast<SqliteDriver*>(driver);
    const auto now = std::chrono::steady_clock::now();
    if (before == 0) self->waits_until_ = now + self->busy_timeout_;
    if (now >= self->waits_until_) return 0;
    std::this_thread::sleep_for(std::chrono::microseconds(500 + self->pauses_() % 4000));
    return 1;
  }

  [[noreturn]] void Throw() const {
    throw DatabaseError(KindOf(sqlite3_extended_errcode(database_)),
                        std::string("sqlite: ") + sqlite3_errmsg(database_));
  }

  void Configure() {
    // The log stays with the file once it is set. A file that cannot be written keeps what it has;
    // one that is no database is refused here.
    try {
      Run("PRAGMA journal_mode=WAL", {});
    } catch (const DatabaseError&) {
      if (sqlite3_errcode(database_) != SQLITE_READONLY) throw;
    }
    Run("PRAGMA synchronous=FULL", {});
    Run("PRAGMA foreign_keys=ON", {});
    // Otherwise each row that a trigger follows may cost a file of its own for the way back.
    Run("PRAGMA temp_store=MEMORY", {});
    // In KiB. The page cache grows to this only when a walk over a large box needs it.
    Run("PRAGMA cache_size=-16384", {});
  }

  sqlite3_stmt* Prepare(const std::string& text) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v3(database_, text.c_str(), static_cast<int>(text.size() + 1),
                                        SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK) Throw();
    if (!statement) throw DatabaseError(DatabaseError::Kind::kOther, "sqlite: empty statement");
    return statement;
  }

  void Bind(sqlite3_stmt* statement, int index, const Parameter& parameter) {
    int code = SQLITE_OK;
    if (!parameter.value) {
      code = sqlite3_bind_null(statement, index);
    } else if (parameter.kind == ColumnKind::kInteger || parameter.kind == ColumnKind::kBoolean) {
      int64_t number = 0;
      std::from_chars(parameter.value->data(), parameter.value->data() + parameter.value->size(),
                      number);
      code = sqlite3_bind_int64(statement, index, number);
    } else {
      code = sqlite3_bind_text64(statement, index, parameter.value->data(), parameter.value->size(),
                                 SQLITE_STATIC, SQLITE_UTF8);
    }
    if (code != SQLITE_OK) Throw();
  }

  /// A count or a maximum has no declared type; its first value tells.
  static void NameComputedKinds(sqlite3_stmt* statement, std::vector<Column>& columns) {
    for (int i = 0; i < static_cast<int>(columns.size()); ++i) {
      if (sqlite3_column_decltype(statement, i)) continue;
      const int type = sqlite3_column_type(statement, i);
      if (type == SQLITE_INTEGER) columns[static_cast<size_t>(i)].kind = ColumnKind::kInteger;
      if (type == SQLITE_FLOAT) columns[static_cast<size_t>(i)].kind = ColumnKind::kReal;
    }
  }

  sqlite3* database_ = nullptr;
  std::chrono::milliseconds busy_timeout_{};
  std::chrono::steady_clock::time_point waits_until_;
  std::minstd_rand pauses_{std::random_device{}()};
  StatementCache<sqlite3_stmt*> statements_{
      [](sqlite3_stmt*& statement) { sqlite3_finalize(statement); }};
};

}  // namespace

std::unique_ptr<Driver> OpenSqlite(const DatabaseUrl& url, bool create) {
  return std::make_unique<SqliteDriver>(url, create);
}

}  // namespace korvane
