// Messages composed here: the write-only properties, attachments, and saving into a box.
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "frame/error_numbers.h"
#include "mime/mail_date.h"
#include "support/file_size_limit.h"
#include "support/message_store.h"
#include "support/watched_connection.h"

namespace korvane {
namespace {

using test::FileSizeLimit;
using test::MessageStore;
using test::WatchedConnection;
using Kind = DatabaseError::Kind;

std::shared_ptr<MailMessage> NewMessage(const MessageStore& store) {
  auto message = std::make_shared<MailMessage>();
  message->PrepareNew(store.account(), "<HR>");
  message->NM_From("ann@example.org");
  message->NM_MessageTo("Bob <bob@example.org>");
  message->NM_Subject("a note");
  message->NM_MessageBody("The text.\r\n");
  return message;
}

TEST(NewMessage, IsPreparedWithTheStatedFields) {
  const MessageStore store;
  MailMessage message;
  message.PrepareNew(store.account(), "<HR>");
  EXPECT_EQ(message.Id(), -1);
  EXPECT_EQ(message.IdOnServer(), -10);
  EXPECT_EQ(message.Size(), 0);
  EXPECT_FALSE(message.ExistAttachments());
  EXPECT_EQ(message.MessageSeparator(), "<HR>");
  EXPECT_EQ(message.Fields().content_type, "text/plain; charset=us-ascii");
  EXPECT_EQ(message.Fields().transfer_encoding, "7bit");
  EXPECT_EQ(message.SendDate(), "");
  EXPECT_NE(message.ReceivedDate(), "");
  EXPECT_EQ(message.Entity(), nullptr);
  EXPECT_EQ(message.GetLastError(), 0);
}

TEST(NewMessage, PreparingForgetsWhatTheObjectHeld) {
  const MessageStore store;
  const auto message = store.Downloaded(test::MessageWithFile("a.bin", "AAECAw=="));
  message->PrepareNew(store.account(), "");
  EXPECT_EQ(message->Entity(), nullptr);
  EXPECT_EQ(message->Subject(ETextFormat::TextFormat_Normal), "");
  EXPECT_EQ(message->MessageSeparator(), "");
  EXPECT_EQ(message->Fields().type, EEntityType::Text);
}

TEST(NewMessage, EveryPropertyStoresItsArgument) {
  const MessageStore store;
  MailMessage message;
  message.PrepareNew(store.account(), "");
  message.NM_ReplyTo("R <r@example.org>");
  message.NM_Sender("S <s@example.org>");
  message.NM_SendDate("5/3/2002 9:5:7");
  message.NM_CC("c@example.org");
  message.NM_BCC("b@example.org");
  message.NM_InReplyTo("<1@example.org>");
  message.NM_Size(77);
  EXPECT_EQ(message.ReplyTo(), "R <r@example.org>");
  EXPECT_EQ(message.Sender(), "S <s@example.org>");
  EXPECT_EQ(message.SendDate(), "5/3/2002 9:5:7");
  EXPECT_EQ(message.ReceivedDate(), "5/3/2002 9:5:7");
  EXPECT_EQ(message.CC(), "c@example.org");
  EXPECT_EQ(message.BCC(), "b@example.org");
  EXPECT_EQ(message.InReplyTo(), "<1@example.org>");
  EXPECT_EQ(message.Size(), 77);
}

TEST(NewMessage, ABareSenderAddressIsStoredInTheNormalisedForm) {
  const MessageStore store;
  const auto message = NewMessage(store);
  EXPECT_EQ(message->FromName(), "ann@example.org");
  EXPECT_EQ(message->FromMailAddress(), "ann@example.org");
  EXPECT_EQ(message->MessageToName(), "Bob");
  EXPECT_EQ(message->MessageToAddress(), "bob@example.org");
}

TEST(NewMessage, SavingIntoAnEmptyTableGivesTheId1) {
  const MessageStore store;
  const auto message = NewMessage(store);
  ASSERT_TRUE(message->NM_Save(store.connection()));
  EXPECT_EQ(message->GetLastError(), 0);
  EXPECT_EQ(message->Id(), 1);
  EXPECT_EQ(store.Count(), 1);
  EXPECT_EQ(store.Cell(1, "id_server").ToInt32(), -1);
  EXPECT_EQ(store.Cell(1, "id_cartella").ToInt32(), 3) << "the box that an omitted one stands for";
  EXPECT_EQ(store.Cell(1, "IdSulServer").ToInt32(), -10);
  EXPECT_EQ(store.Cell(1, "DwnldCorrettoFAQ").ToBool(), false);
  EXPECT_EQ(store.Cell(1, "Letto").ToBool(), false);
  EXPECT_NE(store.Cell(1, "DataDownload").ToText(), "");
  EXPECT_EQ(store.account()->BoxId(), 3);
}

TEST(NewMessage, WhatIsSavedCanBeOpenedAgain) {
  const MessageStore store;
  const auto message = NewMessage(store);
  ASSERT_TRUE(message->NM_Save(store.connection(), 5));
  EXPECT_EQ(store.Cell(1, "id_cartella").ToInt32(), 5);
  const auto back = store.Loaded(1);
  ASSERT_EQ(back->GetLastError(), 0);
  std::string body;
  EXPECT_TRUE(back->MessageBody(body, ETextAlternativeType::AlterType_Default,
                                ETextFormat::TextFormat_Normal));
  EXPECT_EQ(body, "The text.\r\n");
  EXPECT_EQ(back->Subject(ETextFormat::TextFormat_Normal), "a note");
}

TEST(NewMessage, AttachmentsAreNumberedAndTheirBlocksFollowTheRecord) {
  const MessageStore store;
  const auto message = NewMessage(store);
  const auto first = message->NM_NewAttachment();
  EXPECT_TRUE(message->ExistAttachments());
  first->NM_FileName("/tmp/report.pdf");
  const auto second = message->NM_NewAttachment();
  second->NM_FileName("b.txt");
  EXPECT_EQ(first->Id(), 1);
  EXPECT_EQ(second->Id(), 2);
  EXPECT_EQ(message->GetAttachments()->Count(), 2);
  const auto third = message->NM_NewAttachment();
  EXPECT_EQ(third->Name(), "Stream.dat");
  EXPECT_EQ(message->GetAttachments()->Count(), 3) << "also after the list was asked for";
  ASSERT_TRUE(message->NM_Save(store.connection()));
  EXPECT_EQ(store.FileBytes().substr(4, 8), std::string("\0\0\0\0\x03\0\0\0", 8));
  EXPECT_TRUE(store.AttachmentFiles().empty()) << "the page writes them";
  const auto back = store.Loaded(1);
  ASSERT_EQ(back->GetAttachments()->Count(), 3);
  const auto report = back->GetAttachments()->Item(1);
  EXPECT_EQ(report->Name(), "report.pdf");
  EXPECT_EQ(report->NameOnServer(), store.attachments_folder() + "/7_1_1_report.pdf");
  EXPECT_EQ(first->NameOnServer(), report->NameOnServer()) << "where the page puts the content";
}

TEST(NewMessage, AMessageWithASendDateListsWithThatDate) {
  const MessageStore store;
  const auto message = NewMessage(store);
  message->NM_SendDate("5/3/2002 9:5:7");
  ASSERT_TRUE(message->NM_Save(store.connection()));
  MailMessages list;
  ASSERT_TRUE(list.ListBox(store.account(), *store.connection(), {}, nullptr, nullptr));
  ASSERT_EQ(list.Count(), 1);
  EXPECT_EQ(list.ItemIndex(1)->SendDate(), "05/03/2002 09:05:07");
  EXPECT_EQ(list.ItemIndex(1)->ReceivedDate(), "05/03/2002 09:05:07");
}

TEST(NewMessage, AMessageWithoutASendDateIsSavedWithTheCreationTime) {
  const MessageStore store;
  const auto message = NewMessage(store);
  const std::string created = PadDate(message->ReceivedDate());
  ASSERT_TRUE(message->NM_Save(store.connection()));
  const auto row = store.connection()->Open("SELECT * FROM mail WHERE id_mail=1");
  EXPECT_EQ(row->Field("data").ToText(), created);
}

TEST(NewMessage, ASendDateThatIsNoneIsSavedWithTheTimeOfItsMaking) {
  for (const char* date : {"tomorrow", "31/12/2002x", "99/99/2002 1:1:1"}) {
    const MessageStore store;
    const auto message = NewMessage(store);
    message->NM_SendDate(date);
    ASSERT_TRUE(message->NM_Save(store.connection())) << date;
    const auto row = store.connection()->Open("SELECT * FROM mail WHERE id_mail=1");
    EXPECT_EQ(row->Field("data").ToText().substr(0, 10), PadDate(FormatNow()).substr(0, 10))
        << date;
  }
}

TEST(NewMessage, AStoreThatFailsIs1051AndLeavesNothing) {
  const MessageStore store;
  const auto watched = std::make_shared<WatchedConnection>(store.connection());
  watched->FailAt("set data", Kind::kOther);
  const auto message = NewMessage(store);
  EXPECT_FALSE(message->NM_Save(watched));
  EXPECT_EQ(message->GetLastError(), error::NewMessageNotStored);
  EXPECT_EQ(message->GetLastErrorDesc(), "XXX");
  EXPECT_EQ(message->Id(), -1);
  EXPECT_EQ(store.Count(), 0);
  EXPECT_EQ(store.FileBytes(), "");
  watched->before = [](const std::string&) {};
  EXPECT_TRUE(message->NM_Save(watched)) << "a second try may succeed";
}

TEST(NewMessage, ARefusedUpdateOrCommitIs1051AndTakesTheRecordBack) {
  for (const char* step : {"update", "commit", "execute SELECT MAX", "open mail"}) {
    const MessageStore store;
    ASSERT_TRUE(NewMessage(store)->NM_Save(store.connection()));
    const std::string before = store.FileBytes();
    const auto watched = std::make_shared<WatchedConnection>(store.connection());
    watched->FailAt(step, Kind::kOther);
    const auto message = NewMessage(store);
    EXPECT_FALSE(message->NM_Save(watched)) << step;
    EXPECT_EQ(message->GetLastError(), error::NewMessageNotStored) << step;
    EXPECT_EQ(store.Count(), 1) << step;
    EXPECT_EQ(store.FileBytes(), before) << step;
  }
}

TEST(NewMessage, ACommitOverALostConnectionLeavesTheRecordForARowThatMayPointAtIt) {
  const MessageStore store;
  const auto watched = std::make_shared<WatchedConnection>(store.connection());
  watched->FailAt("commit", Kind::kConnectionLost);
  EXPECT_FALSE(NewMessage(store)->NM_Save(watched));
  EXPECT_NE(store.FileBytes(), "");
}

TEST(NewMessage, AConnectionLostBeforeTheCommitLeavesNothing) {
  const MessageStore store;
  const auto watched = std::make_shared<WatchedConnection>(store.connection());
  watched->FailAt("update", Kind::kConnectionLost);
  EXPECT_FALSE(NewMessage(store)->NM_Save(watched));
  EXPECT_EQ(store.FileBytes(), "");
}

TEST(NewMessage, ARecordThatCannotBeWrittenIs1052AndLeavesNoRow) {
  const MessageStore store;
  ASSERT_TRUE(NewMessage(store)->NM_Save(store.connection()));
  const std::string before = store.FileBytes();
  const auto message = NewMessage(store);
  message->NM_MessageBody(std::string(200'000, 'x'));
  {
    const FileSizeLimit limit(150'000);
    EXPECT_FALSE(message->NM_Save(store.connection()));
  }
  EXPECT_EQ(message->GetLastError(), error::NewMessageWithoutRecord);
  EXPECT_EQ(message->GetLastErrorDesc(), "XXX");
  EXPECT_EQ(store.Count(), 1);
  EXPECT_EQ(store.FileBytes(), before);
}

TEST(NewMessage, AMissingFolderConnectionOrAccountIs1051) {
  const MessageStore store;
  const auto message = NewMessage(store);
  EXPECT_FALSE(message->NM_Save(nullptr));
  EXPECT_EQ(message->GetLastError(), error::NewMessageNotStored);
  MailMessage without_account;
  EXPECT_FALSE(without_account.NM_Save(store.connection()));
  EXPECT_EQ(without_account.GetLastError(), error::NewMessageNotStored);
  std::filesystem::remove_all(store.messages_folder());
  EXPECT_FALSE(message->NM_Save(store.connection()));
  EXPECT_EQ(message->GetLastError(), error::NewMessageNotStored);
  EXPECT_EQ(store.Count(), 0);
}

TEST(NewMessage, ATakenNumberIsTriedAgainUnderAnotherAndNothingIsLost) {
  const MessageStore store;
  const auto watched = std::make_shared<WatchedConnection>(store.connection());
  watched->FailAt("update", Kind::kDuplicateKey, 3);
  const auto message = NewMessage(store);
  message->NM_NewAttachment()->NM_FileName("a.txt");
  EXPECT_TRUE(message->NM_Save(watched));
  EXPECT_EQ(store.Count(), 1);
  EXPECT_EQ(store.Position(1), 1) << "the failed tries left no bytes";
  EXPECT_EQ(store.Loaded(1)->GetAttachments()->Item(1)->NameOnServer(),
            store.attachments_folder() + "/7_1_1_a.txt");
}

TEST(NewMessage, ANumberThatSomebodyElseTookInTheMeantimeIsNotUsedTwice) {
  const MessageStore store;
  const auto watched = std::make_shared<WatchedConnection>(store.connection());
  bool taken = false;
  watched->before = [&](const std::string& step) {
    if (step != "update" || taken) return;
    taken = true;
    store.connection()->Execute(
        "INSERT INTO mail (id_mail, id_utente, id_server, id_cartella) VALUES (1, 8, -1, 1)");
    throw DatabaseError(Kind::kDuplicateKey, "taken");
  };
  // The other's row was inserted in this transaction, so it goes with the rollback; what counts is
  // that the number is asked for again.
  EXPECT_TRUE(NewMessage(store)->NM_Save(watched));
  EXPECT_EQ(std::ranges::count(watched->statements, "SELECT MAX(id_mail) FROM mail"), 2);
}

TEST(NewMessage, SeveralThreadsSaveForTheSameUserAndForOthersWithoutLoss) {
  const MessageStore store;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&store, i] {
      const auto connection = OpenDatabase(store.url());
      BossObject boss;
      auto account = std::make_shared<MailUser>(*store.account());
      account->UserId(7 + i % 2);
      for (int k = 0; k < 5; ++k) {
        MailMessage message;
        message.PrepareNew(account, "");
        message.NM_Subject(std::to_string(i) + "/" + std::to_string(k));
        EXPECT_TRUE(message.NM_Save(connection)) << message.GetLastError();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(store.Count(), 20);
  EXPECT_EQ(store.Count("id_utente=8"), 10);
  for (int32_t id = 1; id <= 20; ++id) {
    const int32_t user = store.Cell(id, "id_utente").ToInt32().value_or(0);
    BinaryFile file;
    ASSERT_TRUE(file.Open(MessageFilePath(store.messages_folder(), user), BinaryFile::Mode::kRead));
    ASSERT_TRUE(file.Seek(store.Position(id)));
    MailMessage back;
    EXPECT_TRUE(back.LoadRecord(store.account(), id, file));
    EXPECT_EQ(back.Subject(ETextFormat::TextFormat_Normal), store.Cell(id, "oggetto").ToText());
  }
}

}  // namespace
}  // namespace korvane
