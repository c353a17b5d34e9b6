// MariaDB and MySQL through libmariadb's prepared statements.
#include <errmsg.h>
#include <mysql.h>
#include <mysqld_error.h>

#ifdef __linux__
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#endif

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

#include "frame/database_url.h"
#include "frame/database_values.h"
#include "frame/dialect_sql.h"
#include "frame/driver.h"

namespace korvane {

namespace {

using Kind = DatabaseError::Kind;

Kind KindOf(unsigned int code) {
  switch (code) {
    case ER_DUP_ENTRY:
      return Kind::kDuplicateKey;
    case ER_LOCK_WAIT_TIMEOUT:
    case ER_CON_COUNT_ERROR:
      return Kind::kBusy;
    case ER_LOCK_DEADLOCK:
    case ER_CHECKREAD:
      return Kind::kDeadlock;
    case ER_UNKNOWN_COM_ERROR:  // how a node of a cluster says that it has lost the others
      return Kind::kUnavailable;
    case ER_ERROR_DURING_COMMIT:  // of a cluster: nobody knows what the others have of it
    case CR_SERVER_GONE_ERROR:
    case CR_SERVER_LOST:
    case CR_SERVER_LOST_EXTENDED:
    case CR_CONNECTION_ERROR:
    case CR_CONN_HOST_ERROR:
    case ER_SERVER_SHUTDOWN:
    case ER_CONNECTION_KILLED:
      return Kind::kConnectionLost;
    default:
      return Kind::kOther;
  }
}

ColumnKind KindOfField(const MYSQL_FIELD& field) {
  switch (field.type) {
    case MYSQL_TYPE_TINY:
      return field.length == 1 ? ColumnKind::kBoolean : ColumnKind::kInteger;
    case MYSQL_TYPE_SHORT:
    case MYSQL_TYPE_INT24:
    case MYSQL_TYPE_LONG:
    case MYSQL_TYPE_LONGLONG:
      return ColumnKind::kInteger;
    case MYSQL_TYPE_DECIMAL:
    case MYSQL_TYPE_NEWDECIMAL:  // a sum of whole numbers is one without decimals
      return field.decimals == 0 ? ColumnKind::kInteger : ColumnKind::kReal;
    case MYSQL_TYPE_FLOAT:
    case MYSQL_TYPE_DOUBLE:
      return ColumnKind::kReal;
    case MYSQL_TYPE_DATE:
    case MYSQL_TYPE_DATETIME:
    case MYSQL_TYPE_TIMESTAMP:
      return ColumnKind::kDate;
    default:
      return ColumnKind::kText;
  }
}

/// A server whose machine is gone says nothing at all: it counts as lost after half a minute.
void WatchConnection([[maybe_unused]] my_socket socket) {
#ifdef __linux__
  const auto set = [&](int level, int option, int value) {
    setsockopt(socket, level, option, &value, sizeof value);
  };
  set(SOL_SOCKET, SO_KEEPALIVE, 1);
  set(IPPROTO_TCP, TCP_KEEPIDLE, 10);
  set(IPPROTO_TCP, TCP_KEEPINTVL, 5);
  set(IPPROTO_TCP, TCP_KEEPCNT, 4);
  set(IPPROTO_TCP, TCP_USER_TIMEOUT, 30'000);
#endif
}

bool Reads(std::string_view statement) { return LowerName(statement.substr(0, 7)) == "select "; }

class MariadbDriver final : public Driver {
 public:
  explicit MariadbDriver(const DatabaseUrl& url)
      : url_(url), lock_seconds_(LockSeconds(url.BusyTimeout())) {
    connection_.reset(mysql_init(nullptr));
    if (!connection_) throw DatabaseError(Kind::kOther, "mariadb: out of memory");
    MYSQL* connection = connection_.get();
    const auto connect_timeout = static_cast<unsigned int>(url.ConnectSeconds());
    const unsigned int local_files = 0;
    const my_bool yes = 1;
    mysql_options(connection, MYSQL_OPT_CONNECT_TIMEOUT, &connect_timeout);
    if (url.answer_seconds > 0) {
      const auto answer_timeout = static_cast<unsigned int>(url.answer_seconds);
      mysql_options(connection, MYSQL_OPT_READ_TIMEOUT, &answer_timeout);
    }
    mysql_options(connection, MYSQL_OPT_LOCAL_INFILE, &local_files);
    mysql_options(connection, MYSQL_SET_CHARSET_NAME, "utf8mb4");
    const std::string ssl_mode = url.Option("sslmode");
    const std::string ssl_root = url.Option("sslrootcert");
    if (ssl_mode == "require" || ssl_mode.starts_with("verify")) {
      mysql_options(connection, MYSQL_OPT_SSL_ENFORCE, &yes);
    }
    if (ssl_mode.starts_with("verify")) {
      mysql_options(connection, MYSQL_OPT_SSL_VERIFY_SERVER_CERT, &yes);
    }
    if (!ssl_root.empty()) mysql_options(connection, MYSQL_OPT_SSL_CA, ssl_root.c_str());

    const std::string socket = url.Option("socket");
    // Found, not changed, rows are counted: a row that already was as it is to become was found.
    if (!mysql_real_connect(connection, url.host.empty() ? nullptr : url.host.c_str(),
                            url.user.empty() ? nullptr : url.user.c_str(), url.password.c_str(),
                            url.name.c_str(), static_cast<unsigned int>(url.port),
                            socket.empty() ? nullptr : socket.c_str(), CLIENT_FOUND_ROWS)) {
      // A server that is not there cannot be lost: nothing was begun.
      Kind kind = KindOf(mysql_errno(connection));
      if (kind == Kind::kConnectionLost) kind = Kind::kOther;
      throw DatabaseError(kind, Message(mysql_error(connection)));
    }
    for (const std::string& setting : SessionSettings(Dialect::kMariadb, url.BusyTimeout())) {
      Command(setting);
    }
    if (url.Option("causal-reads") != "off") {
      try {
        Command(kGaleraCausalReads);
      } catch (const DatabaseError& fault) {
        if (fault.kind() != Kind::kOther) throw;
        // A server that cannot be part of a cluster does not know the word.
      }
    }
    WatchConnection(mysql_get_socket(connection));
  }

  Dialect dialect() const override { return Dialect::kMariadb; }

  Rows Run(const std::string& text, std::span<const Parameter> parameters) override {
    CheckUsable();
    MYSQL_STMT** kept = statements_.Find(text);
    MYSQL_STMT* statement = kept ? *kept : statements_.Insert(text, Prepare(text));
    if (mysql_stmt_param_count(statement) != parameters.size()) {
      throw DatabaseError(Kind::kOther, "mariadb: wrong number of parameters");
    }
    std::vector<MYSQL_BIND> binds(parameters.size());
    std::vector<int64_t> numbers(parameters.size());
    for (size_t i = 0; i < parameters.size(); ++i) Bind(parameters[i], binds[i], numbers[i]);
    if (!binds.empty() && mysql_stmt_bind_param(statement, binds.data())) Throw(statement);
    if (mysql_stmt_execute(statement)) Throw(statement, Reads(text));
    Rows rows;
    rows.affected = static_cast<int64_t>(mysql_stmt_affected_rows(statement));
    if (mysql_stmt_field_count(statement) > 0) Take(statement, rows);
    return rows;
  }

  void RunScript(const std::string& script) override {
    // One statement at a time: the connection takes no more, so that nobody can add one.
    for (const std::string& statement : ScriptStatements(script)) Command(statement);
  }

  void Begin() override { Command("START TRANSACTION", true); }
  void BeginAllocating() override {
    const Parameter seconds = IntegerParameter(lock_seconds_);
    const Rows rows = Run(kMariadbTakeLock, std::span(&seconds, 1));
    if (rows.Count() != 1 || rows.Row(0)[0] != "1") {
      throw DatabaseError(Kind::kBusy, "mariadb: somebody else is adding rows");
    }
    holds_lock_ = true;
    try {
      Begin();
    } catch (const DatabaseError&) {
      GiveLock();
      throw;
    }
  }
  void Commit() override {
    Command("COMMIT");
    GiveLock();
  }
  void Rollback() override {
    Command("ROLLBACK");
    GiveLock();
  }

 private:
  struct CloseConnection {
    void operator()(MYSQL* connection) const { mysql_close(connection); }
  };

  std::string Message(const char* what) const {
    return url_.WithoutPassword(std::string("mariadb: ") + what);
  }
  [[noreturn]] void Throw(MYSQL_STMT* statement, bool reads = false) {
    Throw(mysql_stmt_errno(statement), mysql_stmt_error(statement), reads);
  }
  /// `error` is copied before anything else is asked.
  [[noreturn]] void Throw(unsigned int code, const std::string& error, bool reads) {
    if (const char* what = Unavailable(code, reads)) {
      throw DatabaseError(Kind::kUnavailable, Message((what + error).c_str()));
    }
    throw DatabaseError(KindOf(code), Message(error.c_str()));
  }
  /// Why a node of a cluster takes no statements; nothing where `code` is about something else.
  /// Before a statement that reads a node waits for what the others have committed, and calls a
  /// lock time-out what is not to be had: without its cluster at once, a moment before it shows
  /// that it is not ready, and with it when it is too far behind. Reading waits for nothing else.
  const char* Unavailable(unsigned int code, bool reads) {
    constexpr const char* kNoCluster = "this node has no cluster and takes no statements: ";
    if (code == ER_UNKNOWN_COM_ERROR) return kNoCluster;
    if (code != ER_LOCK_WAIT_TIMEOUT || !ShowsValue("VARIABLES LIKE 'wsrep_on'", "ON")) {
      return nullptr;
    }
    if (ShowsValue("STATUS LIKE 'wsrep_ready'", "OFF")) return kNoCluster;
    return reads ? "this node does not get what the others have committed: " : nullptr;
  }
  bool ShowsValue(const char* what, std::string_view value) {
    const std::string text = std::string("SHOW ") + what;
    if (mysql_real_query(connection_.get(), text.data(), text.size())) return false;
    struct FreeResult {
      void operator()(MYSQL_RES* result) const { mysql_free_result(result); }
    };
    const std::unique_ptr<MYSQL_RES, FreeResult> result(mysql_store_result(connection_.get()));
    char** const row = result ? mysql_fetch_row(result.get()) : nullptr;
    return row && row[1] && value == row[1];
  }
  void Command(const std::string& text, bool reads = false) {
    CheckUsable();
    if (mysql_real_query(connection_.get(), text.data(), text.size())) {
      Throw(mysql_errno(connection_.get()), mysql_error(connection_.get()), reads);
    }
    // A query's rows would otherwise block the next statement.
    mysql_free_result(mysql_store_result(connection_.get()));
  }
  void GiveLock() {
    if (!holds_lock_) return;
    holds_lock_ = false;
    try {
      Command(kMariadbGiveLock);
    } catch (const DatabaseError&) {
      // What was committed is, whatever became of the lock; that ends with the connection.
      broken_ = true;
    }
  }
  void CheckUsable() const {
    if (broken_) throw DatabaseError(Kind::kConnectionLost, "mariadb: the connection was given up");
  }

  MYSQL_STMT* Prepare(const std::string& text) {
    MYSQL_STMT* statement = mysql_stmt_init(connection_.get());
    if (!statement) throw DatabaseError(Kind::kOther, "mariadb: out of memory");
    const my_bool yes = 1;
    mysql_stmt_attr_set(statement, STMT_ATTR_UPDATE_MAX_LENGTH, &yes);
    if (mysql_stmt_prepare(statement, text.data(), text.size())) {
      const unsigned int code = mysql_stmt_errno(statement);
      const std::string what = mysql_stmt_error(statement);
      mysql_stmt_close(statement);
      Throw(code, what, Reads(text));
    }
    return statement;
  }

  static void Bind(const Parameter& parameter, MYSQL_BIND& bind, int64_t& number) {
    std::memset(&bind, 0, sizeof bind);
    if (!parameter.value) {
      bind.buffer_type = MYSQL_TYPE_NULL;
    } else if (parameter.kind == ColumnKind::kInteger || parameter.kind == ColumnKind::kBoolean) {
      std::from_chars(parameter.value->data(), parameter.value->data() + parameter.value->size(),
                      number);
      bind.buffer_type = MYSQL_TYPE_LONGLONG;
      bind.buffer = &number;
    } else {
      bind.buffer_type = MYSQL_TYPE_STRING;
      bind.buffer = const_cast<char*>(parameter.value->data());
      bind.buffer_length = static_cast<unsigned long>(parameter.value->size());
    }
  }

  void Take(MYSQL_STMT* statement, Rows& rows) {
    struct Free {
      MYSQL_STMT* statement;
      ~Free() { mysql_stmt_free_result(statement); }
    } const free{statement};
    if (mysql_stmt_store_result(statement)) Throw(statement);
    struct FreeFields {
      void operator()(MYSQL_RES* fields) const { mysql_free_result(fields); }
    };
    const std::unique_ptr<MYSQL_RES, FreeFields> fields(mysql_stmt_result_metadata(statement));
    if (!fields) Throw(statement);
    const unsigned int columns = mysql_num_fields(fields.get());
    std::vector<MYSQL_BIND> binds(columns);
    std::vector<std::string> buffers(columns);
    std::vector<unsigned long> lengths(columns);
    std::unique_ptr<my_bool[]> nulls(new my_bool[columns]());
    for (unsigned int i = 0; i < columns; ++i) {
      const MYSQL_FIELD* field = mysql_fetch_field_direct(fields.get(), i);
      Column column;
      column.name = field->name;
      column.kind = KindOfField(*field);
      rows.columns.push_back(std::move(column));
      // Numbers and dates come in binary and are turned into text by the client: they need the room
      // of their longest form, texts that of the longest in this result.
      buffers[i].resize(std::max<size_t>(field->max_length, 64));
      std::memset(&binds[i], 0, sizeof binds[i]);
      binds[i].buffer_type = MYSQL_TYPE_STRING;
      binds[i].buffer = buffers[i].data();
      binds[i].buffer_length = static_cast<unsigned long>(buffers[i].size());
      binds[i].length = &lengths[i];
      binds[i].is_null = &nulls[i];
    }
    if (mysql_stmt_bind_result(statement, binds.data())) Throw(statement);
    rows.cells.reserve(static_cast<size_t>(mysql_stmt_num_rows(statement)) * columns);
    int code = 0;
    while ((code = mysql_stmt_fetch(statement)) == 0) {
      for (unsigned int i = 0; i < columns; ++i) {
        if (nulls[i]) {
          rows.cells.emplace_back();
        } else {
          rows.cells.emplace_back(std::in_place, buffers[i].data(), lengths[i]);
        }
      }
    }
    if (code == MYSQL_DATA_TRUNCATED) {
      throw DatabaseError(Kind::kOther, "mariadb: a cell was longer than the engine said");
    }
    if (code != MYSQL_NO_DATA) Throw(statement);
  }

  DatabaseUrl url_;
  int64_t lock_seconds_;
  bool holds_lock_ = false;
  bool broken_ = false;
  std::unique_ptr<MYSQL, CloseConnection> connection_;
  StatementCache<MYSQL_STMT*> statements_{
      [](MYSQL_STMT*& statement) { mysql_stmt_close(statement); }};
};

}  // namespace

std::unique_ptr<Driver> OpenMariadb(const DatabaseUrl& url) {
  return std::make_unique<MariadbDriver>(url);
}

}  // namespace korvane
