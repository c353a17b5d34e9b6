// A compaction that is interrupted: by a fault, by the death of its process, at every step. Whoever
// takes the lock next finds every message.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "maintenance/compaction_steps.h"
#include "maintenance/late_commit.h"
#include "support/compacted_store.h"
#include "support/watched_connection.h"

namespace korvane {
namespace {

using test::CompactedStore;
using test::WatchedConnection;

const char* const kSteps[] = {"copied",      "read back", "synced",   "rows changed",
                              "backup made", "renamed",   "committed"};

class Recovery : public testing::Test {
 protected:
  void SetUp() override {
    store_.Fill(12);
    for (const int id : {1, 4, 5, 11}) store_.Delete(id);
    store_.Dead(kCompactionThreshold + 1);
  }
  // A process that compacts and dies at a step.
  void DieAt(const std::string& step) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      const auto connection = OpenDatabase(store_.url());
      CompactMessageFile(*connection, store_.messages_folder(), 7, [&](const char* at) {
        if (step == at) _exit(42);
      });
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(WEXITSTATUS(status), 42);
  }

  CompactedStore store_;
};

TEST_F(Recovery, NothingIsDoneWithoutAnInterruptedCompaction) {
  const UserLock lock(store_.message_file());
  EXPECT_FALSE(RecoverCompaction(*store_.connection(), store_.messages_folder(), 7));
  EXPECT_FALSE(RecoverCompaction(*store_.connection(), "", 7));
}

TEST_F(Recovery, AProcessThatDiesAtAnyStepLosesNothing) {
  for (const char* step : kSteps) {
    CompactedStore store;
    store.Fill(12);
    for (const int id : {1, 4, 5, 11}) store.Delete(id);
    store.Dead(kCompactionThreshold + 1);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      const auto connection = OpenDatabase(store.url());
      CompactMessageFile(*connection, store.messages_folder(), 7, [&](const char* at) {
        if (std::string(step) == at) _exit(42);
      });
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(WEXITSTATUS(status), 42) << step;
    const bool committed = store.Count("Cancellata<>0") == 0;
    EXPECT_EQ(committed, std::string(step) == "committed");
    {
      const MessageFileLock lock(*store.connection(), *store.account());
      EXPECT_TRUE(lock.Held());
    }
    EXPECT_FALSE(FileExists(BackupFilePath(store.messages_folder(), 7)));
    store.ExpectNothingLost(step);
    EXPECT_EQ(store.Compact(), 0) << "and it can be done again";
    store.ExpectNothingLost(step);
    store.ExpectNoGaps();
    EXPECT_TRUE(store.OnlyTheMessageFileIsThere());
  }
}

TEST_F(Recovery, AFaultAtAnyStepIsRaisedAndPutRightAtOnce) {
  for (const char* step : kSteps) {
    CompactedStore store;
    store.Fill(12);
    for (const int id : {1, 4, 5, 11}) store.Delete(id);
    store.Dead(kCompactionThreshold + 1);
    EXPECT_THROW(CompactMessageFile(*store.connection(), store.messages_folder(), 7,
                                    [&](const char* at) {
                                      if (std::string(step) == at) {
                                        throw DatabaseError(DatabaseError::Kind::kOther, "made");
                                      }
                                    }),
                 DatabaseError);
    EXPECT_TRUE(store.OnlyTheMessageFileIsThere()) << step;
    store.ExpectNothingLost(step);
  }
}

TEST_F(Recovery, ADatabaseThatRefusesTheCommitLeavesTheOldFile) {
  WatchedConnection watched(store_.connection());
  watched.FailAt("commit", DatabaseError::Kind::kBusy);
  const std::string before = store_.FileBytes();
  EXPECT_THROW(CompactMessageFile(watched, store_.messages_folder(), 7), DatabaseError);
  EXPECT_EQ(store_.FileBytes(), before);
  EXPECT_EQ(store_.Count(), 12);
  store_.ExpectNothingLost();
}

TEST_F(Recovery, ACommitWhoseAnswerIsLostIsFoundOutFromTheRows) {
  WatchedConnection watched(store_.connection());
  watched.before = [&](const std::string& step) {
    if (step != "commit") return;
    store_.connection()->Commit();
    throw DatabaseError(DatabaseError::Kind::kConnectionLost, "the answer never came");
  };
  EXPECT_THROW(CompactMessageFile(watched, store_.messages_folder(), 7), DatabaseError);
  EXPECT_EQ(store_.Count(), 8);
  store_.ExpectNothingLost();
  store_.ExpectNoGaps();
}

TEST_F(Recovery, ADatabaseThatCannotBeAskedLeavesBothFilesForTheNextOne) {
  WatchedConnection watched(store_.connection());
  bool gone = false;
  watched.before = [&](const std::string& step) {
    if (step == "commit") gone = true;
    if (gone) throw DatabaseError(DatabaseError::Kind::kConnectionLost, "gone");
  };
  EXPECT_THROW(CompactMessageFile(watched, store_.messages_folder(), 7), DatabaseError);
  EXPECT_TRUE(FileExists(BackupFilePath(store_.messages_folder(), 7)));
  { const MessageFileLock lock(*store_.connection(), *store_.account()); }
  EXPECT_TRUE(store_.OnlyTheMessageFileIsThere());
  store_.ExpectNothingLost();
}

TEST_F(Recovery, SavingAMessageAfterAnInterruptedCompactionPutsTheFileRightFirst) {
  for (const char* step : {"backup made", "renamed", "committed"}) {
    DieAt(step);
    if (HasFatalFailure()) return;
    MailMessage message;
    message.PrepareNew(store_.account(), "");
    message.NM_Subject("saved");
    EXPECT_TRUE(message.NM_Save(store_.connection()));
    EXPECT_EQ(store_.Loaded(message.Id())->Subject(ETextFormat::TextFormat_Normal), "saved");
    EXPECT_TRUE(store_.OnlyTheMessageFileIsThere());
    store_.connection()->Execute("DELETE FROM mail WHERE id_mail=" + std::to_string(message.Id()));
    store_.ExpectNothingLost(step);
    store_.Fill(2);
    store_.Delete(store_.expected().rbegin()->first);
  }
}

TEST_F(Recovery, OnlyTheTailBeingDeadIsToldApartToo) {
  // Nothing moves then: the rows' positions are the same on both sides of the commit.
  for (const char* step : {"renamed", "committed"}) {
    CompactedStore store;
    store.Fill(4);
    store.Delete(3);
    store.Delete(4);
    store.Dead(kCompactionThreshold + 1);
    EXPECT_THROW(CompactMessageFile(*store.connection(), store.messages_folder(), 7,
                                    [&](const char* at) {
                                      if (std::string(step) == at) throw std::runtime_error("made");
                                    }),
                 std::runtime_error);
    store.ExpectNothingLost(step);
    EXPECT_TRUE(store.OnlyTheMessageFileIsThere());
    // The deleted records are there as long as their rows are.
    EXPECT_EQ(store.Count("Cancellata<>0") > 0, std::string(step) == "renamed");
    if (std::string(step) == "renamed") {
      EXPECT_EQ(store.Loaded(4)->GetLastError(), 0);
    }
  }
}

TEST_F(Recovery, RecordsOfTheSameSizeAreToldApart) {
  for (const char* step : {"renamed", "committed"}) {
    CompactedStore store;
    for (int i = 1; i <= 6; ++i) {
      store.StoreText(test::PlainMessage("same" + std::to_string(i)));
    }
    store.connection()->Execute("UPDATE mail SET Cancellata=-1 WHERE id_mail IN (1, 3)");
    store.Dead(kCompactionThreshold + 1);
    EXPECT_ANY_THROW(
        CompactMessageFile(*store.connection(), store.messages_folder(), 7, [&](const char* at) {
          if (std::string(step) == at) throw std::runtime_error("x");
        }));
    for (const int id : {2, 4, 5, 6}) {
      EXPECT_EQ(store.Loaded(id)->Subject(ETextFormat::TextFormat_Normal),
                "same" + std::to_string(id))
          << step;
    }
  }
}

TEST_F(Recovery, MessagesSavedWhileTheFileIsCompactedAreNotLost) {
  std::atomic<bool> saving{true};
  std::thread compacting([&] {
    const auto connection = OpenDatabase(store_.url());
    while (saving) EXPECT_EQ(CompactMessageFile(*connection, store_.messages_folder(), 7), 0);
  });
  std::vector<int32_t> saved;
  for (int i = 0; i < 25; ++i) {
    MailMessage message;
    message.PrepareNew(store_.account(), "");
    message.NM_Subject("saved " + std::to_string(i));
    EXPECT_TRUE(message.NM_Save(store_.connection()));
    saved.push_back(message.Id());
    if (i % 3 == 0) {
      store_.connection()->Execute("UPDATE mail SET Cancellata=-1 WHERE id_mail=" +
                                   std::to_string(message.Id()));
      saved.pop_back();
    }
  }
  saving = false;
  compacting.join();
  EXPECT_EQ(store_.Compact(), 0);
  for (const int32_t id : saved) {
    EXPECT_EQ(store_.Loaded(id)->Subject(ETextFormat::TextFormat_Normal),
              store_.Cell(id, "oggetto").ToText());
  }
  for (const int32_t id : {2, 3, 6, 7, 12}) EXPECT_EQ(store_.Loaded(id)->GetLastError(), 0);
  store_.ExpectNoGaps();
  EXPECT_EQ(store_.Count(), static_cast<int64_t>(saved.size()) + 8);
}

TEST(LateCommit, OfADeadHolderIsWaitedFor) {
  CompactedStore store;
  test::ACommitOfADeadHolderIsWaitedFor(store);
}

TEST_F(Recovery, AFileServersClientThatKnowsOldNamesIsWaitedFor) {
  DieAt("renamed");
  // For a while both names lead to the old file.
  const std::string elsewhere = store_.folder() / "elsewhere";
  ASSERT_TRUE(RenameFile(store_.message_file(), elsewhere));
  std::filesystem::create_hard_link(BackupFilePath(store_.messages_folder(), 7),
                                    store_.message_file());
  std::thread server([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    EXPECT_TRUE(RenameFile(elsewhere, store_.message_file()));
  });
  { const MessageFileLock lock(*store_.connection(), *store_.account()); }
  server.join();
  store_.ExpectNothingLost();
  EXPECT_TRUE(store_.OnlyTheMessageFileIsThere());
}

TEST_F(Recovery, AnOldNewFileIsNotWrittenInto) {
  // What a file server's client may still know: the message file by the name it once had.
  std::filesystem::create_hard_link(store_.message_file(),
                                    CompactedFilePath(store_.messages_folder(), 7));
  EXPECT_EQ(CompactMessageFile(*store_.connection(), store_.messages_folder(), 7), 0);
  store_.ExpectNothingLost();
  store_.ExpectNoGaps();
  EXPECT_TRUE(store_.OnlyTheMessageFileIsThere());
}

TEST_F(Recovery, WhoDoesNotGetTheLockTouchesNothing) {
  CompactMessageFile(*store_.connection(), store_.messages_folder(), 7, [&](const char* at) {
    if (std::string(at) != "renamed") return;
    const auto other = OpenDatabase(store_.url());
    EXPECT_THROW(MessageFileLock(*other, store_.messages_folder(), 7, std::chrono::milliseconds(0)),
                 MessageFileBusy);
    EXPECT_TRUE(FileExists(BackupFilePath(store_.messages_folder(), 7)));
  });
  store_.ExpectNothingLost();
}

TEST_F(Recovery, AUserWithoutARowLeftKeepsTheNewFile) {
  CompactedStore store;
  store.Fill(2);
  store.Delete(1);
  store.Delete(2);
  store.Dead(kCompactionThreshold + 1);
  EXPECT_ANY_THROW(
      CompactMessageFile(*store.connection(), store.messages_folder(), 7, [&](const char* at) {
        if (std::string("committed") == at) {
          throw std::runtime_error("x");
        }
      }));
  EXPECT_TRUE(store.OnlyTheMessageFileIsThere());
  EXPECT_EQ(store.FileBytes(), "");
}

}  // namespace
}  // namespace korvane
