// A store with some messages in it of which every so many are deleted, and the check that none of
// the others was lost.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "maintenance/cleaner.h"
#include "support/message_store.h"

namespace korvane::test {

class CompactedStore : public MessageStore {
 public:
  using MessageStore::MessageStore;

  /// Stores `count` messages of different sizes; number i says so in its text.
  void Fill(int count, size_t longest = 3'000) {
    for (int i = 0; i < count; ++i) {
      const int number = ++made_;
      const std::string body = "message " + std::to_string(number) + "\r\n" +
                               std::string(static_cast<size_t>(number) * 977 % longest, 'x');
      std::string text = PlainMessage("s" + std::to_string(number), body);
      if (number % 5 == 0)
        text = MessageWithFile("f" + std::to_string(number) + ".bin", "AAECAw==");
      const auto message = Downloaded(text, number);
      ASSERT_TRUE(Store(*message));
      expected_[message->Id()] = {message->Subject(ETextFormat::TextFormat_Normal), Text(*message)};
    }
  }
  void Delete(int32_t id) {
    connection()->Execute("UPDATE mail SET Cancellata=-1 WHERE id_mail=" + std::to_string(id));
    expected_.erase(id);
  }
  /// What the count of dead bytes says.
  void Dead(int64_t bytes) {
    connection()->Execute("DELETE FROM Pulizia");
    connection()->Execute("INSERT INTO Pulizia VALUES (1, 7, " + std::to_string(bytes) + ")");
  }
  int32_t Compact() {
    Dead(kCompactionThreshold + 1);
    return CompactMessageFile(*connection(), messages_folder(), 7);
  }
  const std::map<int32_t, std::pair<std::string, std::string>>& expected() const {
    return expected_;
  }

  /// Every message that was not deleted is there, opens, and says what it said.
  void ExpectNothingLost(const std::string& when = "") const {
    EXPECT_EQ(Count("Cancellata=0"), static_cast<int64_t>(expected_.size())) << when;
    for (const auto& [id, message] : expected_) {
      const auto back = Loaded(id);
      ASSERT_EQ(back->GetLastError(), 0) << when << " message " << id;
      ASSERT_EQ(back->Subject(ETextFormat::TextFormat_Normal), message.first) << when;
      ASSERT_EQ(Text(*back), message.second) << when;
    }
  }
  /// The live records follow each other from 1 to the end of the file.
  void ExpectNoGaps() const {
    BinaryFile file;
    ASSERT_TRUE(file.Open(message_file(), BinaryFile::Mode::kRead));
    const auto rows = connection()->Open(
        "SELECT * FROM mail WHERE id_utente=7 AND body_scaricato<>-1 ORDER BY body_scaricato ASC");
    int64_t next = 1;
    for (; !rows->Eof(); rows->MoveNext()) {
      ASSERT_EQ(rows->Field("body_scaricato").ToInt64(), next);
      const auto outline = OutlineRecord(file, next);
      ASSERT_TRUE(outline.has_value());
      next += outline->length;
    }
    EXPECT_EQ(file.Length() + 1, next);
  }
  bool OnlyTheMessageFileIsThere() const {
    return FileExists(message_file()) && !FileExists(BackupFilePath(messages_folder(), 7)) &&
           !FileExists(CompactedFilePath(messages_folder(), 7));
  }

 private:
  static std::string Text(MailMessage& message) {
    std::string text;
    message.MessageBody(text, ETextAlternativeType::AlterType_Default,
                        ETextFormat::TextFormat_Normal);
    return text;
  }

  int made_ = 0;
  std::map<int32_t, std::pair<std::string, std::string>> expected_;
};

}  // namespace korvane::test
