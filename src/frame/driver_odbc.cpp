// Any database behind ODBC whose engine is one of those that the translator knows: the source says
// which one it is.
//
// A driver's own settings stay as the source has them. How values cross is odbc_values.cpp.
#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <array>
#include <utility>

#include "frame/database_url.h"
#include "frame/database_values.h"
#include "frame/dialect_sql.h"
#include "frame/driver.h"
#include "frame/odbc_string.h"
#include "frame/odbc_values.h"

#ifndef _WIN32
#include <fcntl.h>
#include <unistd.h>
#endif

namespace korvane {

namespace {

using Kind = DatabaseError::Kind;

/// A handle of one kind, given back at its end. Null where it could not be made.
template <SQLSMALLINT kType>
class Handle {
 public:
  Handle() = default;
  explicit Handle(SQLHANDLE parent) {
    if (!SQL_SUCCEEDED(SQLAllocHandle(kType, parent, &handle_))) handle_ = nullptr;
  }
  Handle(Handle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~Handle() {
    if (handle_ != nullptr) SQLFreeHandle(kType, handle_);
  }
  SQLHANDLE get() const { return handle_; }

 private:
  SQLHANDLE handle_ = nullptr;
};

using Statement = Handle<SQL_HANDLE_STMT>;

SQLCHAR* Characters(const std::string& text) {
  return reinterpret_cast<SQLCHAR*>(const_cast<char*>(text.c_str()));
}
/// The interface takes numbers where it takes pointers.
SQLPOINTER NumberAttribute(SQLULEN number) {
  return reinterpret_cast<SQLPOINTER>(number);  // NOLINT(performance-no-int-to-ptr)
}

Kind KindOf(Dialect dialect, std::string_view state, int native, std::string_view message) {
  switch (dialect) {
    case Dialect::kSqlite:
      // The number is the plain result code; only the text tells one constraint from another.
      if ((native & 0xFF) == 19 && message.find("UNIQUE constraint") != std::string_view::npos) {
        return Kind::kDuplicateKey;
      }
      if ((native & 0xFF) == 5 || (native & 0xFF) == 6) return Kind::kBusy;
      return Kind::kOther;
    case Dialect::kPostgresql:
      if (state == "23505") return Kind::kDuplicateKey;
      if (state == "55P03" || state == "53300") return Kind::kBusy;
      if (state == "40P01" || state == "40001") return Kind::kDeadlock;
      if (state == "25006") return Kind::kUnavailable;
      if (state.starts_with("57P")) return Kind::kConnectionLost;
      break;
    case Dialect::kMariadb:
      if (native == 1062) return Kind::kDuplicateKey;
      if (native == 1205 || native == 1040) return Kind::kBusy;
      if (native == 1213 || native == 1020) return Kind::kDeadlock;
      if (native == 1047) return Kind::kUnavailable;
      if (native == 2006 || native == 2013 || native == 1053 || native == 1927 || native == 1180) {
        return Kind::kConnectionLost;
      }
      break;
  }
  return state.starts_with("08") ? Kind::kConnectionLost : Kind::kOther;
}

class OdbcDriver final : public Driver {
 public:
  OdbcDriver(const DatabaseUrl& url, bool create) : url_(url), environment_(nullptr) {
    if (!environment_.get()) throw DatabaseError(Kind::kOther, "odbc: out of memory");
    SQLSetEnvAttr(environment_.get(), SQL_ATTR_ODBC_VERSION, NumberAttribute(SQL_OV_ODBC3), 0);
    connection_ = Handle<SQL_HANDLE_DBC>(environment_.get());
    if (!connection_.get()) throw DatabaseError(Kind::kOther, "odbc: out of memory");
    constexpr SQLULEN kConnectSeconds = 10;
    SQLSetConnectAttr(connection_.get(), SQL_ATTR_LOGIN_TIMEOUT, NumberAttribute(kConnectSeconds),
                      0);
    const std::string source = Source(create);
    if (!SQL_SUCCEEDED(SQLDriverConnect(connection_.get(), nullptr, Characters(source), SQL_NTS,
                                        nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT))) {
      // A server that is not there cannot be lost: nothing was begun.
      throw DatabaseError(Kind::kOther, Diagnosis(SQL_HANDLE_DBC, connection_.get()).message);
    }
    connected_ = true;
    try {
      dialect_ = AskDialect();
      if (dialect_ == Dialect::kSqlite) {
        ConfigureSqlite();
      } else {
        for (const std::string& setting : SessionSettings(dialect_, url.BusyTimeout())) {
          Command(setting);
        }
      }
    } catch (...) {
      Disconnect();
      throw;
    }
  }

  ~OdbcDriver() override { Disconnect(); }

  Dialect dialect() const override { return dialect_; }

  Rows Run(const std::string& text, std::span<const Parameter> parameters) override {
    CheckTransaction();
    Statement* kept = statements_.Find(text);
    Statement& statement = kept ? *kept : statements_.Insert(text, Prepare(text));
    OdbcParameters bound(parameters.size());
    for (size_t i = 0; i < parameters.size(); ++i) {
      if (!bound.Bind(statement.get(), i, parameters[i], dialect_)) Throw(statement);
    }
    const SQLRETURN code = SQLExecute(statement.get());
    struct Reset {
      SQLHANDLE statement;
      ~Reset() {
        SQLFreeStmt(statement, SQL_CLOSE);
        SQLFreeStmt(statement, SQL_RESET_PARAMS);
      }
    } const reset{statement.get()};
    // A statement that found no row says so.
    if (code != SQL_NO_DATA && !SQL_SUCCEEDED(code)) Throw(statement);
    Rows rows;
    SQLSMALLINT columns = 0;
    if (!SQL_SUCCEEDED(SQLNumResultCols(statement.get(), &columns))) Throw(statement);
    if (columns > 0) {
      if (!reader_.Take(statement.get(), columns, dialect_, rows)) Throw(statement);
    } else {
      SQLLEN affected = 0;
      if (SQL_SUCCEEDED(SQLRowCount(statement.get(), &affected))) {
        rows.affected = std::max<int64_t>(affected, 0);
      }
    }
    return rows;
  }

  void RunScript(const std::string& script) override {
    for (const std::string& statement : ScriptStatements(script)) Command(statement);
  }

  void Begin() override {
    // This engine's transactions take the writer's lock at once; the interface has no word for it.
    if (dialect_ == Dialect::kSqlite) {
      Command("BEGIN IMMEDIATE");
    } else {
      SetAutocommit(SQL_AUTOCOMMIT_OFF);
    }
    in_transaction_ = true;
  }

  void BeginAllocating() override {
    if (dialect_ == Dialect::kMariadb) TakeMariadbLock();
    try {
      Begin();
      if (dialect_ == Dialect::kPostgresql) Command(kPostgresqlAllocationLock);
    } catch (const DatabaseError&) {
      Rollback();
      throw;
    }
  }

  void Commit() override {
    CheckTransaction();
    End(SQL_COMMIT);
    GiveMariadbLock();
  }

  void Rollback() override {
    if (in_transaction_) {
      // A serious fault has already rolled back on some engines, which refuse to do it twice.
      try {
        End(SQL_ROLLBACK);
      } catch (const DatabaseError&) {
        const bool over = dialect_ == Dialect::kSqlite;
        in_transaction_ = failed_ = false;
        if (!over) throw;
      }
    }
    GiveMariadbLock();
  }

 private:
  struct Fault {
    Kind kind;
    std::string message;
  };

  /// What the driver for SQLite takes beside what was given: it would wait for a hundred seconds,
  /// and make a missing file itself, for everybody to read. Others do not know the words. A source
  /// by its name (DSN) may be that driver's too.
  std::string Source(bool create) const {
    const OdbcString parts(url_.odbc);
    const std::string driver = LowerName(parts.Value("Driver"));
    const auto may_be = [&](std::string_view name) {
      return driver.empty() || driver.find(name) != std::string::npos;
    };
    std::string source = url_.odbc;
    // The driver for MariaDB counts rows that were found, not only those that changed.
    if ((may_be("maria") || may_be("mysql")) && parts.Value("Option").empty())
      source += ";Option=2";
    if (!may_be("sqlite")) return source;
    source += ";Timeout=" + std::to_string(url_.BusyTimeout());
    if (!create) return source + ";NoCreat=1";
#ifndef _WIN32
    const std::string path = parts.Value("Database");
    if (!driver.empty() && !path.empty()) {
      const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
      if (file >= 0) ::close(file);
    }
#endif
    return source;
  }

  Dialect AskDialect() const {
    std::array<char, 128> name{};
    SQLSMALLINT length = 0;
    SQLGetInfo(connection_.get(), SQL_DBMS_NAME, name.data(), name.size(), &length);
    const std::string lower = LowerName(name.data());
    if (lower.find("sqlite") != std::string::npos) return Dialect::kSqlite;
    if (lower.find("postgres") != std::string::npos) return Dialect::kPostgresql;
    if (lower.find("mariadb") != std::string::npos || lower.find("mysql") != std::string::npos) {
      return Dialect::kMariadb;
    }
    throw DatabaseError(Kind::kOther,
                        "odbc: the engine behind the source is not one of SQLite, "
                        "PostgreSQL and MariaDB");
  }

  void ConfigureSqlite() {
    try {
      Command("PRAGMA journal_mode=WAL");
    } catch (const DatabaseError& fault) {
      // A file that cannot be written keeps what it has.
      if (std::string_view(fault.what()).find("readonly") == std::string_view::npos) throw;
    }
    Command("PRAGMA synchronous=FULL");
    Command("PRAGMA foreign_keys=ON");
    Command("PRAGMA cache_size=-16384");
  }

  void Disconnect() {
    if (!connected_) return;
    connected_ = false;
    statements_.Clear();
    // A connection in a transaction is not let go.
    SQLEndTran(SQL_HANDLE_DBC, connection_.get(), SQL_ROLLBACK);
    SQLDisconnect(connection_.get());
  }

  Fault Diagnosis(SQLSMALLINT type, SQLHANDLE handle) const {
    Fault fault{Kind::kOther, "odbc:"};
    std::array<SQLCHAR, 6> state{};
    std::array<SQLCHAR, SQL_MAX_MESSAGE_LENGTH> message{};
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    constexpr SQLSMALLINT kMostRecords = 4;
    for (SQLSMALLINT i = 1; i <= kMostRecords; ++i) {
      if (!SQL_SUCCEEDED(SQLGetDiagRec(type, handle, i, state.data(), &native, message.data(),
                                       static_cast<SQLSMALLINT>(message.size()), &length))) {
        break;
      }
      const std::string_view code(reinterpret_cast<const char*>(state.data()));
      const std::string_view what(reinterpret_cast<const char*>(message.data()));
      if (fault.kind == Kind::kOther) fault.kind = KindOf(dialect_, code, native, what);
      fault.message.append(" [").append(code).append("] ").append(what);
    }
    SQLUINTEGER dead = SQL_CD_FALSE;
    if (connected_ &&
        SQL_SUCCEEDED(SQLGetConnectAttr(connection_.get(), SQL_ATTR_CONNECTION_DEAD, &dead,
                                        SQL_IS_UINTEGER, nullptr)) &&
        dead == SQL_CD_TRUE) {
      fault.kind = Kind::kConnectionLost;
    }
    fault.message = StorableText(url_.WithoutPassword(std::move(fault.message)));
    return fault;
  }

  [[noreturn]] void ThrowFault(SQLSMALLINT type, SQLHANDLE handle) {
    failed_ = in_transaction_;
    Fault fault = Diagnosis(type, handle);
    throw DatabaseError(fault.kind, fault.message);
  }
  [[noreturn]] void Throw(const Statement& statement) {
    ThrowFault(SQL_HANDLE_STMT, statement.get());
  }

  /// Behind a fault some drivers have rolled back already: what came next would stand by itself.
  void CheckTransaction() const {
    if (in_transaction_ && failed_) {
      throw DatabaseError(Kind::kOther, "odbc: the transaction can only be rolled back");
    }
  }

  /// Some drivers make none on a connection that is lost.
  Statement NewStatement() {
    Statement statement(connection_.get());
    if (!statement.get()) ThrowFault(SQL_HANDLE_DBC, connection_.get());
    return statement;
  }

  void Command(const std::string& text) {
    const Statement statement = NewStatement();
    const SQLRETURN code = SQLExecDirect(statement.get(), Characters(text), SQL_NTS);
    if (code != SQL_NO_DATA && !SQL_SUCCEEDED(code)) Throw(statement);
    // Read to the end: one engine runs a query only as far as its rows are asked for.
    SQLSMALLINT columns = 0;
    SQLNumResultCols(statement.get(), &columns);
    while (columns > 0) {
      const SQLRETURN fetched = SQLFetch(statement.get());
      if (fetched == SQL_NO_DATA) break;
      if (!SQL_SUCCEEDED(fetched)) Throw(statement);
    }
  }

  void SetAutocommit(SQLULEN value) {
    if (!SQL_SUCCEEDED(SQLSetConnectAttr(connection_.get(), SQL_ATTR_AUTOCOMMIT,
                                         NumberAttribute(value), SQL_IS_UINTEGER))) {
      ThrowFault(SQL_HANDLE_DBC, connection_.get());
    }
  }

  void End(SQLSMALLINT how) {
    if (dialect_ == Dialect::kSqlite) {
      Command(how == SQL_COMMIT ? "COMMIT" : "ROLLBACK");
    } else {
      if (!SQL_SUCCEEDED(SQLEndTran(SQL_HANDLE_DBC, connection_.get(), how))) {
        ThrowFault(SQL_HANDLE_DBC, connection_.get());
      }
      SetAutocommit(SQL_AUTOCOMMIT_ON);
    }
    in_transaction_ = failed_ = false;
  }

  void TakeMariadbLock() {
    const Parameter seconds = IntegerParameter(LockSeconds(url_.BusyTimeout()));
    const Rows rows = Run(kMariadbTakeLock, std::span(&seconds, 1));
    if (rows.Count() != 1 || rows.Row(0)[0] != "1") {
      throw DatabaseError(Kind::kBusy, "odbc: somebody else is adding rows");
    }
    holds_lock_ = true;
  }
  void GiveMariadbLock() {
    if (std::exchange(holds_lock_, false)) Command(kMariadbGiveLock);
  }

  Statement Prepare(const std::string& text) {
    // Not every engine calls that a fault.
    if (text.empty()) throw DatabaseError(Kind::kOther, "odbc: empty statement");
    Statement statement = NewStatement();
    if (!SQL_SUCCEEDED(SQLPrepare(statement.get(), Characters(text), SQL_NTS))) Throw(statement);
    return statement;
  }

  DatabaseUrl url_;
  Dialect dialect_ = Dialect::kSqlite;
  bool connected_ = false;
  bool in_transaction_ = false;
  bool failed_ = false;  ///< a statement of this transaction did
  bool holds_lock_ = false;
  OdbcRowReader reader_;
  Handle<SQL_HANDLE_ENV> environment_;
  Handle<SQL_HANDLE_DBC> connection_;
  StatementCache<Statement> statements_{
      [](Statement& statement) { const Statement gone(std::move(statement)); }};
};

}  // namespace

std::unique_ptr<Driver> OpenOdbc(const DatabaseUrl& url, bool create) {
  return std::make_unique<OdbcDriver>(url, create);
}

}  // namespace korvane
