// Compaction over a connection without transactions: by a plan that is on the disk before a row or
// a file is touched.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "maintenance/compaction_steps.h"
#include "message/renumbering_plan.h"
#include "support/compacted_store.h"
#include "support/watched_connection.h"

namespace korvane {
namespace {

using test::CompactedStore;
using test::WatchedConnection;

/// As a page's connection is: every statement stands by itself.
class PlainConnection : public WatchedConnection {
 public:
  using WatchedConnection::WatchedConnection;
  void Begin() override {}
  void BeginAllocating() override {}
  void Commit() override {}
  void Rollback() override {}
  bool HasTransactions() const override { return false; }
};

class PlannedCompaction : public testing::Test {
 protected:
  void SetUp() override { Prepare(store_); }
  static void Prepare(CompactedStore& store) {
    store.Fill(12);
    for (const int id : {1, 4, 5, 11}) store.Delete(id);
    store.Dead(kCompactionThreshold + 1);
  }
  /// Everything is there, and the next compaction leaves nothing of this one.
  static void ExpectPutRight(CompactedStore& store, const std::string& when) {
    store.ExpectNothingLost(when);
    EXPECT_FALSE(FileExists(BackupFilePath(store.messages_folder(), 7))) << when;
    // What was left before anything was touched lies about until the next compaction.
    store.Dead(kCompactionThreshold + 1);
    PlainConnection plain(store.connection());
    EXPECT_EQ(CompactMessageFile(plain, store.messages_folder(), 7), 0) << when;
    store.ExpectNothingLost(when);
    store.ExpectNoGaps();
    EXPECT_EQ(store.Count("Cancellata<>0"), 0) << when;
    EXPECT_TRUE(store.OnlyTheMessageFileIsThere()) << when;
    EXPECT_FALSE(FileExists(PlanFilePath(store.messages_folder(), 7))) << when;
  }
  /// A process that compacts and dies where `dies` says.
  static void Die(CompactedStore& store, const CompactionSteps& at_step,
                  const std::function<void(const std::string&)>& at_statement) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      PlainConnection plain(OpenDatabase(store.url()));
      plain.before = at_statement;
      CompactMessageFile(plain, store.messages_folder(), 7, at_step);
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(WEXITSTATUS(status), 42);
  }

  CompactedStore store_;
};

bool MovesARow(const std::string& step) {
  return step.starts_with("execute UPDATE mail SET body_scaricato=");
}

TEST_F(PlannedCompaction, AConnectionWithoutTransactionsIsCompactedToo) {
  PlainConnection plain(store_.connection());
  EXPECT_EQ(CompactMessageFile(plain, store_.messages_folder(), 7), 0);
  store_.ExpectNothingLost();
  store_.ExpectNoGaps();
  EXPECT_EQ(store_.Count("Cancellata<>0"), 0);
  ExpectPutRight(store_, "afterwards");
}

TEST_F(PlannedCompaction, AProcessThatDiesAtAnyStepLosesNothing) {
  for (const char* step : {"copied", "read back", "plan written", "backup made", "renamed",
                           "rows deleted", "rows changed"}) {
    CompactedStore store;
    Prepare(store);
    Die(
        store,
        [&](const char* at) {
          if (std::string(step) == at) _exit(42);
        },
        [](const std::string&) {});
    if (HasFatalFailure()) return;
    {
      PlainConnection plain(store.connection());
      const MessageFileLock lock(plain, *store.account());
      EXPECT_TRUE(lock.Held());
    }
    ExpectPutRight(store, step);
  }
}

TEST_F(PlannedCompaction, AProcessThatDiesBetweenTwoRowsLosesNothing) {
  for (const int row : {1, 3, 8}) {
    CompactedStore store;
    Prepare(store);
    int moved = 0;
    Die(
        store, [](const char*) {},
        [&](const std::string& step) {
          if (MovesARow(step) && ++moved == row) _exit(42);
        });
    if (HasFatalFailure()) return;
    {
      // Whatever connection the next one has.
      const MessageFileLock lock(*store.connection(), *store.account());
      EXPECT_TRUE(lock.Held());
    }
    ExpectPutRight(store, "row " + std::to_string(row));
  }
}

TEST_F(PlannedCompaction, AFaultAmongTheRowsIsRaisedAndPutRightAtOnce) {
  PlainConnection plain(store_.connection());
  int moved = 0;
  plain.before = [&](const std::string& step) {
    if (MovesARow(step) && ++moved == 3) {
      throw DatabaseError(DatabaseError::Kind::kOther, "made to fail");
    }
  };
  EXPECT_THROW(CompactMessageFile(plain, store_.messages_folder(), 7), DatabaseError);
  ExpectPutRight(store_, "after the fault");
}

TEST_F(PlannedCompaction, ADatabaseThatStaysAwayLeavesThePlanForTheNextOne) {
  PlainConnection plain(store_.connection());
  int moved = 0;
  plain.before = [&](const std::string& step) {
    if (MovesARow(step) && ++moved >= 3) {
      throw DatabaseError(DatabaseError::Kind::kConnectionLost, "gone");
    }
  };
  EXPECT_THROW(CompactMessageFile(plain, store_.messages_folder(), 7), DatabaseError);
  EXPECT_TRUE(FileExists(PlanFilePath(store_.messages_folder(), 7)));
  PlainConnection next(store_.connection());
  { const MessageFileLock lock(next, *store_.account()); }
  ExpectPutRight(store_, "the next one");
}

TEST_F(PlannedCompaction, AMessageDeletedWhileItIsCopiedIsSeen) {
  PlainConnection plain(store_.connection());
  bool deleted = false;
  EXPECT_EQ(CompactMessageFile(plain, store_.messages_folder(), 7,
                               [&](const char* step) {
                                 if (std::string(step) != "read back" || deleted) return;
                                 deleted = true;
                                 store_.Delete(6);
                               }),
            0);
  EXPECT_TRUE(deleted);
  store_.ExpectNothingLost();
  store_.ExpectNoGaps();
}

TEST_F(PlannedCompaction, APlanOfAnEarlierCompactionIsNotFollowed) {
  ASSERT_TRUE(WritePlan(store_.messages_folder(), 7, {{2, store_.Position(2), 999}}));
  EXPECT_THROW(CompactMessageFile(*store_.connection(), store_.messages_folder(), 7,
                                  [](const char* step) {
                                    if (std::string(step) == "renamed") {
                                      throw std::runtime_error("made to fail");
                                    }
                                  }),
               std::runtime_error);
  ExpectPutRight(store_, "an old plan");
}

TEST_F(PlannedCompaction, ADamagedPlanIsAFaultAndNoGuess) {
  const std::string before = store_.FileBytes();
  ASSERT_TRUE(WriteWholeFile(BackupFilePath(store_.messages_folder(), 7), before));
  for (const char* text : {"", "x", "2\n1 2 3\n", "1\n1 2\n", "-1\n", "1\n1 2 3", "1\n1 2 3 4\n"}) {
    ASSERT_TRUE(WriteWholeFile(PlanFilePath(store_.messages_folder(), 7), text));
    EXPECT_THROW(RecoverMessageFile(*store_.connection(), store_.messages_folder(), 7),
                 std::runtime_error)
        << text;
    EXPECT_EQ(store_.FileBytes(), before);
    EXPECT_TRUE(FileExists(BackupFilePath(store_.messages_folder(), 7)));
  }
}

}  // namespace
}  // namespace korvane
