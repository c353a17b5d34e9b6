// Records of the message file: what is written reads back as the same message, records of earlier
// versions read, and a damaged one is error 1057 and nothing worse.
#include <gtest/gtest.h>

#include "frame/error_numbers.h"
#include "frame/record_io.h"
#include "support/message_store.h"

namespace korvane {
namespace {

using test::MessageStore;
using test::MessageWithFile;
using test::PlainMessage;

// A record of any version, field by field.
std::string Record(int32_t version, const std::string& subject = "old", int32_t has_entity = 0,
                   int32_t uu_files = 0, const std::string& rest = "") {
  const test::TempFolder folder;
  {
    BinaryFile file;
    file.Open(folder / "file", BinaryFile::Mode::kReadWrite);
    RecordWriter writer(file);
    writer.Int32(version);
    writer.Int32(has_entity);
    writer.Int32(uu_files);
    writer.Int32(12);
    for (int i = 0; i < 17; ++i) writer.Text(i == 9 ? subject : "f" + std::to_string(i));
    writer.Int32(4321);
    writer.Bool16(true);
    writer.Text("<HR>");
    writer.Text("1.0");
    for (const char* text : {"text/plain", "7bit", "", "", ""}) writer.Text(text);
    for (int i = 0; i < 5; ++i) writer.Int32(0);
    if (version > 1) writer.Text("Subject: old\r\n");
    if (version > 2) writer.Text("uid-1");
    writer.Text("the body");
    writer.Int32(0);
    writer.Text("");
  }
  std::string bytes;
  ReadWholeFile(folder / "file", bytes);
  return bytes + rest;
}

class MessageRecord : public testing::Test {
 protected:
  // Puts the bytes into the message file and reads the record at its beginning.
  std::shared_ptr<MailMessage> Read(const std::string& bytes) {
    WriteWholeFile(store_.message_file(), bytes);
    BinaryFile file;
    file.Open(store_.message_file(), BinaryFile::Mode::kRead);
    auto message = std::make_shared<MailMessage>();
    loaded_ = message->LoadRecord(store_.account(), 5, file);
    return message;
  }
  void ExpectDamaged(const std::string& bytes, const std::string& what) {
    const auto message = Read(bytes);
    EXPECT_FALSE(loaded_) << what;
    EXPECT_EQ(message->GetLastError(), error::RecordNotRead) << what;
    EXPECT_EQ(message->GetLastErrorDesc(), "XXX");
    EXPECT_EQ(message->Entity(), nullptr);
    EXPECT_TRUE(message->UUFiles().empty());
  }

  MessageStore store_;
  bool loaded_ = false;
};

TEST_F(MessageRecord, EveryFieldReadsBack) {
  const auto sent = store_.Downloaded(
      "Return-Path: <r@example.org>\r\nReceived: from a; Tue, 5 Mar 2002 10:20:30 +0100\r\n"
      "From: =?utf-8?q?Citt=C3=A0?= <from@example.org>\r\nSender: S <s@example.org>\r\n"
      "Reply-To: R <rt@example.org>\r\nTo: T <t@example.org>\r\nCC: C <c@example.org>\r\n"
      "BCC: B <b@example.org>\r\nMessage-ID: <1@example.org>\r\nIn-Reply-To: <0@example.org>\r\n"
      "References: <x@example.org>\r\nKeywords: k\r\nSubject: it's here\r\nComments: co\r\n"
      "Encrypted: e\r\nDate: Tue, 5 Mar 2002 10:20:00 +0100\r\nMIME-Version: 1.0\r\n"
      "Content-Type: text/plain; charset=utf-8\r\n\r\nThe b\xC3\xB6"
      "dy.\r\n",
      9);
  sent->MessageSeparator("<HR>");
  ASSERT_TRUE(store_.Store(*sent));
  const auto back = store_.Loaded(sent->Id());
  ASSERT_EQ(back->GetLastError(), 0);
  EXPECT_EQ(back->Id(), sent->Id());
  EXPECT_EQ(back->IdOnServer(), 9);
  EXPECT_EQ(back->MessageUIDL(), "uidl");
  EXPECT_EQ(back->Encrypted(), "e");
  EXPECT_EQ(back->Comments(), "co");
  EXPECT_EQ(back->Keywords(), "k");
  EXPECT_EQ(back->References(), sent->References());
  EXPECT_EQ(back->InReplyTo(), sent->InReplyTo());
  EXPECT_EQ(back->BCC(), sent->BCC());
  EXPECT_EQ(back->CC(), sent->CC());
  EXPECT_EQ(back->Sender(), sent->Sender());
  EXPECT_EQ(back->ReplyTo(), sent->ReplyTo());
  EXPECT_EQ(back->Subject(ETextFormat::TextFormat_Normal), "it's here");
  EXPECT_EQ(back->From(), sent->From());
  EXPECT_NE(back->From().find("Citt\xC3\xA0"), std::string::npos);
  EXPECT_EQ(back->MessageTo(), sent->MessageTo());
  EXPECT_EQ(back->MessageID(), sent->MessageID());
  EXPECT_EQ(back->SendDate(), sent->SendDate());
  EXPECT_EQ(back->ReceivedDate(), "05/03/2002 09:20:30");
  EXPECT_EQ(back->Received(), sent->Received());
  EXPECT_EQ(back->ReturnPath(), sent->ReturnPath());
  EXPECT_EQ(back->Size(), sent->Size());
  EXPECT_FALSE(back->ExistAttachments());
  EXPECT_EQ(back->MessageSeparator(), "<HR>");
  EXPECT_EQ(back->OriginalHeader(), sent->OriginalHeader());
  EXPECT_EQ(back->Fields().content_type, "text/plain; charset=utf-8");
  EXPECT_EQ(back->Fields().charset, ECharset::UTF_8);
  EXPECT_EQ(back->BodyText(), sent->BodyText());
}

TEST_F(MessageRecord, ATreeWithItsTextAndItsFileReadsBack) {
  const auto sent = store_.Downloaded(MessageWithFile("a.bin", "AAECAw=="));
  ASSERT_TRUE(store_.Store(*sent));
  EXPECT_EQ(store_.AttachmentFiles(), std::vector<std::string>{"7_1_2_a.bin"});
  const auto back = store_.Loaded(1);
  ASSERT_EQ(back->GetLastError(), 0);
  ASSERT_NE(back->Entity(), nullptr);
  EXPECT_TRUE(back->ExistAttachments());
  std::string body;
  EXPECT_TRUE(back->MessageBody(body));
  EXPECT_NE(body.find("See the file."), std::string::npos);
  ASSERT_EQ(back->GetAttachments()->Count(), 1);
  const auto file = back->GetAttachments()->ItemIndex(1);
  EXPECT_EQ(file->Name(), "a.bin");
  EXPECT_EQ(file->NameOnServer(), "7_1_2_a.bin");
  std::string content;
  EXPECT_TRUE(ReadWholeFile(store_.attachments_folder() + "/7_1_2_a.bin", content));
  EXPECT_EQ(content, std::string("\0\x01\x02\x03", 4));
}

TEST_F(MessageRecord, UuencodedFilesReadBackUnderTheirNumbers) {
  const auto sent =
      store_.Downloaded(PlainMessage("uu",
                                     "Two:\r\nbegin 644 one.txt\r\n#86)C\r\n`\r\nend\r\nbegin 644 "
                                     "two.txt\r\n#9&5F\r\n`\r\nend\r\nbye\r\n"));
  ASSERT_TRUE(store_.Store(*sent));
  EXPECT_EQ(store_.AttachmentFiles(), (std::vector<std::string>{"7_1_1_one.txt", "7_1_2_two.txt"}));
  const auto back = store_.Loaded(1);
  ASSERT_EQ(back->GetLastError(), 0);
  ASSERT_EQ(back->UUFiles().size(), 2u);
  EXPECT_EQ(back->UUFiles()[1]->UUName(), "two.txt");
  EXPECT_EQ(back->UUFiles()[1]->UUNumber(), 2);
  EXPECT_EQ(back->GetAttachments()->Item(2)->Name(), "two.txt");
  EXPECT_EQ(back->BodyText().find("begin 644"), std::string::npos);
}

TEST_F(MessageRecord, AMessageWithAnEntityStoresNoUuencodedFilesWhateverItsListHolds) {
  const auto message = store_.Downloaded(MessageWithFile("a.bin", "AAECAw=="));
  message->NM_NewAttachment();
  ASSERT_EQ(message->UUFiles().size(), 1u);
  ASSERT_TRUE(store_.Store(*message));
  const auto back = store_.Loaded(1);
  EXPECT_EQ(back->GetLastError(), 0);
  EXPECT_NE(back->Entity(), nullptr);
  EXPECT_TRUE(back->UUFiles().empty());
  EXPECT_EQ(store_.FileBytes().substr(4, 8), std::string("\x01\0\0\0\0\0\0\0", 8));
}

TEST_F(MessageRecord, ARecordOfVersionOneReadsBackWithoutHeaderAndUidl) {
  const auto message = Read(Record(1));
  ASSERT_TRUE(loaded_);
  EXPECT_EQ(message->OriginalHeader(), "");
  EXPECT_EQ(message->MessageUIDL(), "");
  EXPECT_EQ(message->Subject(ETextFormat::TextFormat_Normal), "old");
  EXPECT_EQ(message->BodyText(), "the body");
  EXPECT_EQ(message->Size(), 4321);
  EXPECT_TRUE(message->ExistAttachments());
  EXPECT_EQ(message->IdOnServer(), 12);
}

TEST_F(MessageRecord, ARecordOfVersionTwoReadsBackWithoutUidl) {
  const auto message = Read(Record(2));
  ASSERT_TRUE(loaded_);
  EXPECT_EQ(message->OriginalHeader(), "Subject: old\r\n");
  EXPECT_EQ(message->MessageUIDL(), "");
  EXPECT_EQ(message->BodyText(), "the body");
}

TEST_F(MessageRecord, ARecordInTheOldCodePageReadsAsText) {
  const auto message = Read(Record(3, "Citt\xE0 \x80"));
  ASSERT_TRUE(loaded_);
  EXPECT_EQ(message->Subject(ETextFormat::TextFormat_Normal), "Citt\xC3\xA0 \xE2\x82\xAC");
}

TEST_F(MessageRecord, AnUnknownVersionIsDamaged) {
  for (const int32_t version : {0, -1, 4, 1 << 30}) {
    ExpectDamaged(Record(version), "version " + std::to_string(version));
  }
}

TEST_F(MessageRecord, CountsThatCannotBeAreDamaged) {
  ExpectDamaged(Record(3, "x", 2), "has entity 2");
  ExpectDamaged(Record(3, "x", -1), "has entity -1");
  ExpectDamaged(Record(3, "x", 0, -1), "-1 files");
  ExpectDamaged(Record(3, "x", 0, 0x7FFFFFFF), "two thousand million files");
  ExpectDamaged(Record(3, "x", 0, 1), "a file that is not there");
  ExpectDamaged(Record(3, "x", 1), "an entity that is not there");
  ExpectDamaged(
      Record(3, "x", 1, 0, std::string("\x01\0\0\0\xFF\xFF\xFF\x7F", 8) + std::string(100, '\0')),
      "two thousand million parts");
}

TEST_F(MessageRecord, ARecordCutAtAnyByteIs1057) {
  store_.StoreText(PlainMessage("cut", "x\r\nbegin 644 a.txt\r\n#86)C\r\n`\r\nend\r\n"));
  const std::string with_file = store_.FileBytes();
  WriteWholeFile(store_.message_file(), "");
  store_.StoreText(MessageWithFile("a.bin", "AAECAw=="));
  const std::string with_tree = store_.FileBytes();
  for (const std::string& whole : {with_file, with_tree}) {
    Read(whole);
    ASSERT_TRUE(loaded_);
    for (size_t length = 0; length < whole.size(); ++length) {
      ExpectDamaged(whole.substr(0, length), "cut at " + std::to_string(length));
      if (HasFailure()) return;
    }
  }
}

TEST_F(MessageRecord, AnyByteMayBeWrongWithoutHarm) {
  store_.StoreText(MessageWithFile("a.bin", "AAECAw=="));
  const std::string whole = store_.FileBytes();
  for (size_t i = 0; i < whole.size(); ++i) {
    for (const char wrong : {'\x7F', '\xFF', '\0'}) {
      std::string bytes = whole;
      bytes[i] = wrong;
      const auto message = Read(bytes);
      EXPECT_EQ(loaded_, message->GetLastError() == 0);
    }
  }
}

TEST_F(MessageRecord, APositionOutsideTheFileIs1057) {
  store_.StoreText(PlainMessage("one"));
  BinaryFile file;
  ASSERT_TRUE(file.Open(store_.message_file(), BinaryFile::Mode::kRead));
  MailMessage message;
  ASSERT_TRUE(file.Seek(1'000'000));
  EXPECT_FALSE(message.LoadRecord(store_.account(), 1, file));
  EXPECT_EQ(message.GetLastError(), error::RecordNotRead);
  BinaryFile missing;
  EXPECT_FALSE(message.LoadRecord(store_.account(), 1, missing));
  EXPECT_EQ(message.GetLastError(), error::RecordNotRead);
}

TEST_F(MessageRecord, WhatWasReadBackIsWrittenAgainByteForByte) {
  for (const std::string& text :
       {PlainMessage("plain"), MessageWithFile("a.bin", "AAECAw=="),
        PlainMessage("uu", "begin 644 one.txt\r\n#86)C\r\n`\r\nend\r\n")}) {
    MessageStore store;
    ASSERT_EQ(store.StoreText(text), 1);
    const std::string once = store.FileBytes();
    const auto files = store.AttachmentFiles();
    const auto back = store.Loaded(1);
    ASSERT_TRUE(store.Store(*back));
    EXPECT_EQ(store.FileBytes(), once + once);
    EXPECT_EQ(store.AttachmentFiles(), files) << "a record holds no content to write";
  }
}

TEST_F(MessageRecord, TheOutlineOfARecordEndsWhereReadingItEnds) {
  for (const std::string& text :
       {PlainMessage("plain"), MessageWithFile("a.bin", "AAECAw=="),
        PlainMessage("uu", "begin 644 one.txt\r\n#86)C\r\n`\r\nend\r\n")}) {
    const int32_t id = store_.StoreText(text);
    BinaryFile file;
    ASSERT_TRUE(file.Open(store_.message_file(), BinaryFile::Mode::kRead));
    const int64_t position = store_.Position(id);
    const auto outline = OutlineRecord(file, position);
    ASSERT_TRUE(outline.has_value());
    EXPECT_EQ(outline->size, static_cast<int32_t>(text.size()));
    ASSERT_TRUE(file.Seek(position));
    MailMessage message;
    ASSERT_TRUE(message.LoadRecord(store_.account(), id, file));
    EXPECT_EQ(file.Position(), position + outline->length);
    EXPECT_EQ(file.Length() + 1, position + outline->length);
  }
}

TEST_F(MessageRecord, TheOutlineAndTheReaderAgreeOnEveryDamage) {
  store_.StoreText(MessageWithFile("a.bin", "AAECAw=="));
  const std::string whole = store_.FileBytes();
  for (size_t i = 0; i < whole.size(); ++i) {
    std::string bytes = whole;
    bytes[i] = static_cast<char>(bytes[i] ^ 0x40);
    Read(bytes);
    BinaryFile file;
    file.Open(store_.message_file(), BinaryFile::Mode::kRead);
    EXPECT_EQ(OutlineRecord(file, 1).has_value(), loaded_) << "byte " << i;
  }
}

}  // namespace
}  // namespace korvane
