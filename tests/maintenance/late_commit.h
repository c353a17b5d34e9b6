// A compaction whose process dies when its commit is on the way to the database: whoever takes the
// lock next has to wait for what becomes of it.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "maintenance/compaction_steps.h"
#include "support/compacted_store.h"

namespace korvane::test {

/// Over a store with messages of user 7.
inline void ACommitOfADeadHolderIsWaitedFor(CompactedStore& store) {
  store.Fill(12);
  for (const int id : {1, 4, 5, 11}) store.Delete(id);
  store.Dead(kCompactionThreshold + 1);
  const auto other = OpenDatabase(store.url());
  std::thread next;
  CompactMessageFile(*store.connection(), store.messages_folder(), 7, [&](const char* at) {
    if (std::string(at) != "renamed") return;
    // What the death of the holder means for everybody else: nobody holds the lock any more.
    ASSERT_TRUE(RemoveFile(store.message_file() + ".lock"));
    next = std::thread([&] {
      const MessageFileLock lock(*other, *store.account());
      EXPECT_TRUE(lock.Held());
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
  });
  next.join();
  EXPECT_EQ(store.Count(), 8);
  EXPECT_TRUE(store.OnlyTheMessageFileIsThere());
  store.ExpectNothingLost();
  store.ExpectNoGaps();
}

}  // namespace korvane::test
