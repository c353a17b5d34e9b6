// How often and for how long something is tried again.
#include "frame/retried_transaction.h"

#include <gtest/gtest.h>

#include <thread>

namespace korvane::test {
namespace {

using std::chrono::milliseconds;
using Kind = DatabaseError::Kind;

TEST(Attempts, ThePatienceBeginsWithTheFirstFault) {
  Attempts attempts(milliseconds(300), 40);
  std::this_thread::sleep_for(milliseconds(350));
  EXPECT_TRUE(attempts.Next());
  std::this_thread::sleep_for(milliseconds(350));
  EXPECT_FALSE(attempts.Next());
}

TEST(Attempts, BehindAFaultThatWasWaitedForThePatienceBeganWithTheFirstAttempt) {
  Attempts attempts(milliseconds(300), 40);
  std::this_thread::sleep_for(milliseconds(350));
  EXPECT_FALSE(attempts.Next(true));
}

TEST(Attempts, AreNoMoreThanSaid) {
  Attempts attempts(std::chrono::hours(1), 3);
  EXPECT_TRUE(attempts.Next());
  EXPECT_TRUE(attempts.Next());
  EXPECT_FALSE(attempts.Next());
}

TEST(DatabaseError, ALockThatIsTakenWasWaitedForAndALostConnectionWasNot) {
  EXPECT_TRUE(DatabaseError(Kind::kBusy, "").Waited());
  EXPECT_FALSE(DatabaseError(Kind::kDeadlock, "").Waited());
  EXPECT_FALSE(DatabaseError(Kind::kConnectionLost, "").Waited());
  EXPECT_TRUE(DatabaseError(Kind::kConnectionLost, "no server was found in time", true).Waited());
}

/// A server of which only the faults matter.
class Nowhere final : public Connection {
 public:
  std::shared_ptr<Recordset> Execute(const std::string&) override { return nullptr; }
  std::shared_ptr<Recordset> Open(const std::string&) override { return nullptr; }
  bool Reopens() const override { return true; }
};

int AttemptsOf(const DatabaseError& fault) {
  Nowhere connection;
  int attempts = 0;
  RetriedTransaction(connection, Transaction::Kind::kPlain, [&] {
    if (++attempts == 1) throw fault;
  });
  return attempts;
}

TEST(RetriedTransaction, IsDoneAgainBehindEveryFaultThatARetryMayCure) {
  for (const Kind kind : {Kind::kDuplicateKey, Kind::kBusy, Kind::kDeadlock, Kind::kConnectionLost,
                          Kind::kUnavailable, Kind::kChanged}) {
    EXPECT_EQ(AttemptsOf({kind, ""}), 2) << static_cast<int>(kind);
  }
  EXPECT_THROW(AttemptsOf({Kind::kOther, ""}), DatabaseError);
}

}  // namespace
}  // namespace korvane::test
