// The row of "mail" that goes with a record, and what is left when one of the two cannot be
// written.
#include <gtest/gtest.h>

#include <filesystem>

#include "frame/error_numbers.h"
#include "message/row_text.h"
#include "mime/mail_date.h"
#include "support/file_size_limit.h"
#include "support/message_store.h"
#include "support/watched_connection.h"

namespace korvane {
namespace {

using test::FileSizeLimit;
using test::MessageStore;
using test::MessageWithFile;
using test::PlainMessage;
using test::WatchedConnection;

// What StoreRecordAndRow alone does, with a row that is never sent.
struct Attempt {
  explicit Attempt(MessageStore& store, std::shared_ptr<Connection> through = nullptr) {
    connection = through ? through : store.connection();
    row = connection->Open("mail");
    row->AddNew();
    file.Open(store.message_file(), BinaryFile::Mode::kReadWrite);
  }
  bool Run(MailMessage& message, MailMessage::StoreOptions options = {}) {
    return message.StoreRecordAndRow(*row, file, options, &written);
  }
  int64_t Position() const { return row->Field("body_scaricato").ToInt64().value_or(-2); }
  std::shared_ptr<Connection> connection;
  std::shared_ptr<Recordset> row;
  BinaryFile file;
  std::vector<std::string> written;
};

TEST(MessageRow, TheFirstMessageStoredInAnEmptyTableGetsId1) {
  MessageStore store;
  EXPECT_EQ(store.StoreText(PlainMessage("a")), 1);
  EXPECT_EQ(store.StoreText(PlainMessage("b")), 2);
  EXPECT_EQ(store.Position(1), 1);
  EXPECT_EQ(store.Position(2), static_cast<int64_t>(store.FileBytes().size()) / 2 + 1);
}

TEST(MessageRow, HoldsTheColumnsOfADownload) {
  MessageStore store;
  store.account()->BoxId(4);
  const int32_t id = store.StoreText(PlainMessage("it's 'so'"));
  EXPECT_EQ(store.Cell(id, "Letto").ToBool(), false);
  EXPECT_EQ(store.Cell(id, "mittente").ToText(), "\"Ann Example\" <ann@example.org>");
  EXPECT_NE(store.Cell(id, "destinatario").ToText().find("<bob@example.org>"), std::string::npos);
  EXPECT_EQ(store.Cell(id, "oggetto").ToText(), "it''s ''so''");
  EXPECT_EQ(store.Cell(id, "dimensione").ToInt32(),
            static_cast<int32_t>(PlainMessage("it's 'so'").size()));
  EXPECT_NE(store.Cell(id, "campo_received").ToText().find("mx.example.org"), std::string::npos);
  EXPECT_NE(store.Cell(id, "campo_MessageId").ToText().find("it''s"), std::string::npos);
  EXPECT_EQ(store.Cell(id, "allegati").ToBool(), false);
  EXPECT_EQ(store.Cell(id, "IdSulServer").ToInt32(), 1);
  EXPECT_EQ(store.Cell(id, "id_cartella").ToInt32(), 4);
  EXPECT_EQ(store.Cell(id, "id_server").ToInt32(), MailUser::kNoAccount);
  EXPECT_EQ(store.Cell(id, "id_utente").ToInt32(), 7);
  EXPECT_EQ(store.Cell(id, "Cancellata").ToBool(), false);
  const auto row = store.connection()->Open("SELECT * FROM mail WHERE id_mail=1");
  EXPECT_EQ(row->Field("data").ToText(), "05/03/2002 09:20:30");
  EXPECT_EQ(PadDate(row->Field("DataDownload").ToText()).find('?'), std::string::npos);
}

TEST(MessageRow, ADatabaseWithTheMonthFirstGetsAndGivesTheSameDates) {
  MessageStore store("?dates=month-first");
  ASSERT_EQ(store.account()->IsEnglishDate(), 1);
  const int32_t id = store.StoreText(PlainMessage("a"));
  const auto row =
      store.connection()->Open("SELECT * FROM mail WHERE id_mail=" + std::to_string(id));
  EXPECT_EQ(row->Field("data").ToText(), "03/05/2002 09:20:30");
  MailMessage message;
  message.SetAccount(store.account());
  ASSERT_TRUE(message.FillFromRow(*row));
  EXPECT_EQ(message.ReceivedDate(), "05/03/2002 09:20:30");
  const std::string now = ArrangeDateOrder(FormatNow(), false);
  EXPECT_EQ(row->Field("DataDownload").ToText().substr(0, now.find(' ')),
            now.substr(0, now.find(' ')));
}

TEST(MessageRow, SenderSubjectAndIdentifierAreDoubledFirstAndThenCut) {
  MessageStore store;
  const std::string quotes(300, '\'');
  const std::string letters = [] {
    std::string text;
    for (int i = 0; i < 300; ++i) text += "\xC3\xA0";
    return text;
  }();
  MailMessage message;
  message.PrepareNew(store.account(), "");
  message.NM_Subject(quotes);
  message.NM_From("<" + std::string(400, 'a') + "@example.org>");
  ASSERT_TRUE(message.NM_Save(store.connection()));
  EXPECT_EQ(store.Cell(1, "oggetto").ToText(), std::string(150, '\''));
  EXPECT_EQ(store.Cell(1, "mittente").ToText().size(), 255u);
  message.PrepareNew(store.account(), "");
  message.NM_Subject(letters);
  message.NM_MessageTo(std::string(400, 'b') + "@example.org");
  ASSERT_TRUE(message.NM_Save(store.connection()));
  EXPECT_EQ(store.Cell(2, "oggetto").ToText(), letters.substr(0, 300)) << "150 whole characters";
  EXPECT_GT(store.Cell(2, "destinatario").ToText().size(), 800u) << "recipients are not cut";
}

TEST(MessageRow, RowTextsHoldNoNulAndUndoTheDoubling) {
  EXPECT_EQ(RowText(std::string("a\0'b", 4)), "a''b");
  EXPECT_EQ(RowText("abc", 2), "ab");
  EXPECT_EQ(RowText(""), "");
  EXPECT_EQ(UndoubledQuotes("a''b'''c'"), "a'b''c'");
  EXPECT_EQ(UndoubledQuotes(RowText("l'ora ''")), "l'ora ''");
}

TEST(MessageRow, AReceivedTimeWithoutItsYearGivesTheTimeOfTheDownload) {
  MessageStore store;
  const int32_t id =
      store.StoreText("Received: by a; 5 March 2002 10:20:30 +0100\r\nSubject: x\r\n\r\nbody");
  const auto row =
      store.connection()->Open("SELECT * FROM mail WHERE id_mail=" + std::to_string(id));
  const std::string today = PadDate(FormatNow()).substr(0, 10);
  EXPECT_EQ(row->Field("data").ToText().substr(0, 10), today);
}

TEST(MessageRow, AHeaderAloneHasARowButNoRecord) {
  MessageStore store;
  MailMessage message;
  ASSERT_TRUE(message.LoadHeader(store.account(), 3, 500, "u", PlainMessage("head")));
  MailMessage::StoreOptions options;
  options.record = false;
  ASSERT_TRUE(store.Store(message, options));
  EXPECT_EQ(store.Position(1), -1);
  EXPECT_EQ(store.Cell(1, "oggetto").ToText(), "head");
  EXPECT_FALSE(FileExists(store.message_file()));
}

TEST(MessageRow, AMessageWhoseRecordCannotBeWrittenStillGetsItsRowWithPositionMinusOne) {
  MessageStore store;
  const int32_t first = store.StoreText(PlainMessage("first"));
  const std::string before = store.FileBytes();
  {
    const auto message = store.Downloaded(MessageWithFile("a.bin", std::string(3000, 'A')));
    Attempt attempt(store);
    const FileSizeLimit limit(before.size() + 100);
    EXPECT_TRUE(attempt.Run(*message));
    EXPECT_EQ(message->GetLastError(), 0);
    EXPECT_EQ(attempt.Position(), -1);
    EXPECT_TRUE(attempt.written.empty());
  }
  EXPECT_EQ(store.FileBytes(), before) << "nothing is left at the end of the file";
  EXPECT_TRUE(store.AttachmentFiles().empty());
  EXPECT_EQ(store.Loaded(first)->GetLastError(), 0);
}

TEST(MessageRow, AFailedRecordDoesNotSpoilTheNextOne) {
  MessageStore store;
  const auto large = store.Downloaded(PlainMessage("large", std::string(200'000, 'x')));
  const auto small = store.Downloaded(PlainMessage("small"));
  Attempt attempt(store);
  const FileSizeLimit limit(100'000);
  large->SetId(1);
  EXPECT_TRUE(attempt.Run(*large));
  EXPECT_EQ(attempt.Position(), -1);
  small->SetId(2);
  EXPECT_TRUE(attempt.Run(*small));
  EXPECT_EQ(attempt.Position(), 1);
  ASSERT_TRUE(attempt.file.Seek(1));
  MailMessage back;
  EXPECT_TRUE(back.LoadRecord(store.account(), 2, attempt.file));
  EXPECT_EQ(back.Subject(ETextFormat::TextFormat_Normal), "small");
}

TEST(MessageRow, AnAttachmentFileThatCannotBeWrittenIsARecordThatCannotBeWritten) {
  MessageStore store;
  std::filesystem::remove_all(store.attachments_folder());
  const auto message = store.Downloaded(MessageWithFile("a.bin", "AAECAw=="));
  Attempt attempt(store);
  EXPECT_TRUE(attempt.Run(*message));
  EXPECT_EQ(attempt.Position(), -1);
  EXPECT_EQ(store.FileBytes(), "");
}

TEST(MessageRow, AMissingMessageFolderIsARecordThatCannotBeWritten) {
  MessageStore store;
  std::filesystem::remove_all(store.messages_folder());
  const auto message = store.Downloaded(MessageWithFile("a.bin", "AAECAw=="));
  Attempt attempt(store);
  EXPECT_TRUE(attempt.Run(*message));
  EXPECT_EQ(attempt.Position(), -1);
  EXPECT_TRUE(store.AttachmentFiles().empty());
}

TEST(MessageRow, ARowThatCannotBeWrittenIs1055AndTakesItsRecordBack) {
  MessageStore store;
  store.StoreText(PlainMessage("first"));
  const std::string before = store.FileBytes();
  const auto watched = std::make_shared<WatchedConnection>(store.connection());
  watched->FailAt("set data", DatabaseError::Kind::kOther);
  const auto message = store.Downloaded(MessageWithFile("a.bin", "AAECAw=="));
  Attempt attempt(store, watched);
  EXPECT_FALSE(attempt.Run(*message));
  EXPECT_EQ(message->GetLastError(), error::RowNotWritten);
  EXPECT_EQ(message->GetLastErrorDesc(), "XXX");
  EXPECT_EQ(store.FileBytes(), before);
  EXPECT_TRUE(store.AttachmentFiles().empty());
  EXPECT_TRUE(attempt.written.empty());
  std::string log;
  EXPECT_TRUE(ReadWholeFile(store.folder() / "log/korvane_debug.log", log));
  EXPECT_NE(log.find("MailMessage.FillRow: made to fail"), std::string::npos);
  EXPECT_EQ(log.find("See the file"), std::string::npos);
}

TEST(MessageRow, AFolderInPlaceOfTheMessageFileIsARecordThatCannotBeWritten) {
  MessageStore store;
  std::filesystem::create_directory(store.message_file());
  const auto message = store.Downloaded(MessageWithFile("a.bin", "AAECAw=="));
  Attempt attempt(store);
  EXPECT_TRUE(attempt.Run(*message));
  EXPECT_EQ(attempt.Position(), -1);
  EXPECT_TRUE(store.AttachmentFiles().empty());
}

TEST(MessageRow, NeitherRecordNorRowIs1056) {
  MessageStore store;
  std::filesystem::remove_all(store.messages_folder());
  const auto watched = std::make_shared<WatchedConnection>(store.connection());
  watched->FailAt("set data", DatabaseError::Kind::kOther);
  const auto message = store.Downloaded(PlainMessage("a"));
  Attempt attempt(store, watched);
  EXPECT_FALSE(attempt.Run(*message));
  EXPECT_EQ(message->GetLastError(), error::RecordAndRowNotWritten);
  EXPECT_EQ(message->GetLastErrorDesc(), "XXX");
}

TEST(MessageRow, FetchingABodyLaterTouchesOnlyThePositionOfItsRow) {
  MessageStore store;
  store.StoreText(PlainMessage("listed"));
  const auto message = store.Downloaded(PlainMessage("fetched"));
  message->SetId(1);
  MailMessage::StoreOptions options;
  options.write_row = false;
  const auto row = store.connection()->Open("SELECT * FROM mail WHERE id_mail=1");
  BinaryFile file;
  ASSERT_TRUE(file.Open(store.message_file(), BinaryFile::Mode::kReadWrite));
  const int64_t end = file.Length() + 1;
  ASSERT_TRUE(message->StoreRecordAndRow(*row, file, options));
  row->Update();
  row->Close();
  EXPECT_EQ(store.Position(1), end);
  EXPECT_EQ(store.Cell(1, "oggetto").ToText(), "listed");

  const auto again = store.connection()->Open("SELECT * FROM mail WHERE id_mail=1");
  BinaryFile closed;
  EXPECT_FALSE(message->StoreRecordAndRow(*again, closed, options));
  EXPECT_NE(message->GetLastError(), 0);
  EXPECT_EQ(again->Field("body_scaricato").ToInt64(), end) << "the row keeps what it had";
}

TEST(MessageRow, APositionThatARowCannotHoldCountsAsNotWritten) {
  MessageStore store;
  ASSERT_TRUE(WriteWholeFile(store.message_file(), ""));
  std::filesystem::resize_file(store.message_file(), 2'147'483'647);  // takes no space
  const auto message = store.Downloaded(PlainMessage("far"));
  Attempt attempt(store);
  EXPECT_TRUE(attempt.Run(*message));
  EXPECT_EQ(attempt.Position(), -1);
  EXPECT_EQ(std::filesystem::file_size(store.message_file()), 2'147'483'647u);
  std::filesystem::resize_file(store.message_file(), 2'147'483'646);
  Attempt last(store);
  EXPECT_TRUE(last.Run(*message));
  EXPECT_EQ(last.Position(), 2'147'483'647) << "the last position that fits";
}

TEST(MessageRow, ARecordAlwaysGoesToTheEndOfTheFile) {
  MessageStore store;
  store.StoreText(PlainMessage("first"));
  const std::string before = store.FileBytes();
  const auto message = store.Downloaded(PlainMessage("second"));
  Attempt attempt(store);
  ASSERT_TRUE(attempt.file.Seek(5));
  EXPECT_TRUE(attempt.Run(*message));
  attempt.file.Flush();
  EXPECT_EQ(store.FileBytes().substr(0, before.size()), before);
  EXPECT_EQ(attempt.Position(), static_cast<int64_t>(before.size()) + 1);
}

TEST(MessageRow, AStoredMessageCanBeTakenBack) {
  MessageStore store;
  const auto message = store.Downloaded(MessageWithFile("a.bin", "AAECAw=="));
  message->SetId(1);
  Attempt attempt(store);
  ASSERT_TRUE(attempt.Run(*message));
  EXPECT_EQ(attempt.written.size(), 1u);
  EXPECT_EQ(store.AttachmentFiles().size(), 1u);
  UndoStoredRecord(attempt.file, attempt.Position(), attempt.written);
  EXPECT_EQ(store.FileBytes(), "");
  EXPECT_TRUE(store.AttachmentFiles().empty());
  message->SetId(2);
  ASSERT_TRUE(attempt.Run(*message)) << "and stored under another number";
  EXPECT_EQ(store.AttachmentFiles(), std::vector<std::string>{"7_2_2_a.bin"});
}

TEST(MessageRow, WithoutAnAttachmentFolderNoFileIsWritten) {
  MessageStore store;
  store.UseFolders(store.messages_folder(), "");
  const auto message = store.Downloaded(MessageWithFile("a.bin", "AAECAw=="));
  EXPECT_TRUE(store.Store(*message));
  EXPECT_EQ(store.Position(1), 1);
  EXPECT_TRUE(store.AttachmentFiles().empty());
}

TEST(MessageRow, WithoutAMessageFolderThereIsNoFileAnywhere) {
  EXPECT_EQ(MessageFilePath("", 7), "");
  EXPECT_EQ(MessageFilePath("/var/mail", 7), "/var/mail/7_Messaggi.dat");
}

}  // namespace
}  // namespace korvane
