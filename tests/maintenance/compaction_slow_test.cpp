// Compactions that are killed at random moments, again and again over the same store, with messages
// stored and deleted in between.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "maintenance/late_commit.h"
#include "support/compacted_store.h"
#include "support/mariadb_server.h"
#include "support/postgres_server.h"

namespace korvane {
namespace {

TEST(CompactionSlow, TwoHundredKillsAtRandomMomentsLoseNothing) {
  test::CompactedStore store;
  store.Fill(60, 40'000);
  std::mt19937 random(20020305);
  int killed = 0;
  int finished = 0;
  useconds_t longest = 4'000;  // grows and shrinks so that about half of them get through
  while (killed < 200) {
    for (int i = 0; i < 3; ++i) {
      const auto& live = store.expected();
      auto victim = live.begin();
      std::advance(victim, random() % live.size());
      store.Delete(victim->first);
    }
    store.Fill(3, 40'000);
    store.Dead(kCompactionThreshold + 1);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      const auto connection = OpenDatabase(store.url());
      CompactMessageFile(*connection, store.messages_folder(), 7);
      _exit(0);
    }
    usleep(static_cast<useconds_t>(random() % longest));
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFSIGNALED(status)) {
      ++killed;
      longest += longest / 50 + 1;
    } else {
      ++finished;
      longest -= longest / 20;
    }
    {
      const MessageFileLock lock(*store.connection(), *store.account());
      ASSERT_TRUE(lock.Held());
    }
    store.ExpectNothingLost("after " + std::to_string(killed) + " kills");
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(finished, 10) << "some have to get through, else nothing is learnt";
  EXPECT_EQ(store.Compact(), 0);
  store.ExpectNothingLost();
  store.ExpectNoGaps();
}

TEST(LateCommit, OfADeadHolderIsWaitedForOnPostgresql) {
  test::PostgresServer server;
  test::CompactedStore store(server.MakeDatabase("mail"));
  test::ACommitOfADeadHolderIsWaitedFor(store);
}

TEST(LateCommit, OfADeadHolderIsWaitedForOnMariadb) {
  test::MariadbServer server;
  test::CompactedStore store(server.MakeDatabase("mail"));
  test::ACommitOfADeadHolderIsWaitedFor(store);
}

}  // namespace
}  // namespace korvane
