// A driver over servers that may go away: a lost connection is opened again, on the next server of
// the list where its own does not answer or takes no statements.
//
// Done again is what leaves nothing behind when it was done already: a statement that reads; every
// statement of a transaction in which nothing was written yet, after a new beginning; a single
// statement that the engine undid because others were in the way. Reported is a transaction in
// which something was written, and a change outside of one whose answer never came.
#include <chrono>
#include <utility>

#include "frame/database_url.h"
#include "frame/database_values.h"
#include "frame/driver.h"
#include "frame/retried_transaction.h"

namespace korvane {

namespace {

using Kind = DatabaseError::Kind;

/// How long a server is looked for again, in the pauses of Attempts.
constexpr std::chrono::seconds kReopenPatience{10};
constexpr int kReopenAttempts = 1000;

bool Reads(std::string_view statement) { return LowerName(statement.substr(0, 7)) == "select "; }

class ReopeningDriver final : public Driver {
 public:
  ReopeningDriver(const DatabaseUrl& url, std::unique_ptr<Driver> open, size_t server)
      : url_(url),
        live_(std::move(open)),
        server_(server),
        dialect_(live_->dialect()),
        numbers_parameters_(live_->NumbersParameters()) {}

  Dialect dialect() const override { return dialect_; }
  bool NumbersParameters() const override { return numbers_parameters_; }
  bool Reopens() const override { return true; }

  Rows Run(const std::string& text, std::span<const Parameter> parameters) override {
    const bool reads = Reads(text);
    Rows rows = Steadily(reads, [&](Driver& driver) { return driver.Run(text, parameters); });
    written_ = written_ || !reads;
    return rows;
  }
  void RunScript(const std::string& script) override {
    Live().RunScript(script);
    written_ = true;
  }

  void Begin() override { Start(false); }
  void BeginAllocating() override { Start(true); }

  void Commit() override {
    if (lost_) FailLost("the connection was lost before");
    try {
      live_->Commit();
    } catch (const DatabaseError& fault) {
      if (!IsGone(fault)) throw;
      Drop(fault);
      if (written_) {
        lost_ = true;
        throw DatabaseError(Kind::kConnectionLost,
                            std::string(fault.what()) + " (during the commit)");
      }
    }
    in_transaction_ = false;
  }
  void Rollback() override {
    in_transaction_ = false;
    if (std::exchange(lost_, false) || !live_) return;
    try {
      live_->Rollback();
    } catch (const DatabaseError&) {
      // To let go of the connection undoes as much.
      live_.reset();
    }
  }

 private:
  static bool IsGone(const DatabaseError& fault) {
    return fault.kind() == Kind::kConnectionLost || fault.kind() == Kind::kUnavailable;
  }
  [[noreturn]] static void FailLost(const std::string& what) {
    throw DatabaseError(Kind::kConnectionLost,
                        what + " (what was not committed is undone; nothing was done again)");
  }

  void Drop(const DatabaseError& fault) {
    live_.reset();
    PassOver(fault);
  }
  /// A server that answers with a refusal would do so again.
  void PassOver(const DatabaseError& fault) {
    if (fault.kind() == Kind::kUnavailable && url_.servers.size() > 1) {
      server_ = (server_ + 1) % url_.servers.size();
    }
  }

  /// The connection, opened and the transaction begun again where that is due.
  Driver& Live() {
    if (live_) return *live_;
    std::unique_ptr<Driver> opened = Open();
    if (in_transaction_) allocating_ ? opened->BeginAllocating() : opened->Begin();
    live_ = std::move(opened);
    return *live_;
  }
  std::unique_ptr<Driver> Open() {
    if (url_.servers.size() < 2) return OpenDriver(url_, false);
    for (size_t tried = 1;; ++tried) {
      try {
        return OpenDriver(url_.AtServer(server_), false);
      } catch (const DatabaseError&) {
        server_ = (server_ + 1) % url_.servers.size();
        if (tried == url_.servers.size()) throw;
      }
    }
  }

  void Start(bool allocating) {
    written_ = lost_ = false;
    // The lock of a cluster holds for one node only, and its holder may hang there: then the
    // primary key tells who of two was first.
    const bool others = allocating && dialect_ == Dialect::kMariadb && url_.servers.size() > 1;
    size_t nodes = others ? url_.servers.size() : 1;
    while (true) {
      try {
        Steadily(true, [&](Driver& driver) {
          allocating ? driver.BeginAllocating() : driver.Begin();
          return Rows();
        });
        break;
      } catch (const DatabaseError& fault) {
        if (fault.kind() != Kind::kBusy || --nodes == 0) throw;
        live_.reset();
        server_ = (server_ + 1) % url_.servers.size();
      }
    }
    in_transaction_ = true;
    allocating_ = allocating;
  }

  template <class Work>
  Rows Steadily(bool repeatable, Work work) {
    if (lost_) FailLost("the connection was lost before");
    Attempts attempts(kReopenPatience, kReopenAttempts);
    while (true) {
      bool sent = false;
      try {
        Driver& driver = Live();
        sent = true;
        return work(driver);
      } catch (const DatabaseError& fault) {
        const std::string what = fault.what();
        if (!sent) {
          PassOver(fault);
          if (!attempts.Next(fault.Waited())) GiveUp(what);
        } else if (IsGone(fault)) {
          Drop(fault);
          if (in_transaction_ && written_) {
            lost_ = true;
            FailLost(what);
          }
          if (!in_transaction_ && !repeatable && fault.kind() == Kind::kConnectionLost) {
            throw CommitInDoubt(what + " (before the answer came: the change may have been made)");
          }
          if (!attempts.Next(fault.Waited())) GiveUp(what);
        } else if (in_transaction_ || fault.kind() != Kind::kDeadlock ||
                   !attempts.Next(fault.Waited())) {
          throw;
        }
      }
    }
  }

  [[noreturn]] void GiveUp(const std::string& what) {
    lost_ = in_transaction_;
    throw DatabaseError(Kind::kConnectionLost, what + " (no server took it in time)", true);
  }

  const DatabaseUrl url_;
  std::unique_ptr<Driver> live_;
  size_t server_;  ///< where the connection is, or is to be looked for first
  const Dialect dialect_;
  const bool numbers_parameters_;
  bool in_transaction_ = false;
  bool allocating_ = false;
  bool written_ = false;  ///< in this transaction
  bool lost_ = false;     ///< this transaction can only be rolled back
};

}  // namespace

std::unique_ptr<Driver> OpenReopeningDriver(const DatabaseUrl& given) {
  DatabaseUrl url = given;
  url.answer_seconds = url.AnswerSeconds();
  if (url.odbc.empty() && url.dialect == Dialect::kSqlite) return OpenDriver(url, false);
  // At first every server is tried once: a page is not to wait for a database that is not there.
  std::unique_ptr<Driver> open;
  size_t server = 0;
  while (true) {
    try {
      open = OpenDriver(url.servers.size() > 1 ? url.AtServer(server) : url, false);
      break;
    } catch (const DatabaseError&) {
      if (++server >= url.servers.size()) throw;
    }
  }
  if (open->dialect() == Dialect::kSqlite) return open;
  return std::make_unique<ReopeningDriver>(url, std::move(open), server);
}

}  // namespace korvane
