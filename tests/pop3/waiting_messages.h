// Messages that wait to be stored, each told by its number.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "message/mail_message.h"
#include "pop3/new_messages.h"
#include "support/temp_folder.h"

namespace korvane::test {

inline ServerMessage Numbered(int32_t number, size_t bytes = 100) {
  return {number, number * 10, "unique" + std::to_string(number),
          "Subject: mail " + std::to_string(number) + "\r\n\r\n" +
              std::string(bytes, static_cast<char>('a' + number % 26))};
}

class Waiting : public testing::Test {
 protected:
  NewMessages Collection(int64_t in_memory, const std::string& folder = "") const {
    return {nullptr, true, "<hr>", folder.empty() ? folder_.path() : folder, in_memory};
  }

  static void ExpectOldest(NewMessages& messages, int32_t number, size_t bytes = 100) {
    const ServerMessage expected = Numbered(number, bytes);
    ASSERT_EQ(messages.OldestBytes(), static_cast<int64_t>(expected.text.size()));
    const auto message = messages.TakeOldest();
    ASSERT_TRUE(message) << number;
    EXPECT_EQ(message->IdOnServer(), number);
    EXPECT_EQ(message->Size(), number * 10);
    EXPECT_EQ(message->MessageUIDL(), expected.uidl);
    EXPECT_EQ(message->BodyText(), expected.text.substr(expected.text.find("\r\n\r\n") + 4));
    EXPECT_EQ(message->MessageSeparator(), "<hr>");
  }
  bool FolderIsEmpty() const { return std::filesystem::is_empty(folder_.path()); }

  TempFolder folder_;
};

}  // namespace korvane::test
