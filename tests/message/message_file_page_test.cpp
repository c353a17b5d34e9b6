// The page about the message file holds worked records: they are read from the page, loaded, and
// written again byte for byte.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "support/message_store.h"

namespace korvane {
namespace {

// The bytes of the n-th block of hexadecimal numbers on the page; ";" begins a note.
std::string BlockOfThePage(int n) {
  std::ifstream page(KORVANE_SOURCE_DIR "/docs/message_file.md");
  std::string bytes;
  int block = 0;
  bool inside = false;
  for (std::string line; std::getline(page, line);) {
    if (line == "```hex") {
      inside = ++block == n;
    } else if (line == "```") {
      inside = false;
    } else if (inside) {
      std::istringstream numbers(line.substr(0, line.find(';')));
      for (std::string number; numbers >> number;) {
        bytes += static_cast<char>(std::stoi(number, nullptr, 16));
      }
    }
  }
  return bytes;
}

class MessageFilePage : public testing::Test {
 protected:
  MessageFilePage() { store_.UseFolders(store_.messages_folder(), ""); }

  std::shared_ptr<MailMessage> Load(const std::string& bytes) {
    WriteWholeFile(store_.message_file(), bytes);
    BinaryFile file;
    file.Open(store_.message_file(), BinaryFile::Mode::kRead);
    auto message = std::make_shared<MailMessage>();
    EXPECT_TRUE(message->LoadRecord(store_.account(), 1, file));
    EXPECT_EQ(file.Position(), file.Length() + 1) << "the record is the whole of it";
    return message;
  }
  std::string WrittenAgain(MailMessage& message) {
    WriteWholeFile(store_.message_file(), "");
    EXPECT_TRUE(store_.Store(message));
    return store_.FileBytes();
  }

  test::MessageStore store_;
};

TEST_F(MessageFilePage, TheWorkedRecordLoadsAndIsWrittenAgainByteForByte) {
  const std::string bytes = BlockOfThePage(1);
  ASSERT_GT(bytes.size(), 300u);
  const auto message = Load(bytes);
  EXPECT_EQ(message->Subject(ETextFormat::TextFormat_Normal), "Citt\xC3\xA0");
  EXPECT_EQ(message->FromMailAddress(), "ann@example.org");
  EXPECT_EQ(message->SendDate(), "05/03/2002 09:20:30");
  EXPECT_EQ(message->BodyText(), "Hi\r\n");
  ASSERT_EQ(message->UUFiles().size(), 1u);
  EXPECT_EQ(message->UUFiles()[0]->UUNameOnServer(), "/srv/files/7_1_1_a.txt");
  EXPECT_EQ(WrittenAgain(*message), bytes);
}

TEST_F(MessageFilePage, TheWorkedTreeLoadsAndIsWrittenAgainByteForByte) {
  std::string bytes = BlockOfThePage(1);
  const std::string file_block = std::string(
      "\x01\0\0\0\x03\0\0\0"
      "666",
      11);
  bytes.resize(bytes.rfind(file_block));
  bytes[4] = 1;
  bytes[8] = 0;
  bytes += BlockOfThePage(2);
  const auto message = Load(bytes);
  ASSERT_NE(message->Entity(), nullptr);
  ASSERT_EQ(message->Entity()->Children().size(), 2u);
  EXPECT_EQ(message->Entity()->Children()[0]->Data(), "Hi");
  EXPECT_EQ(message->Entity()->Children()[1]->Name(), "i.gif");
  EXPECT_EQ(message->Entity()->Children()[1]->EntityNumber(), 2);
  EXPECT_TRUE(message->Entity()->Children()[1]->IsAttachment());
  EXPECT_EQ(WrittenAgain(*message), bytes);
}

}  // namespace
}  // namespace korvane
