// The file in which messages wait: that it has no name, and a disk that has no more room for it.
#include <gtest/gtest.h>

#include "pop3/waiting_messages.h"
#include "support/file_size_limit.h"
#include "support/unnamed_files.h"

namespace korvane::test {
namespace {

TEST_F(Waiting, NoNameLeadsToTheFile) {
  NewMessages messages = Collection(0);
  ASSERT_TRUE(messages.Add(Numbered(2, 100'000)));
  EXPECT_TRUE(FolderIsEmpty());
}

TEST_F(Waiting, MessagesWithHardlyAnyTextDoNotFillTheMemory) {
  NewMessages messages = Collection(100'000);
  const FileSizeLimit limit(0);
  int added = 0;
  while (added < 50'000 && messages.Add({1, 1, "", "x"})) ++added;
  EXPECT_GT(added, 100);
  EXPECT_LT(added, 10'000) << "each costs more than its text";
}

TEST_F(Waiting, AFileThatCannotGrowRefusesAMessageAndKeepsThoseBeforeIt) {
  NewMessages messages = Collection(0);
  {
    const FileSizeLimit limit(5'000);
    EXPECT_TRUE(messages.Add(Numbered(4, 2'000)));
    EXPECT_TRUE(messages.Add(Numbered(3, 2'000)));
    EXPECT_FALSE(messages.Add(Numbered(2, 2'000)));
    EXPECT_TRUE(messages.Add(Numbered(1, 10))) << "what was written of it was taken back";
  }
  EXPECT_EQ(messages.Count(), 3);
  ExpectOldest(messages, 1, 10);
  ExpectOldest(messages, 3, 2'000);
  ExpectOldest(messages, 4, 2'000);
}

TEST_F(Waiting, AFileThatLostItsEndGivesNothing) {
  NewMessages messages = Collection(0);
  ASSERT_TRUE(messages.Add(Numbered(2, 2'000)));
  ASSERT_TRUE(messages.Add(Numbered(1, 2'000)));
  ExpectOldest(messages, 1, 2'000);
  ASSERT_EQ(CutUnnamedFiles(folder_.path(), 100), 1);
  EXPECT_EQ(messages.OldestBytes(), -1);
  EXPECT_FALSE(messages.TakeOldest());
  EXPECT_EQ(messages.Count(), 1);
}

}  // namespace
}  // namespace korvane::test
