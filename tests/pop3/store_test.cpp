// The selection against a real database: what was stored is known again, whatever its texts are.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "frame/database.h"
#include "frame/error_numbers.h"
#include "frame/files.h"
#include "frame/schema.h"
#include "frame/sql_text.h"
#include "pop3/session_fixture.h"
#include "support/temp_folder.h"

namespace korvane::test {
namespace {

/// A message on the server: its header, and what LIST says.
struct OnServer {
  std::string header;
  int32_t size = 100;
};

std::string At(const std::string& time, const std::string& host = "a") {
  return "Received: from " + host + " by b; Tue, 5 Mar 2002 " + time + " +0000\r\n";
}

class Store : public testing::Test {
 protected:
  Store() {
    CreateSchema(url_);
    connection_ = OpenDatabase(url_);
  }

  /// One session: selects the headers that are new among `mailbox`, number 1 first, of which the
  /// client must look at the newest `looked_at`, and stores them oldest first. Returns their
  /// numbers.
  std::vector<int32_t> Sync(const std::vector<OnServer>& mailbox, size_t looked_at,
                            const std::string& last_time, bool look_up, bool complete) {
    Session session;
    session.server.Login("bob", "secret").Hear("STAT");
    session.server.SayLine("+OK " + std::to_string(mailbox.size()) + " 1");
    for (size_t i = 0; i < looked_at; ++i) {
      const OnServer& message = mailbox[mailbox.size() - 1 - i];
      const std::string n = std::to_string(mailbox.size() - i);
      session.server.Hear("TOP " + n + " 0").Say("+OK\r\n" + message.header + "\r\n.\r\n");
      session.server.Hear("LIST " + n).SayLine("+OK " + n + " " + std::to_string(message.size));
      session.server.Hear("UIDL " + n).SayLine("+OK " + n + " u" + n);
    }
    session.LogIn();
    const auto taken = session.client->GetNewHeaders(*connection_, last_time, look_up);
    EXPECT_EQ(session.client->GetLastError(), 0);
    std::vector<int32_t> numbers;
    while (taken->Count() > 0) {
      const auto message = taken->TakeOldest();
      numbers.insert(numbers.begin(), message->IdOnServer());
      Keep(*message, complete);
    }
    session.End();
    return numbers;
  }

  void Keep(MailMessage& message, bool complete) {
    BinaryFile file;
    message.SetId(NextIdentifier(*connection_, "SELECT MAX(id_mail) FROM mail"));
    const auto row = connection_->Open("mail");
    row->AddNew();
    MailMessage::StoreOptions options;
    options.record = false;
    ASSERT_TRUE(message.StoreRecordAndRow(*row, file, options));
    row->SetField("DwnldCorrettoFAQ", complete);
    row->Update();
  }

  using Numbers = std::vector<int32_t>;
  TempFolder folder_;
  const std::string url_ = "sqlite://" + folder_ / "mail.db";
  std::shared_ptr<Connection> connection_;
};

constexpr const char* kFirst = "01/01/0001 00:00:00";

TEST_F(Store, ASecondRunTakesNothing) {
  const std::vector<OnServer> mailbox = {{At("10:00:00") + "Message-ID: <1@x>\r\n"},
                                         {At("11:00:00") + "Message-ID: <2@x>\r\n"}};
  EXPECT_EQ(Sync(mailbox, 2, kFirst, false, true), (Numbers{2, 1}));
  EXPECT_EQ(Sync(mailbox, 1, "05/03/2002 11:00:00", false, true), Numbers{});
  EXPECT_EQ(Sync(mailbox, 1, "05/03/2002 11:00:00", true, true), Numbers{});
}

TEST_F(Store, ARunUnderLookUpsLooksAtEveryMessageAndTakesWhatIsMissing) {
  const std::vector<OnServer> mailbox = {{At("10:00:00") + "Message-ID: <1@x>\r\n"},
                                         {At("11:00:00") + "Message-ID: <2@x>\r\n"},
                                         {At("12:00:00") + "Message-ID: <3@x>\r\n"}};
  EXPECT_EQ(Sync({mailbox[0], mailbox[1]}, 2, kFirst, true, false), (Numbers{2, 1}));
  EXPECT_EQ(Sync(mailbox, 3, kFirst, true, false), Numbers{3});
  EXPECT_EQ(Sync(mailbox, 3, kFirst, true, false), Numbers{});
}

TEST_F(Store, ApostrophesAreKnownAgain) {
  const std::vector<OnServer> mailbox = {{At("10:00:00", "o'hara") + "Message-ID: <l'ora@x>\r\n"},
                                         {At("11:00:00", "o''hara") + "Message-ID: <''''@x>\r\n"},
                                         {At("12:00:00", "'") + "Message-ID: '\r\n"}};
  EXPECT_EQ(Sync(mailbox, 3, kFirst, true, false), (Numbers{3, 2, 1}));
  EXPECT_EQ(Sync(mailbox, 3, kFirst, true, false), Numbers{});
}

TEST_F(Store, OverlongIdentifiersAreKnownAgain) {
  const std::string apostrophes = "<" + std::string(200, '\'') + "@x>";
  const std::vector<OnServer> mailbox = {
      {At("10:00:00") + "Message-ID: <" + std::string(300, 'i') + "@x>\r\n"},
      {At("11:00:00") + "Message-ID: " + apostrophes + "\r\n"},
      {At("12:00:00") + "Message-ID: <" + std::string(253, 'i') + "'@x>\r\n"}};
  EXPECT_EQ(Sync(mailbox, 3, kFirst, true, false), (Numbers{3, 2, 1}));
  EXPECT_EQ(Sync(mailbox, 3, kFirst, true, false), Numbers{});
}

TEST_F(Store, BackslashesAndEncodedTextsAreKnownAgain) {
  const std::vector<OnServer> mailbox = {
      {At("10:00:00", "a\\") + "Message-ID: <\\'@x>\r\n"},
      {At("11:00:00", "Citt\xe0") + "Message-ID: <\xc3\xa0@x>\r\n"}};
  EXPECT_EQ(Sync(mailbox, 2, kFirst, true, false), (Numbers{2, 1}));
  EXPECT_EQ(Sync(mailbox, 2, kFirst, true, false), Numbers{});
}

TEST_F(Store, MessagesWithoutTextsAreKnownAgainAndNotTakenForEachOther) {
  const auto message = [](const std::string& from, const std::string& subject,
                          const std::string& day) {
    return "From: " + from + "\r\nSubject: " + subject + "\r\nDate: " + day +
           " Mar 2002 10:00:00 +0000\r\n";
  };
  const std::vector<OnServer> mailbox = {{message("a@x", "l'ora", "1")},
                                         {message("b@x", "l'ora", "1")},
                                         {message("a@x", "other", "1")},
                                         {message("a@x", "l'ora", "1"), 101},
                                         {"From: a@x\r\n"}};
  EXPECT_EQ(Sync(mailbox, 5, kFirst, true, false), (Numbers{5, 4, 3, 2, 1}));
  EXPECT_EQ(Sync(mailbox, 5, kFirst, true, false), Numbers{});
}

TEST_F(Store, AMessageWithoutAReceivedLineIsNotTakenAtEveryRun) {
  const std::vector<OnServer> mailbox = {{At("10:00:00") + "Message-ID: <1@x>\r\n"},
                                         {"Message-ID: <2@x>\r\n"},
                                         {"Received: from a; some day\r\nMessage-ID: <3@x>\r\n"}};
  EXPECT_EQ(Sync(mailbox, 3, kFirst, false, false), (Numbers{3, 2, 1}));
  EXPECT_EQ(Sync(mailbox, 3, "05/03/2002 10:00:00", false, false), Numbers{});
}

TEST_F(Store, MessagesOfEqualTimeAreTakenOnceEach) {
  const std::vector<OnServer> mailbox = {{At("10:00:00") + "Message-ID: <1@x>\r\n"},
                                         {At("10:00:00") + "Message-ID: <2@x>\r\n"},
                                         {At("10:00:00") + "Message-ID: <3@x>\r\n"}};
  EXPECT_EQ(Sync({mailbox[0], mailbox[1]}, 2, kFirst, false, false), (Numbers{2, 1}));
  EXPECT_EQ(Sync(mailbox, 3, "05/03/2002 10:00:00", false, false), Numbers{3});
  EXPECT_EQ(Sync(mailbox, 3, "05/03/2002 10:00:00", false, false), Numbers{});
}

TEST_F(Store, AMessageOfAnotherAccountOrUserIsNotKnown) {
  const std::vector<OnServer> mailbox = {{At("10:00:00") + "Message-ID: <1@x>\r\n"}};
  EXPECT_EQ(Sync(mailbox, 1, kFirst, true, true), Numbers{1});
  connection_->Execute("UPDATE mail SET id_server=3");
  EXPECT_EQ(Sync(mailbox, 1, kFirst, true, true), Numbers{1});
  connection_->Execute("UPDATE mail SET id_utente=8");
  EXPECT_EQ(Sync(mailbox, 1, kFirst, true, true), Numbers{1});
}

TEST_F(Store, ALocallyDeletedMessageStaysKnownAfterItsRowIsGone) {
  const std::vector<OnServer> mailbox = {
      {At("10:00:00", "o'hara") + "Message-ID: <l'ora" + std::string(300, 'i') + "@x>\r\n"},
      {"From: a@x\r\nSubject: neither\r\n"}};
  EXPECT_EQ(Sync(mailbox, 2, kFirst, true, false), (Numbers{2, 1}));
  connection_->Execute(
      "INSERT INTO messaggi_eliminati SELECT id_mail, id_utente, id_server, campo_received, "
      "campo_MessageId, mittente, oggetto, data, dimensione, DwnldCorrettoFAQ FROM mail");
  connection_->Execute("DELETE FROM mail");
  EXPECT_EQ(Sync(mailbox, 2, kFirst, true, false), Numbers{});
}

TEST_F(Store, WithoutTheTableOfDeletedMessagesTheirMailComesAgain) {
  const std::vector<OnServer> mailbox = {{At("10:00:00") + "Message-ID: <1@x>\r\n"}};
  EXPECT_EQ(Sync(mailbox, 1, kFirst, true, false), Numbers{1});
  connection_->Execute("DELETE FROM mail");
  connection_->Execute("DROP TABLE messaggi_eliminati");
  connection_ = OpenDatabase(url_);  // which tables there are is asked once
  EXPECT_EQ(Sync(mailbox, 1, kFirst, true, false), Numbers{1});
}

TEST_F(Store, ADatabaseWithoutTablesStopsTheSelectionWith1008) {
  connection_->Execute("DROP TABLE mail");
  Session session;
  session.server.Login("bob", "secret").Hear("STAT").SayLine("+OK 1 100");
  session.server.Hear("TOP 1 0").Say("+OK\r\nSubject: x\r\n\r\n.\r\n");
  session.server.Hear("LIST 1").SayLine("+OK 1 100").Hear("UIDL 1").SayLine("+OK 1 u");
  session.LogIn();
  const auto taken = session.client->GetNewHeaders(*connection_, kFirst, true);
  EXPECT_EQ(taken->Count(), 0);
  EXPECT_EQ(session.client->GetLastError(), error::DatabaseFault);
  session.End();
}

}  // namespace
}  // namespace korvane::test
