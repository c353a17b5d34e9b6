// The recordset layer: what the store asks of a database, and nothing more.
//
// Everything above this header hands it the system's own statement texts, unchanged. OpenDatabase
// gives a connection to SQLite, PostgreSQL or MariaDB whose translator makes of them what the
// engine takes; a site may bring a connection of its own by deriving from Connection.
//
// Dates cross this boundary as text in the connection's date order (day first unless it says
// otherwise): "dd/mm/yyyy hh:mm:ss", padded when read, lenient when written. Booleans are read as
// bool and written as bool, 0 or -1.
//
// A fault of the database is thrown as DatabaseError. The classes above catch it and turn it into
// their error numbers.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "any.h"

namespace korvane {

class DatabaseError : public std::runtime_error {
 public:
  enum class Kind {
    kDuplicateKey,    ///< a row with this identifier exists
    kBusy,            ///< somebody else holds what is needed; a retry may help
    kDeadlock,        ///< the engine chose this transaction to give way; a retry helps
    kConnectionLost,  ///< the connection is gone; what was not committed is undone
    kUnavailable,     ///< the server takes no statements now: it stands by, or lost its cluster
    kChanged,         ///< the row was changed or deleted by somebody else since it was read
    kOther,
  };
  DatabaseError(Kind kind, const std::string& what, bool waited = false)
      : std::runtime_error(what), kind_(kind), waited_(waited || kind == Kind::kBusy) {}
  Kind kind() const { return kind_; }
  /// True when a lock or a server was already waited for as long as it may take.
  bool Waited() const { return waited_; }
  /// True when doing the whole transaction again may succeed.
  bool Retryable() const { return kind_ != Kind::kOther && kind_ != Kind::kConnectionLost; }

 private:
  Kind kind_;
  bool waited_;
};

/// The connection was lost while a commit was under way: it may have been made or not. What the
/// rows of the transaction point at has to stay.
class CommitInDoubt : public DatabaseError {
 public:
  explicit CommitInDoubt(const std::string& what) : DatabaseError(Kind::kConnectionLost, what) {}
};

/// Cursor and lock kinds, with the numbers that the ADO interface gives them.
enum class CursorLocation : int32_t { kServer = 2 };
enum class CursorType : int32_t { kDynamic = 2 };
enum class LockType : int32_t { kOptimistic = 3 };

/// Rows of one statement with a position, readable and changeable by column name. It starts on the
/// first row. Column names are compared in any case. Eof is true wherever there is no current row,
/// in front of the first one too. A row that has changes or is new can only be left after Update or
/// CancelUpdate. A row just added stays the current one until a move, and can be changed again.
class Recordset : public Object {
 public:
  virtual bool Eof() const = 0;
  virtual void MoveNext() = 0;
  virtual void MovePrevious() = 0;
  /// Moves by `rows`, backwards when negative.
  virtual void Move(int64_t rows) = 0;
  virtual void MoveLast() = 0;

  /// The cell of the current row, or what SetField last wrote there.
  virtual Any Field(std::string_view name) const = 0;
  /// The cell of the current row by its column's position, counted from 0: the columns of
  /// "SELECT MAX(...)" have no name that is the same on every engine.
  virtual Any FieldAt(size_t column) const {
    (void)column;
    throw DatabaseError(DatabaseError::Kind::kOther, "recordset: no columns by position");
  }
  /// Changes the cell of the current or new row; nothing is sent before Update.
  virtual void SetField(std::string_view name, const Any& value) = 0;

  /// Starts a new row; Update inserts it.
  virtual void AddNew() = 0;
  /// Sends the changes of the current row. Throws kChanged when the row is no longer as it was
  /// read, kDuplicateKey when a new row's identifier is taken.
  virtual void Update() = 0;
  /// Forgets the changes, or the new row.
  virtual void CancelUpdate() = 0;

  virtual void Close() = 0;
  virtual bool IsOpen() const = 0;
};

class Connection : public Object {
 public:
  /// Runs a statement directly; a query's rows come back read-only.
  virtual std::shared_ptr<Recordset> Execute(const std::string& statement) = 0;

  /// Opens an updatable recordset on a query, or on a table by its bare name ("mail"): that one is
  /// for adding only and reads nothing.
  virtual std::shared_ptr<Recordset> Open(const std::string& statement) = 0;

  /// Transactions, one at a time. A connection that has none (a site's own) leaves these as they
  /// are, and every Update stands by itself. After any DatabaseError inside one it can only be
  /// rolled back and done again from its beginning: some engines take nothing else.
  ///
  /// BeginAllocating also holds the window between asking for the greatest identifier and inserting
  /// the next one, against every other process, until the end of the transaction.
  virtual void Begin() {}
  virtual void BeginAllocating() { Begin(); }
  virtual void Commit() {}
  virtual void Rollback() {}
  virtual bool HasTransactions() const { return false; }

  /// True when a lost connection is opened again by the next statement, or the next transaction
  /// where something was written in this one. A lost transaction can then be done again.
  virtual bool Reopens() const { return false; }

  /// Which order the account's date texts have from here on, for a connection whose dates are no
  /// texts and can be written either way. One that has an order of its own keeps it.
  virtual void MonthFirst(bool month_first) { (void)month_first; }

  /// Between these, statements that read see one state where the engine gives that for less than it
  /// takes to look every time (SQLite); nothing may be written. See ReadScope.
  virtual void BeginReading() {}
  virtual void EndReading() {}

  /// True when the database has a table of that name.
  virtual bool HasTable(std::string_view name) {
    (void)name;
    return false;
  }
};

/// A page that reads with several statements: they take one lock instead of one each. Nothing may
/// be written, and no transaction begun, while it exists.
class ReadScope {
 public:
  explicit ReadScope(Connection& connection) : connection_(connection) {
    connection_.BeginReading();
  }
  ReadScope(const ReadScope&) = delete;
  ReadScope& operator=(const ReadScope&) = delete;
  ~ReadScope() {
    try {
      connection_.EndReading();
    } catch (const DatabaseError&) {
      // The connection is gone; there was nothing to keep.
    }
  }

 private:
  Connection& connection_;
};

/// Rolls back at the end of its scope unless Commit was called.
class Transaction {
 public:
  enum class Kind { kPlain, kAllocating };
  explicit Transaction(Connection& connection, Kind kind = Kind::kPlain) : connection_(connection) {
    kind == Kind::kAllocating ? connection_.BeginAllocating() : connection_.Begin();
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction() {
    if (!done_) try {
        connection_.Rollback();
      } catch (const DatabaseError&) {
        // The connection is gone, and with it everything that was not committed.
      }
  }
  /// Throws CommitInDoubt when nobody can say whether it was made.
  void Commit() {
    try {
      connection_.Commit();
    } catch (const DatabaseError& fault) {
      if (fault.kind() == DatabaseError::Kind::kConnectionLost) throw CommitInDoubt(fault.what());
      throw;
    }
    done_ = true;
  }

 private:
  Connection& connection_;
  bool done_ = false;
};

/// Opens a database by URL: "sqlite:///path/mail.db", "postgresql://user@host/name",
/// "mysql://user@host/name", with several hosts "mysql://user@one,other/name"; options follow "?",
/// among them "dates=month-first". Throws DatabaseError; its text never holds a password.
///
/// A server's connection that is lost is opened again, on the next host where its own does not
/// answer, and what was asked is asked again, as long as nothing was written in the transaction. A
/// change outside a transaction whose answer never came is CommitInDoubt.
std::shared_ptr<Connection> OpenDatabase(const std::string& url);

}  // namespace korvane
