// Connections to the engines that OpenDatabase knows.
#include "frame/database.h"

#include <optional>

#include "frame/database_url.h"
#include "frame/database_values.h"
#include "frame/keyset_recordset.h"

namespace korvane {

namespace {

class EngineConnection final : public Connection {
 public:
  EngineConnection(std::unique_ptr<Driver> driver, bool month_first)
      : session_(std::make_shared<DatabaseSession>(std::move(driver), month_first)) {}

  std::shared_ptr<Recordset> Execute(const std::string& statement) override {
    const BoundStatement bound = Translate(statement);
    return HoldRows(session_, session_->driver->Run(bound.text, bound.parameters));
  }

  std::shared_ptr<Recordset> Open(const std::string& statement) override {
    if (const auto table = StatementTranslator::BareTable(statement)) {
      return OpenForAdding(session_, *table);
    }
    if (const auto shape = session_->translator.TakeApart(statement)) {
      if (auto recordset = OpenKeyset(session_, *shape)) return recordset;
    }
    return Execute(statement);
  }

  void Begin() override {
    CheckIdle();
    session_->driver->Begin();
    in_transaction_ = true;
  }
  void BeginAllocating() override {
    CheckIdle();
    session_->driver->BeginAllocating();
    in_transaction_ = true;
  }
  void Commit() override {
    if (!in_transaction_) Fail("no transaction was begun");
    session_->driver->Commit();
    in_transaction_ = false;
  }
  void Rollback() override {
    if (!in_transaction_) return;
    in_transaction_ = false;
    session_->driver->Rollback();
  }
  bool HasTransactions() const override { return true; }
  bool Reopens() const override { return session_->driver->Reopens(); }

  void BeginReading() override {
    CheckIdle();
    session_->driver->BeginReading();
    reading_ = true;
  }
  void EndReading() override {
    if (!reading_) return;
    reading_ = false;
    session_->driver->EndReading();
  }

  bool HasTable(std::string_view name) override {
    return !session_->ColumnsOf(std::string(name)).empty();
  }

 private:
  BoundStatement Translate(const std::string& statement) {
    static constexpr std::string_view kCounted[] = {"id_utente", "id_cartella", "Cancellata"};
    static constexpr CountTable kBoxes{"mail", kCounted, "conteggi_cartelle", "numero"};
    auto count = session_->translator.TakeKeptCount(statement, kBoxes);
    if (count) {
      if (!keeps_counts_) keeps_counts_ = HasTable(kBoxes.counts);
      if (*keeps_counts_) return *std::move(count);
    }
    return session_->translator.Translate(statement);
  }

  [[noreturn]] static void Fail(const char* what) {
    throw DatabaseError(DatabaseError::Kind::kOther, std::string("connection: ") + what);
  }
  // One engine would commit the first transaction, one would go on in it and one would refuse.
  void CheckIdle() const {
    if (in_transaction_ || reading_) Fail("a transaction is open");
  }

  std::shared_ptr<DatabaseSession> session_;
  bool in_transaction_ = false;
  bool reading_ = false;
  std::optional<bool> keeps_counts_;
};

}  // namespace

std::unique_ptr<Driver> OpenDriver(const DatabaseUrl& url, bool create) {
  if (url.servers.size() > 1) {
    for (size_t i = 0; i + 1 < url.servers.size(); ++i) {
      try {
        return OpenDriver(url.AtServer(i), create);
      } catch (const DatabaseError&) {
        // The last one says what is wrong.
      }
    }
    return OpenDriver(url.AtServer(url.servers.size() - 1), create);
  }
  if (!url.odbc.empty()) return OpenOdbc(url, create);
  switch (url.dialect) {
    case Dialect::kSqlite:
      return OpenSqlite(url, create);
    case Dialect::kPostgresql:
      return OpenPostgresql(url);
    case Dialect::kMariadb:
      break;
  }
  return OpenMariadb(url);
}

std::shared_ptr<Connection> ConnectionOver(std::unique_ptr<Driver> driver, bool month_first) {
  return std::make_shared<EngineConnection>(std::move(driver), month_first);
}

std::shared_ptr<Connection> OpenDatabase(const std::string& text) {
  const DatabaseUrl url = DatabaseUrl::Parse(text);
  return ConnectionOver(OpenReopeningDriver(url), url.MonthFirst());
}

}  // namespace korvane
