// BasicInterface on a real server.
#include "facade/basic_interface.h"

#include <functional>

#include "facade_fixture.h"

namespace korvane::test {
namespace {

constexpr auto kNormal = ETextFormat::TextFormat_Normal;

class BasicInterfaceTest : public FacadeTest {
 protected:
  std::unique_ptr<BasicInterface> Basic() {
    auto basic = std::make_unique<BasicInterface>();
    basic->MailServer(LocalHost());
    basic->ServerPort(proxy->port());
    basic->Username("bob");
    basic->Password(DovecotServer::kPassword);
    return basic;
  }
  std::unique_ptr<BasicInterface> Open() {
    auto basic = Basic();
    EXPECT_TRUE(basic->Init()) << basic->GetLastError();
    return basic;
  }
};

TEST(BasicInterfaceAlone, TheVersionIsSMS) { EXPECT_EQ(BasicInterface().Version(), "SMS"); }

TEST(BasicInterfaceAlone, EveryOperationBeforeInitRaises1499AndLeavesNoError) {
  BasicInterface basic;
  const std::function<void()> operations[] = {
      [&] { basic.GetListMessagesInBox(1); }, [&] { basic.GetMessage(1); },
      [&] { basic.GetMessageUIDL(1, "x"); }, [&] { basic.DeleteMessage(1); },
      [&] { basic.DeleteMessageUIDL(1, "x"); }};
  for (const auto& operation : operations) {
    try {
      operation();
      FAIL() << "nothing was raised";
    } catch (const AutomationException& raised) {
      EXPECT_EQ(raised.number(), 1499);
      EXPECT_EQ(raised.source(), "BasicInterface");
      EXPECT_STREQ(raised.what(), "Oggetto non inizializzato");
    }
    EXPECT_EQ(basic.GetLastError(), 0);
    EXPECT_EQ(basic.GetLastErrorDesc(), "");
  }
}

TEST(BasicInterfaceAlone, ThePropertiesAreThoseOfTheAccount) {
  BasicInterface basic;
  basic.Username("name");
  basic.Password("word");
  basic.MailServer("host");
  basic.ServerPort(1110);
  basic.ServerTimeout(1234);
  basic.UserId(9);
  basic.MailListPageSize(12);
  EXPECT_EQ(basic.Username(), "name");
  EXPECT_EQ(basic.Password(), "word");
  EXPECT_EQ(basic.MailServer(), "host");
  EXPECT_EQ(basic.ServerPort(), 1110);
  EXPECT_EQ(basic.ServerTimeout(), 1234);
  EXPECT_EQ(basic.UserId(), 9);
  EXPECT_EQ(basic.MailListPageSize(), 12);
}

TEST(BasicInterfaceAlone, FinishWithoutASessionIsTrue) {
  BasicInterface basic;
  EXPECT_TRUE(basic.Finish());
  EXPECT_TRUE(basic.Init(false));
  EXPECT_TRUE(basic.Finish());
}

TEST(BasicInterfaceAlone, InitTakesTheBuiltInTimeOutUnlessOneWasSetAndAPageSizeOf25) {
  BasicInterface basic;
  basic.UserId(9);
  EXPECT_TRUE(basic.Init(false));
  EXPECT_EQ(basic.ServerTimeout(), 7000);
  EXPECT_EQ(basic.MailListPageSize(), 25);
  EXPECT_EQ(basic.UserId(), 9);
  BasicInterface other;
  other.ServerTimeout(55);
  EXPECT_TRUE(other.Init(false));
  EXPECT_EQ(other.ServerTimeout(), 55);
}

TEST_F(BasicInterfaceTest, InitWithoutAConnectionContactsNobodyAndALaterOperationFindsNoSession) {
  auto basic = Basic();
  EXPECT_TRUE(basic->Init(false));
  EXPECT_EQ(proxy->Connections(), 0);
  EXPECT_FALSE(basic->GetMessage(1));
  EXPECT_EQ(basic->GetLastError(), error::ReceiveFailed);
  EXPECT_EQ(basic->GetLastErrorDesc(), "XXX");
  EXPECT_FALSE(basic->GetListMessagesInBox(1));
  EXPECT_EQ(basic->GetLastError(), error::ReceiveFailed);
  EXPECT_FALSE(basic->GetMessageUIDL(1, "x"));
  EXPECT_EQ(basic->GetLastError(), error::ReceiveFailed);
  EXPECT_FALSE(basic->DeleteMessage(1));
  EXPECT_EQ(basic->GetLastError(), error::ReceiveFailed);
  EXPECT_FALSE(basic->DeleteMessageUIDL(1, "x"));
  EXPECT_EQ(basic->GetLastError(), error::ReceiveFailed);
}

TEST_F(BasicInterfaceTest, AFailedLoginIsTheServersRefusalAndNothingIsInitialised) {
  auto basic = Basic();
  basic->Password("wrong");
  EXPECT_FALSE(basic->Init());
  EXPECT_EQ(basic->GetLastError(), error::ServerRefusedPassword);
  EXPECT_THROW(basic->GetMessage(1), AutomationException);
}

TEST_F(BasicInterfaceTest, PagesAreCountedFromTheNewestMessageDown) {
  Deliver(25);
  auto basic = Open();
  basic->MailListPageSize(10);
  Any pages = 0, mails = 0;
  auto page = basic->GetListMessagesInBox(1, 2, &pages, &mails);
  ASSERT_TRUE(page);
  EXPECT_EQ(basic->GetLastError(), 0);
  EXPECT_EQ(pages.ToInt32(), 3);
  EXPECT_EQ(mails.ToInt32(), 25);
  ASSERT_EQ(page->Count(), 10);
  EXPECT_EQ(page->ItemIndex(1)->Subject(kNormal), "mail 15");
  EXPECT_EQ(page->ItemIndex(10)->Id(), 6);
  page = basic->GetListMessagesInBox(1, 3, &pages, &mails);
  EXPECT_EQ(page->Count(), 5);
  EXPECT_EQ(page->Item(1)->Subject(kNormal), "mail 1");
  EXPECT_EQ(basic->GetListMessagesInBox(1, 4, &pages, &mails)->Count(), 0);
  EXPECT_EQ(basic->GetListMessagesInBox(1)->Count(), 25) << "no page number is all of them";
}

TEST_F(BasicInterfaceTest, APageSizeThatIsNotPositiveIsAnError) {
  Deliver(2);
  auto basic = Open();
  for (const int32_t size : {0, -1}) {
    basic->MailListPageSize(size);
    Any pages, mails;
    basic->GetListMessagesInBox(1, 1, &pages, &mails);
    EXPECT_EQ(basic->GetLastError(), error::PageOutOfRange);
  }
}

TEST_F(BasicInterfaceTest, AMessageIsFetchedWholeByItsNumber) {
  Deliver(2);
  auto basic = Open();
  const auto message = basic->GetMessage(2, "<HR>");
  ASSERT_TRUE(message);
  EXPECT_EQ(basic->GetLastError(), 0);
  std::string body;
  EXPECT_TRUE(message->MessageBody(body, ETextAlternativeType::AlterType_Default, kNormal));
  EXPECT_EQ(body, "text 2");
  EXPECT_EQ(message->MessageSeparator(), "<HR>");
  EXPECT_FALSE(basic->GetMessage(3));
  EXPECT_EQ(basic->GetLastError(), error::ServerRefusedRetr);
  EXPECT_TRUE(basic->GetMessage(1)) << "the session goes on";
}

TEST_F(BasicInterfaceTest, AUniqueIdThatMatchesGivesTheMessageAndAnotherOneAnError) {
  Deliver(2);
  auto basic = Open();
  const std::string uidl = basic->GetMessage(1)->MessageUIDL();
  ASSERT_FALSE(uidl.empty());
  ASSERT_TRUE(basic->GetMessageUIDL(1, uidl));
  EXPECT_EQ(basic->GetLastError(), 0);
  EXPECT_FALSE(basic->GetMessageUIDL(2, uidl));
  EXPECT_EQ(basic->GetLastError(), error::FindNotFound);
  EXPECT_FALSE(basic->GetMessageUIDL(9, uidl));
  EXPECT_EQ(basic->GetLastError(), error::ServerRefusedUidl);
}

TEST_F(BasicInterfaceTest, ADeletionByNumberIsFinalAfterFinish) {
  Deliver(3);
  auto basic = Open();
  EXPECT_TRUE(basic->DeleteMessage(2));
  EXPECT_EQ(basic->GetLastError(), 0);
  EXPECT_EQ(dovecot.Count("bob"), 3);
  EXPECT_FALSE(basic->DeleteMessage(2));
  EXPECT_EQ(basic->GetLastError(), error::ServerRefusedDele);
  EXPECT_TRUE(basic->Finish());
  EXPECT_EQ(dovecot.Count("bob"), 2);
  EXPECT_FALSE(basic->Finish()) << "the session is over";
  EXPECT_EQ(basic->GetLastError(), error::ReceiveFailed);
}

TEST_F(BasicInterfaceTest, ADeletionByUniqueIdNeedsTheRightOne) {
  Deliver(2);
  auto basic = Open();
  const std::string uidl = basic->GetMessage(1)->MessageUIDL();
  EXPECT_FALSE(basic->DeleteMessageUIDL(2, uidl));
  EXPECT_EQ(basic->GetLastError(), error::FindNotFound);
  EXPECT_TRUE(basic->DeleteMessageUIDL(1, uidl));
  basic->Finish();
  EXPECT_EQ(dovecot.Count("bob"), 1);
}

TEST_F(BasicInterfaceTest, DestroyingAConnectedFacadeStillSendsQuit) {
  Deliver(2);
  auto basic = Open();
  EXPECT_TRUE(basic->DeleteMessage(1));
  basic.reset();
  EXPECT_EQ(proxy->Count("QUIT"), 1);
  EXPECT_EQ(dovecot.Count("bob"), 1);
}

TEST_F(BasicInterfaceTest, AnAdditionalInitEndsTheOpenSessionFirst) {
  Deliver(2);
  auto basic = Open();
  EXPECT_TRUE(basic->DeleteMessage(1));
  EXPECT_TRUE(basic->Init());
  EXPECT_EQ(proxy->Count("QUIT"), 1);
  EXPECT_EQ(proxy->Connections(), 2);
  EXPECT_EQ(dovecot.Count("bob"), 1);
  const auto message = basic->GetMessage(1);
  ASSERT_TRUE(message);
  EXPECT_EQ(message->Subject(kNormal), "mail 2");
  EXPECT_TRUE(basic->Init(false));
  EXPECT_EQ(proxy->Count("QUIT"), 2);
  EXPECT_FALSE(basic->GetMessage(1));
}

TEST_F(BasicInterfaceTest, ASessionThatBreaksReports1063FromThenOn) {
  Deliver(2);
  proxy->Set({.cut_at_verb = "RETR 2"});
  auto basic = Open();
  EXPECT_FALSE(basic->GetMessage(2));
  EXPECT_EQ(basic->GetLastError(), error::ReceiveFailed);
  EXPECT_FALSE(basic->GetMessage(1));
  EXPECT_EQ(basic->GetLastError(), error::ReceiveFailed);
  proxy->Clear();
  EXPECT_TRUE(basic->Init());
  EXPECT_TRUE(basic->GetMessage(2));
}

TEST_F(BasicInterfaceTest, AHeaderThatFailsIsError1067AndTheOthersAreListed) {
  Deliver(3);
  proxy->Set({.cut_at_verb = "TOP 1 "});
  auto basic = Open();
  const auto page = basic->GetListMessagesInBox(1);
  ASSERT_TRUE(page);
  EXPECT_EQ(page->Count(), 2);
  EXPECT_EQ(basic->GetLastError(), error::PageHeaderFailed);
}

TEST_F(BasicInterfaceTest, OverTlsTheSame) {
  Deliver(1);
  ::setenv("SSL_CERT_FILE", dovecot.certificate().c_str(), 1);
  auto basic = Basic();
  basic->MailServer("pop3s://localhost");
  basic->ServerPort(dovecot.tls_port());
  ASSERT_TRUE(basic->Init()) << basic->GetLastError();
  EXPECT_TRUE(basic->GetMessage(1));
  EXPECT_TRUE(basic->Finish());
}

}  // namespace
}  // namespace korvane::test
