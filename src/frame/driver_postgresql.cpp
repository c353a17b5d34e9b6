// PostgreSQL through libpq, in text format: the engine infers every parameter's type from its
// place.
#include <libpq-fe.h>

#include <algorithm>
#include <charconv>

#include "frame/database_url.h"
#include "frame/dialect_sql.h"
#include "frame/driver.h"

namespace korvane {

namespace {

using Kind = DatabaseError::Kind;

struct ClearResult {
  void operator()(PGresult* result) const { PQclear(result); }
};
using Result = std::unique_ptr<PGresult, ClearResult>;

Kind KindOf(std::string_view state) {
  if (state == "23505") return Kind::kDuplicateKey;
  if (state == "55P03" || state == "53300") return Kind::kBusy;
  if (state == "40P01" || state == "40001") return Kind::kDeadlock;
  if (state == "25006") return Kind::kUnavailable;  // it became a standby
  if (state.starts_with("08") || state.starts_with("57P")) return Kind::kConnectionLost;
  return Kind::kOther;
}

/// By the numbers that the types have in every database's catalogue.
ColumnKind KindOfType(Oid type) {
  switch (type) {
    case 16:
      return ColumnKind::kBoolean;
    case 20:
    case 21:
    case 23:
      return ColumnKind::kInteger;
    case 700:
    case 701:
    case 1700:
      return ColumnKind::kReal;
    case 1082:
    case 1114:
    case 1184:
      return ColumnKind::kDate;
    default:
      return ColumnKind::kText;
  }
}

class PostgresqlDriver final : public Driver {
 public:
  explicit PostgresqlDriver(const DatabaseUrl& url) : url_(url) {
    const std::string lock_timeout = std::to_string(std::max(url.BusyTimeout(), 1));
    // A statement that is kept would keep the plan of its first runs: what was planned for an empty
    // table reads the whole of a full one.
    const std::string settings =
        "-c datestyle=ISO -c standard_conforming_strings=on -c plan_cache_mode=force_custom_plan"
        " -c lock_timeout=" +
        lock_timeout;
    const std::string port = url.port > 0 ? std::to_string(url.port) : std::string();
    std::vector<const char*> names;
    std::vector<const char*> values;
    const auto set = [&](const char* name, const std::string& value) {
      if (value.empty()) return;
      names.push_back(name);
      values.push_back(value.c_str());
    };
    // A host in the options is the folder of a local socket.
    const std::string socket = url.Option("host");
    const std::string ssl_mode = url.Option("sslmode");
    const std::string ssl_root = url.Option("sslrootcert");
    const std::string encoding = "UTF8";
    const std::string wait = std::to_string(url.ConnectSeconds());
    // A server whose machine is gone says nothing at all: it counts as lost after half a minute.
    const std::string idle = "10";
    const std::string interval = "5";
    const std::string count = "4";
    const std::string silence = "30000";
    // Among several, a standby is not the one.
    const std::string attributes = url.among_several ? "read-write" : "";
    set("host", socket.empty() ? url.host : socket);
    set("port", port);
    set("user", url.user);
    set("password", url.password);
    set("dbname", url.name);
    set("client_encoding", encoding);
    set("connect_timeout", wait);
    set("keepalives_idle", idle);
    set("keepalives_interval", interval);
    set("keepalives_count", count);
    set("tcp_user_timeout", silence);
    set("target_session_attrs", attributes);
    set("options", settings);
    set("sslmode", ssl_mode);
    set("sslrootcert", ssl_root);
    names.push_back(nullptr);
    values.push_back(nullptr);
    connection_.reset(PQconnectdbParams(names.data(), values.data(), 0));
    if (!connection_ || PQstatus(connection_.get()) != CONNECTION_OK) {
      const char* what = connection_ ? PQerrorMessage(connection_.get()) : "out of memory";
      throw DatabaseError(Kind::kOther, url.WithoutPassword(std::string("postgresql: ") + what));
    }
    PQsetNoticeProcessor(
        connection_.get(), [](void*, const char*) {}, nullptr);
  }

  Dialect dialect() const override { return Dialect::kPostgresql; }
  bool NumbersParameters() const override { return true; }

  Rows Run(const std::string& text, std::span<const Parameter> parameters) override {
    std::string* kept = statements_.Find(text);
    const std::string name = kept ? *kept : Prepare(text);
    std::vector<const char*> values;
    values.reserve(parameters.size());
    for (const Parameter& parameter : parameters) {
      const bool boolean = parameter.kind == ColumnKind::kBoolean;
      values.push_back(!parameter.value ? nullptr
                       : !boolean       ? parameter.value->c_str()
                                        : (*parameter.value == "0" ? "f" : "t"));
    }
    const Result result(PQexecPrepared(connection_.get(), name.c_str(),
                                       static_cast<int>(values.size()), values.data(), nullptr,
                                       nullptr, 0));
    Check(result.get());
    return Take(result.get());
  }

  void RunScript(const std::string& script) override {
    Check(Result(PQexec(connection_.get(), script.c_str())).get());
  }

  void Begin() override { Command("BEGIN"); }
  void BeginAllocating() override {
    Begin();
    try {
      Command(kPostgresqlAllocationLock);
    } catch (const DatabaseError&) {
      Rollback();
      throw;
    }
  }
  void Commit() override {
    const Result result(PQexec(connection_.get(), "COMMIT"));
    Check(result.get());
    // After a fault the engine answers COMMIT by rolling back, and calls that a success.
    if (std::string_view(PQcmdStatus(result.get())) != "COMMIT") {
      throw DatabaseError(Kind::kOther, "postgresql: the transaction was rolled back");
    }
  }
  void Rollback() override {
    if (PQtransactionStatus(connection_.get()) != PQTRANS_IDLE) Command("ROLLBACK");
  }

 private:
  struct CloseConnection {
    void operator()(PGconn* connection) const { PQfinish(connection); }
  };

  void Command(const char* text) { Check(Result(PQexec(connection_.get(), text)).get()); }

  void Check(const PGresult* result) const {
    const ExecStatusType status = PQresultStatus(result);
    if (status == PGRES_TUPLES_OK || status == PGRES_COMMAND_OK) return;
    const char* state = PQresultErrorField(result, PG_DIAG_SQLSTATE);
    const char* message = PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
    Kind kind = KindOf(state ? state : "");
    if (PQstatus(connection_.get()) != CONNECTION_OK) kind = Kind::kConnectionLost;
    if (!message) message = PQerrorMessage(connection_.get());
    throw DatabaseError(kind, url_.WithoutPassword(std::string("postgresql: ") + message));
  }

  std::string Prepare(const std::string& text) {
    const std::string name = "k" + std::to_string(++prepared_);
    Check(Result(PQprepare(connection_.get(), name.c_str(), text.c_str(), 0, nullptr)).get());
    return statements_.Insert(text, name);
  }

  static Rows Take(const PGresult* result) {
    Rows rows;
    const int columns = PQnfields(result);
    for (int i = 0; i < columns; ++i) {
      Column column;
      column.name = PQfname(result, i);
      column.kind = KindOfType(PQftype(result, i));
      rows.columns.push_back(std::move(column));
    }
    const int count = PQntuples(result);
    rows.cells.reserve(static_cast<size_t>(count) * static_cast<size_t>(columns));
    for (int row = 0; row < count; ++row) {
      for (int i = 0; i < columns; ++i) {
        if (PQgetisnull(result, row, i)) {
          rows.cells.emplace_back();
        } else if (rows.columns[static_cast<size_t>(i)].kind == ColumnKind::kBoolean) {
          rows.cells.emplace_back(*PQgetvalue(result, row, i) == 't' ? "-1" : "0");
        } else {
          rows.cells.emplace_back(std::in_place, PQgetvalue(result, row, i),
                                  static_cast<size_t>(PQgetlength(result, row, i)));
        }
      }
    }
    const std::string_view affected = PQcmdTuples(const_cast<PGresult*>(result));
    std::from_chars(affected.data(), affected.data() + affected.size(), rows.affected);
    return rows;
  }

  DatabaseUrl url_;
  std::unique_ptr<PGconn, CloseConnection> connection_;
  uint64_t prepared_ = 0;
  StatementCache<std::string> statements_{[this](std::string& name) {
    if (PQstatus(connection_.get()) != CONNECTION_OK) return;
    Result(PQexec(connection_.get(), ("DEALLOCATE " + name).c_str()));
  }};
};

}  // namespace

std::unique_ptr<Driver> OpenPostgresql(const DatabaseUrl& url) {
  return std::make_unique<PostgresqlDriver>(url);
}

}  // namespace korvane
