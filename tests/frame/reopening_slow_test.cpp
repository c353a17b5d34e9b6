// Connections that a server ends, deadlocks and locks waited for in vain: what is done again, and
// what is reported. Each claim on PostgreSQL and MariaDB, directly and through ODBC.
#include <gtest/gtest.h>

#include <barrier>

#include "frame/recordset_contract.h"
#include "frame/retried_transaction.h"
#include "support/mariadb_server.h"
#include "support/postgres_server.h"

namespace korvane::test {
namespace {

/// One server for all tests of an engine, because it takes seconds to start.
struct OnPostgresql {
  static std::string Url() {
    static PostgresServer server;
    static const std::string url = server.MakeDatabase("mail");
    return url;
  }
  static constexpr const char* kSession = "SELECT pg_backend_pid()";
  static std::string End(int64_t session) {
    return "SELECT pg_terminate_backend(" + std::to_string(session) + ")";
  }
  static std::string Count(int64_t session) {
    return "SELECT COUNT(*) FROM pg_stat_activity WHERE pid=" + std::to_string(session);
  }
};
struct OnPostgresqlThroughOdbc : OnPostgresql {
  static std::string Url() {
    static PostgresServer server;
    static const std::string direct = server.MakeDatabase("mail");
    return server.OdbcUrl("mail");
  }
};
struct OnMariadb {
  static MariadbServer& Server() {
    static MariadbServer server;
    return server;
  }
  static std::string Url() {
    static const std::string url = Server().MakeDatabase("mail");
    return url;
  }
  static constexpr const char* kSession = "SELECT CONNECTION_ID()";
  static std::string End(int64_t session) { return "KILL " + std::to_string(session); }
  static std::string Count(int64_t session) {
    return "SELECT COUNT(*) FROM information_schema.PROCESSLIST WHERE ID=" +
           std::to_string(session);
  }
};

struct OnMariadbThroughOdbc : OnMariadb {
  static std::string Url() {
    static const std::string direct = Server().MakeDatabase("mail_through_odbc");
    return Server().OdbcUrl("mail_through_odbc");
  }
};

constexpr const char* kCount = "SELECT COUNT(*) FROM mail";
constexpr const char* kChange = "UPDATE mail SET dimensione=5 WHERE id_mail=1";

/// The server ends the session of a connection.
template <class Server>
void EndSession(Connection& connection, Connection& by) {
  const int64_t session = Number(FirstValue(connection, Server::kSession));
  by.Execute(Server::End(session));
  for (int i = 0; i < 1200 && Number(FirstValue(by, Server::Count(session))) != 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  // Its socket is closed a moment later.
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
}

template <class Server>
class Reopening : public testing::Test {
 protected:
  void End(Connection& connection) { EndSession<Server>(connection, *engine_.connection); }
  int64_t Rows() { return Number(FirstValue(*engine_.connection, kCount)); }
  int64_t Size(int32_t id) {
    return Number(FirstValue(*engine_.connection,
                             "SELECT dimensione FROM mail WHERE id_mail=" + std::to_string(id)));
  }

  Engine engine_{Server::Url()};
  Shared lost_ = engine_.Another();
};
using Servers =
    testing::Types<OnPostgresql, OnMariadb, OnPostgresqlThroughOdbc, OnMariadbThroughOdbc>;
TYPED_TEST_SUITE(Reopening, Servers);

TYPED_TEST(Reopening, ALostConnectionIsReopenedWhereNothingWasWritten) {
  this->End(*this->lost_);
  EXPECT_EQ(Number(FirstValue(*this->lost_, kCount)), 0);
  // Where a transaction begins.
  this->End(*this->lost_);
  {
    Transaction transaction(*this->lost_, Transaction::Kind::kAllocating);
    EXPECT_EQ(NextIdentifier(*this->lost_, "SELECT MAX(id_mail) FROM mail"), 1);
    // Inside it, before the first change and with it.
    this->End(*this->lost_);
    EXPECT_EQ(NextIdentifier(*this->lost_, "SELECT MAX(id_mail) FROM mail"), 1);
    this->End(*this->lost_);
    Add(*this->lost_, {.id = 1});
    transaction.Commit();
  }
  EXPECT_EQ(this->Rows(), 1);
  // Between the rows of a recordset.
  const auto row = this->lost_->Open(Row(1));
  this->End(*this->lost_);
  EXPECT_EQ(Number(row->Field("id_mail")), 1);
}

TYPED_TEST(Reopening, ALostConnectionIsReportedWhereSomethingWasWritten) {
  {
    Transaction transaction(*this->lost_);
    Add(*this->lost_, {.id = 1});
    this->End(*this->lost_);
    EXPECT_EQ(KindThrownBy([&] { Add(*this->lost_, {.id = 2}); }), Kind::kConnectionLost);
    // Nothing of a transaction goes on without its beginning.
    EXPECT_EQ(KindThrownBy([&] { this->lost_->Execute(kCount); }), Kind::kConnectionLost);
    EXPECT_EQ(KindThrownBy([&] { transaction.Commit(); }), Kind::kConnectionLost);
  }
  EXPECT_EQ(Number(FirstValue(*this->lost_, kCount)), 0);
  {
    Transaction transaction(*this->lost_);
    Add(*this->lost_, {.id = 3});
    transaction.Commit();
  }
  EXPECT_EQ(this->Rows(), 1);
}

TYPED_TEST(Reopening, AChangeWhoseAnswerNeverCameIsInDoubt) {
  Add(*this->engine_.connection, {.id = 1});
  this->lost_->Execute(kChange);
  this->End(*this->lost_);
  EXPECT_THROW(this->lost_->Execute(kChange), CommitInDoubt);
  this->lost_->Execute(kChange);
  EXPECT_EQ(this->Size(1), 5);
}

TYPED_TEST(Reopening, ALostTransactionIsDoneAgainFromItsBeginning) {
  int attempts = 0;
  RetriedTransaction(*this->lost_, Transaction::Kind::kAllocating, [&] {
    const int32_t id = NextIdentifier(*this->lost_, "SELECT MAX(id_mail) FROM mail");
    Add(*this->lost_, {.id = id});
    if (++attempts == 1) this->End(*this->lost_);
    Add(*this->lost_, {.id = id + 1});
  });
  EXPECT_EQ(attempts, 2);
  EXPECT_EQ(this->Rows(), 2);
}

TYPED_TEST(Reopening, AConnectionLostAtTheCommitIsInDoubtUntilItWasAskedAfter) {
  {
    Transaction transaction(*this->lost_);
    Add(*this->lost_, {.id = 1});
    this->End(*this->lost_);
    EXPECT_THROW(transaction.Commit(), CommitInDoubt);
  }
  int attempts = 0;
  int asked = 0;
  RetriedTransaction(
      *this->lost_, Transaction::Kind::kAllocating,
      [&] {
        Add(*this->lost_, {.id = 1});
        if (++attempts == 1) this->End(*this->lost_);
      },
      [&] {
        ++asked;
        return Number(FirstValue(*this->lost_, kCount)) == 1;
      });
  EXPECT_EQ(attempts, 2);
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(this->Rows(), 1);
}

TYPED_TEST(Reopening, ADeadlockIsRetried) {
  Add(*this->engine_.connection, {.id = 1});
  Add(*this->engine_.connection, {.id = 2});
  std::barrier both(2);
  std::atomic<int> attempts = 0;
  const auto work = [&](int32_t first, int32_t second) {
    const auto connection = this->engine_.Another();
    bool met = false;
    RetriedTransaction(*connection, Transaction::Kind::kPlain, [&] {
      ++attempts;
      const auto change = [&](int32_t id) {
        connection->Execute("UPDATE mail SET dimensione=dimensione+1 WHERE id_mail=" +
                            std::to_string(id));
      };
      change(first);
      if (!std::exchange(met, true)) both.arrive_and_wait();
      change(second);
    });
  };
  const int64_t before = this->Size(1);
  std::thread other(work, 2, 1);
  work(1, 2);
  other.join();
  EXPECT_EQ(attempts, 3);
  EXPECT_EQ(this->Size(1), before + 2);
  EXPECT_EQ(this->Size(2), before + 2);
}

template <class Server>
void ALockThatWasWaitedForInVain() {
  Engine engine(Server::Url());
  const Shared holds = engine.Another();
  const Shared impatient = engine.Another("timeout=1000");
  Add(*engine.connection, {.id = 1});
  auto holder = std::make_unique<Transaction>(*holds);
  holds->Execute(kChange);
  std::atomic<int> attempts = 0;
  std::thread later([&] {
    while (attempts < 2) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    holder->Commit();
    holder.reset();
  });
  RetriedTransaction(*impatient, Transaction::Kind::kPlain, [&] {
    ++attempts;
    impatient->Execute("UPDATE mail SET dimensione=7 WHERE id_mail=1");
  });
  later.join();
  EXPECT_GE(attempts, 2);
  EXPECT_EQ(Number(FirstValue(*engine.connection, "SELECT dimensione FROM mail")), 7);
}

// Through ODBC the time-out is the source's own.
TEST(ReopeningPostgresql, ALockThatWasWaitedForInVainIsWaitedForAgain) {
  ALockThatWasWaitedForInVain<OnPostgresql>();
}
TEST(ReopeningMariadb, ALockThatWasWaitedForInVainIsWaitedForAgain) {
  ALockThatWasWaitedForInVain<OnMariadb>();
}

TEST(ReopeningMariadb, ATransactionLostAfterALongSilenceIsDoneAgain) {
  Engine engine(OnMariadb::Url());
  const Shared lost = engine.Another();
  int attempts = 0;
  RetriedTransaction(*lost, Transaction::Kind::kAllocating, [&] {
    Add(*lost, {.id = 1});
    if (++attempts > 1) return;
    engine.connection->Execute(OnMariadb::End(Number(FirstValue(*lost, OnMariadb::kSession))));
    std::this_thread::sleep_for(kTransactionPatience + std::chrono::milliseconds(100));
    Add(*lost, {.id = 2});
  });
  EXPECT_EQ(attempts, 2);
  EXPECT_EQ(Number(FirstValue(*engine.connection, kCount)), 1);
}

TEST(ReopeningMariadb, AnAnswerThatTakesLongerThanSaidIsALostConnection) {
  Engine engine(OnMariadb::Url());
  const Shared limited = engine.Another("answer=1000");
  EXPECT_EQ(Number(FirstValue(*limited, "SELECT SLEEP(0.1)")), 0);
  EXPECT_EQ(KindThrownBy([&] { limited->Execute("SELECT SLEEP(5)"); }), Kind::kConnectionLost);
  EXPECT_EQ(Number(FirstValue(*limited, kCount)), 0);
  EXPECT_EQ(Number(FirstValue(*engine.connection, "SELECT SLEEP(2)")), 0);
}

TEST(ReopeningMariadb, WhereTheFirstServerOfTheListIsNotThereTheNextOneIs) {
  Engine engine(OnMariadb::Url());
  std::string url = OnMariadb::Url();
  url.replace(url.find("localhost"), 9, "127.0.0.1:1,localhost");
  const auto connection = OpenDatabase(url);
  Add(*connection, {.id = 1});
  EndSession<OnMariadb>(*connection, *engine.connection);
  EXPECT_EQ(Number(FirstValue(*connection, kCount)), 1);
}

TEST(ReopeningMariadb, AServerThatIsNotThereAtTheStartIsNotWaitedFor) {
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(KindThrownBy([] { OpenDatabase("mysql://ada@127.0.0.1:1,127.0.0.1:2/mail"); }),
            Kind::kOther);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
}

}  // namespace
}  // namespace korvane::test
