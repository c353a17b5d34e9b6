// What a selection took waits in memory and in a file, and comes out as it went in.
#include "pop3/new_messages.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "pop3/waiting_messages.h"

namespace korvane::test {
namespace {

TEST_F(Waiting, WhatWasAddedLastIsTakenFirst) {
  for (const int64_t in_memory : {0, 250, 1'000'000}) {
    NewMessages messages = Collection(in_memory);
    for (int32_t number = 50; number >= 1; --number) ASSERT_TRUE(messages.Add(Numbered(number)));
    EXPECT_EQ(messages.Count(), 50);
    for (int32_t number = 1; number <= 50; ++number) ExpectOldest(messages, number);
    EXPECT_EQ(messages.Count(), 0);
  }
}

TEST_F(Waiting, MessagesOfEverySizeComeOutWhole) {
  NewMessages messages = Collection(100'000);
  std::mt19937 random(1);
  std::vector<size_t> sizes;
  for (int32_t number = 300; number >= 1; --number) {
    sizes.push_back(random() % (number % 50 == 0 ? 4'000'000 : 20'000));
    ASSERT_TRUE(messages.Add(Numbered(number, sizes.back())));
  }
  for (int32_t number = 1; number <= 300; ++number) {
    ExpectOldest(messages, number, sizes.back());
    sizes.pop_back();
  }
}

TEST_F(Waiting, HeadersAreTakenAsHeaders) {
  for (const int64_t in_memory : {0, 1'000'000}) {
    NewMessages messages(nullptr, false, {}, folder_.path(), in_memory);
    ASSERT_TRUE(messages.Add({3, 9, "u3", "Subject: x\r\nFrom: ann@example.com\r\n\r\n"}));
    const auto message = messages.TakeOldest();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->IdOnServer(), 3);
    EXPECT_EQ(message->Size(), 9);
    EXPECT_EQ(message->MessageUIDL(), "u3");
    EXPECT_EQ(message->Subject(ETextFormat::TextFormat_Normal), "x");
    EXPECT_EQ(message->BodyText(), "");
  }
}

TEST_F(Waiting, AddingGoesOnAfterTaking) {
  NewMessages messages = Collection(150);
  for (int32_t number = 9; number >= 5; --number) ASSERT_TRUE(messages.Add(Numbered(number)));
  ExpectOldest(messages, 5);
  ExpectOldest(messages, 6);
  ASSERT_TRUE(messages.Add(Numbered(4)));
  for (const int32_t number : {4, 7, 8, 9}) ExpectOldest(messages, number);
  ASSERT_TRUE(messages.Add(Numbered(3)));
  ExpectOldest(messages, 3);
  EXPECT_EQ(messages.Count(), 0);
}

TEST_F(Waiting, WithoutTheFolderWhatIsBeyondTheMemoryIsRefusedAndTheRestStays) {
  NewMessages messages = Collection(250, folder_ / "nowhere");
  EXPECT_TRUE(messages.Add(Numbered(3)));
  EXPECT_FALSE(messages.Add(Numbered(2, 1'000)));
  EXPECT_EQ(messages.Count(), 1);
  ExpectOldest(messages, 3);
}

}  // namespace
}  // namespace korvane::test
