// WebInterface, with the account behind it and the error convention of every class.
#include "facade/web_interface.h"

#include <filesystem>
#include <fstream>
#include <functional>

#include "facade_fixture.h"
#include "frame/any.h"
#include "mime/mail_attachments.h"
#include "mime/uu_attachment.h"

namespace korvane::test {
namespace {

constexpr auto kNormal = ETextFormat::TextFormat_Normal;

template <class T>
void ExpectNoError(const T& object) {
  EXPECT_EQ(object.GetLastError(), 0);
  EXPECT_EQ(object.GetLastErrorDesc(), "");
}

TEST(ErrorConvention, AFreshlyCreatedObjectReportsNumber0AndNoText) {
  ExpectNoError(WebInterface());
  ExpectNoError(BasicInterface());
  ExpectNoError(BossObject());
  ExpectNoError(MailMessage());
  ExpectNoError(MailMessages());
  ExpectNoError(MailAttachment());
  ExpectNoError(MailAttachments());
  ExpectNoError(MultipartEntity());
  ExpectNoError(UUAtcmt());
  ExpectNoError(MailUser());
  ExpectNoError(MailServer());
  ExpectNoError(MailEngine());
}

TEST(ErrorConvention, AFailedOperationFollowedByASuccessfulOneReports0Again) {
  WebInterface web;
  EXPECT_FALSE(web.Init(nullptr));
  EXPECT_EQ(web.GetLastError(), error::NoUser);
  EXPECT_EQ(web.GetLastErrorDesc(), "XXX");
  EXPECT_TRUE(web.Finish());
  ExpectNoError(web);
}

TEST(ErrorConvention, EveryOperationBeforeInitRaises1500AndLeavesNoError) {
  WebInterface web;
  const std::function<void()> operations[] = {
      [&] { web.VerifyAccount(); }, [&] { web.GetListMessagesInBox(1); },
      [&] { web.GetMessage(1); },   [&] { web.DeleteMessage("1"); },
      [&] { web.NewMessage(); },    [&] { web.BackgroundClean(); }};
  for (const auto& operation : operations) {
    web.Init(nullptr);  // leaves an error, which the guard clears
    try {
      operation();
      FAIL() << "nothing was raised";
    } catch (const AutomationException& raised) {
      EXPECT_EQ(raised.number(), 1500);
      EXPECT_EQ(raised.source(), "WebInterface");
      EXPECT_STREQ(raised.what(), "Oggetto non inizializzato");
    }
    ExpectNoError(web);
  }
}

TEST(WebInterfaceAlone, TheVersionIsDatabase) { EXPECT_EQ(WebInterface().Version(), "Database"); }

TEST(WebInterfaceAlone, ThePropertiesAreThoseOfTheAccountAndWorkBeforeInit) {
  WebInterface web;
  web.Username("name");
  web.Password("word");
  web.MailServer("host");
  web.ServerPort(1110);
  web.ServerTimeout(1234);
  web.MailListPageSize(12);
  EXPECT_EQ(web.Username(), "name");
  EXPECT_EQ(web.Password(), "word");
  EXPECT_EQ(web.MailServer(), "host");
  EXPECT_EQ(web.ServerPort(), 1110);
  EXPECT_EQ(web.ServerTimeout(), 1234);
  EXPECT_EQ(web.MailListPageSize(), 12);
  EXPECT_EQ(web.Account()->Username(), "name");
  EXPECT_EQ(web.UserId(), -100);
}

TEST(WebInterfaceAlone, FreshPropertiesHaveTheirInitialValues) {
  const WebInterface web;
  EXPECT_EQ(web.ServerPort(), 110);
  EXPECT_EQ(web.ServerTimeout(), -1);
  EXPECT_EQ(web.MailListPageSize(), 0);
  EXPECT_EQ(web.MailServer(), "");
}

using WebInterfaceTest = FacadeTest;

TEST_F(WebInterfaceTest, InitBeforeUserIdAndWithoutAConnectionReports1086) {
  WebInterface web;
  EXPECT_FALSE(web.Init(store.Boss()));
  EXPECT_EQ(web.GetLastError(), error::NoUser);
}

TEST_F(WebInterfaceTest, InitWithoutAConnectionReports1085) {
  WebInterface web;
  web.UserId(7);
  EXPECT_FALSE(web.Init(std::make_shared<BossObject>()));
  EXPECT_EQ(web.GetLastError(), error::NoConnection);
}

TEST_F(WebInterfaceTest, SettingsThatAreNotInitialisedReport1084) {
  WebInterface web;
  web.UserId(7);
  web.ConnDataBase(store.Connect());
  EXPECT_FALSE(web.Init(std::make_shared<BossObject>()));
  EXPECT_EQ(web.GetLastError(), error::BossNotInitialised);
  EXPECT_FALSE(web.Init(nullptr));
  EXPECT_EQ(web.GetLastError(), error::BossNotInitialised);
  EXPECT_EQ(web.GetLastErrorDesc(), "XXX");
}

TEST_F(WebInterfaceTest, AFailedInitTakesTheInitialisationBack) {
  auto web = Web();
  EXPECT_FALSE(web->Init(nullptr));
  EXPECT_THROW(web->NewMessage(), AutomationException);
  EXPECT_TRUE(web->Init(store.Boss()));
  EXPECT_TRUE(web->NewMessage());
}

TEST_F(WebInterfaceTest, InitWithoutAnAccountLoadsTheDefaultOne) {
  dovecot.AddUser("carl");
  AddAccount("carl", false);
  const auto web = Web();
  EXPECT_EQ(web->Account()->AccountId(), account);
  EXPECT_EQ(web->Username(), "bob");
}

TEST_F(WebInterfaceTest, AUserWithoutADefaultAccountFailsWith1035) {
  store.db().Execute("UPDATE utenti SET Account_default=NULL WHERE id_utente=7");
  WebInterface web;
  web.ConnDataBase(store.Connect());
  web.UserId(7);
  EXPECT_FALSE(web.Init(store.Boss()));
  EXPECT_EQ(web.GetLastError(), error::AccountNotFound);
}

TEST_F(WebInterfaceTest, InitWithMinus10LoadsNoAccountAndTakesTheSettingsTimeOutOnlyIfNoneWasSet) {
  EXPECT_EQ(Web(-10)->ServerTimeout(), 10'000);
  EXPECT_EQ(Web(-10)->Account()->AccountId(), -10);
  WebInterface web;
  web.ServerTimeout(321);
  web.ConnDataBase(store.Connect());
  web.UserId(7);
  EXPECT_TRUE(web.Init(store.Boss(), -10));
  EXPECT_EQ(web.ServerTimeout(), 321);
}

TEST_F(WebInterfaceTest, AfterInitThePageSizeIs25WhateverWasSetBefore) {
  WebInterface web;
  web.MailListPageSize(3);
  web.ConnDataBase(store.Connect());
  web.UserId(7);
  web.Init(store.Boss());
  EXPECT_EQ(web.MailListPageSize(), 25);
  web.MailListPageSize(3);
  EXPECT_EQ(web.MailListPageSize(), 3);
}

TEST_F(WebInterfaceTest, UserIdIsHandedOverByInitAndReachesTheAccountAfterwards) {
  WebInterface web;
  web.UserId(7);
  EXPECT_EQ(web.Account()->UserId(), 0);
  web.ConnDataBase(store.Connect());
  web.Init(store.Boss());
  EXPECT_EQ(web.Account()->UserId(), 7);
  web.UserId(9);
  EXPECT_EQ(web.Account()->UserId(), 9);
  EXPECT_EQ(web.UserId(), 9);
}

TEST_F(WebInterfaceTest, AnUninitialisedListingDoesNotChangeTheBox) {
  WebInterface web;
  EXPECT_THROW(web.GetListMessagesInBox(5), AutomationException);
  EXPECT_EQ(web.Account()->BoxId(), 0);
}

TEST_F(WebInterfaceTest, OfAKindThatKeepsNoPasswordTheOneOfThePageIsUsed) {
  dovecot.AddUser("carl");
  for (const Any& kind : {Any(1), Any(2), Any(nullptr)}) {
    const int32_t id = AddAccount("carl", false, kind);
    auto web = Web();
    EXPECT_FALSE(web->VerifyAccount(id)) << "the page gave none";
    EXPECT_EQ(web->GetLastError(), error::ConnectFailed);
    web->Password(DovecotServer::kPassword);
    EXPECT_TRUE(web->VerifyAccount(id));
    EXPECT_EQ(proxy->Count("PASS"), 1) << "nothing was sent without a password";
    proxy->Forget();
    store.db().Execute("DELETE FROM account_email_utenti WHERE Id_account_email=" +
                       std::to_string(id));
  }
}

TEST_F(WebInterfaceTest, OfAnyOtherKindTheStoredPasswordIsUsed) {
  auto web = Web();
  web->Password("of the page, and wrong");
  EXPECT_TRUE(web->VerifyAccount(account));
}

TEST_F(WebInterfaceTest, VerifyingTheCurrentAccountLogsInAndOut) {
  auto web = Web();
  EXPECT_TRUE(web->VerifyAccount());
  ExpectNoError(*web);
  const std::vector<std::string> commands = {"USER bob", "PASS", "QUIT"};
  EXPECT_EQ(proxy->Commands(), commands);
}

TEST_F(WebInterfaceTest, VerifyingAnotherAccountLeavesTheFormerOneLoaded) {
  dovecot.AddUser("carl");
  const int32_t other = AddAccount("carl", false);
  auto web = Web();
  EXPECT_TRUE(web->VerifyAccount(other));
  EXPECT_EQ(proxy->Commands().front(), "USER carl");
  EXPECT_EQ(web->Account()->AccountId(), account);
  EXPECT_EQ(web->Username(), "bob");
}

TEST_F(WebInterfaceTest, VerifyingWithAWrongPasswordIsTheServersRefusal) {
  store.ChangeAccount(account, "Password_server", "wrong");
  auto web = Web();
  EXPECT_FALSE(web->VerifyAccount());
  EXPECT_EQ(web->GetLastError(), error::ServerRefusedPassword);
  EXPECT_EQ(web->GetLastErrorDesc().find("-ERR"), 0u);
}

TEST_F(WebInterfaceTest, VerifyingAnAccountThatDoesNotExistIs1035AndKeepsTheFormerOne) {
  auto web = Web();
  EXPECT_FALSE(web->VerifyAccount(4711));
  EXPECT_EQ(web->GetLastError(), error::AccountNotFound);
  EXPECT_EQ(web->Account()->AccountId(), account);
  EXPECT_TRUE(web->VerifyAccount());
}

TEST_F(WebInterfaceTest, AFormerAccountThatIsGoneLeavesTheResultAndAnErrorOfItsOwn) {
  dovecot.AddUser("carl");
  const int32_t other = AddAccount("carl", false);
  auto web = Web();
  store.db().Execute("DELETE FROM account_email_utenti WHERE Id_account_email=" +
                     std::to_string(account));
  EXPECT_TRUE(web->VerifyAccount(other));
  EXPECT_EQ(web->GetLastError(), error::AccountNotFound);
  store.ChangeAccount(other, "Password_server", "wrong");
  EXPECT_FALSE(web->VerifyAccount(other));
  EXPECT_EQ(web->GetLastError(), error::ServerRefusedPassword);
}

TEST_F(WebInterfaceTest, AfterVerifyingWhatThePageSetItselfIsBack) {
  auto web = Web(-10);
  web->MailServer("127.0.0.1");
  web->ServerPort(proxy->port());
  web->Username("bob");
  web->Password(DovecotServer::kPassword);
  EXPECT_TRUE(web->VerifyAccount());
  dovecot.AddUser("carl");
  EXPECT_TRUE(web->VerifyAccount(AddAccount("carl", false)));
  EXPECT_EQ(web->Username(), "bob");
  EXPECT_EQ(web->Account()->AccountId(), -10);
  EXPECT_TRUE(web->VerifyAccount());
}

TEST_F(WebInterfaceTest, APageIsListedWithItsCountsAfterTheDownloadThatWasAskedFor) {
  Deliver(30);
  auto web = Web();
  Any pages = 0, mails = 0;
  const auto page =
      web->GetListMessagesInBox(1, -10, false, false, "", true, EMailOrder::ORDER_DATA,
                                EMailOrderDirection::ORDER_DESC, 2, &pages, &mails);
  ASSERT_TRUE(page);
  ExpectNoError(*web);
  EXPECT_EQ(page->Count(), 5);
  EXPECT_EQ(page->ItemIndex(5)->Subject(kNormal), "mail 1");
  EXPECT_EQ(pages.ToInt32(), 2);
  EXPECT_EQ(mails.ToInt32(), 30);
  EXPECT_EQ(web->Account()->BoxId(), 1);
}

TEST_F(WebInterfaceTest,
       OmittedParametersListTheWholeBoxNewestFirstFromHeadersOfTheCurrentAccount) {
  Deliver(30);
  auto web = Web();
  const auto page = web->GetListMessagesInBox(1);
  ASSERT_EQ(page->Count(), 30);
  EXPECT_EQ(page->ItemIndex(1)->Subject(kNormal), "mail 30");
  EXPECT_EQ(proxy->Count("RETR"), 0);
  EXPECT_EQ(proxy->Count("DELE"), 0);
  EXPECT_TRUE(store.Kept(account)->error) << "no first download was declared";
}

TEST_F(WebInterfaceTest, AServersErrorStandsBesideThePage) {
  auto web = Web();
  store.ChangeAccount(account, "Porta_server", kNobodysPort);
  web->ServerPort(kNobodysPort);
  EXPECT_TRUE(web->GetListMessagesInBox(1));
  EXPECT_EQ(web->GetLastError(), error::ConnectFailed);
}

TEST_F(WebInterfaceTest, APageOutOfRangeIs1007) {
  auto web = Web();
  EXPECT_TRUE(web->GetListMessagesInBox(1, -1, true, false, "", false, EMailOrder::ORDER_DATA,
                                        EMailOrderDirection::ORDER_DESC, 2));
  EXPECT_EQ(web->GetLastError(), error::ListingFailed);
}

TEST_F(WebInterfaceTest, OpeningAndDeletingForwardResultsAndErrors) {
  Deliver(3);
  auto web = Web();
  const auto page = web->GetListMessagesInBox(1);
  const auto message = web->GetMessage(page->ItemIndex(1)->Id(), false, "<HR>");
  ASSERT_TRUE(message);
  EXPECT_EQ(message->Subject(kNormal), "mail 3");
  EXPECT_EQ(message->MessageSeparator(), "<HR>");
  EXPECT_FALSE(web->GetMessage(4711));
  EXPECT_EQ(web->GetLastError(), error::MessageNotFound);
  EXPECT_FALSE(web->DeleteMessage("x"));
  EXPECT_EQ(web->GetLastError(), error::NoMessageGiven);
  EXPECT_TRUE(web->DeleteMessage(page->ItemIndex(2)->Id()));
  ExpectNoError(*web);
  EXPECT_EQ(dovecot.Count("bob"), 2) << "on the server as well, unless the page says otherwise";
  EXPECT_EQ(web->GetListMessagesInBox(1, -1)->Count(), 2);
}

TEST_F(WebInterfaceTest, AMessageOutlivesTheFacadeThatMadeIt) {
  Deliver(1);
  std::shared_ptr<MailMessage> message;
  {
    auto web = Web();
    message = web->GetMessage(web->GetListMessagesInBox(1)->ItemIndex(1)->Id());
  }
  std::string body;
  EXPECT_TRUE(message->MessageBody(body, ETextAlternativeType::AlterType_Default, kNormal));
  EXPECT_EQ(body, "text 1");
  EXPECT_EQ(message->GetAttachments()->Count(), 0);
}

TEST_F(WebInterfaceTest, ANewMessageIsComposedAndSavedAndOpenedAgain) {
  auto web = Web();
  const auto message = web->NewMessage("<P>");
  ASSERT_TRUE(message);
  EXPECT_EQ(message->MessageSeparator(), "<P>");
  message->NM_Subject("l'ora");
  message->NM_MessageBody("hello");
  ASSERT_TRUE(message->NM_Save(store.Connect()));
  const auto opened = web->GetMessage(message->Id());
  ASSERT_TRUE(opened);
  EXPECT_EQ(opened->Subject(kNormal), "l'ora");
}

TEST_F(WebInterfaceTest, ASuccessfulCleanLeavesNumber0AndTheTextXXX) {
  auto web = Web();
  EXPECT_TRUE(web->BackgroundClean());
  EXPECT_EQ(web->GetLastError(), 0);
  EXPECT_EQ(web->GetLastErrorDesc(), "XXX");
  EXPECT_TRUE(web->Finish());
  ExpectNoError(*web);
}

TEST_F(WebInterfaceTest, ACleanRemovesTheDeletedMessagesAndTheRestOpens) {
  Deliver(3);
  auto web = Web();
  web->GetListMessagesInBox(1, -10, false, false, "", true);
  const auto rows = store.Rows();
  ASSERT_TRUE(web->DeleteMessage(rows[0].id, EDelType::DEL_TYPE_LOCALE));
  store.db().Execute("UPDATE Pulizia SET dim_msg_canc_file=3145729 WHERE id_utente=7");
  const auto size = store.MessageFileSize();
  EXPECT_TRUE(web->BackgroundClean());
  EXPECT_EQ(store.Rows().size(), 2u);
  EXPECT_LT(store.MessageFileSize(), size);
  EXPECT_TRUE(web->GetMessage(rows[1].id));
  EXPECT_TRUE(web->GetMessage(rows[2].id));
  // The deleted one still lies on the server, and does not come back.
  web->GetListMessagesInBox(1);
  EXPECT_EQ(store.Rows().size(), 2u);
}

TEST_F(WebInterfaceTest, AFaultThatTheCleanDoesNotHandleIsRaisedAndLosesNothing) {
  Deliver(2);
  auto web = Web();
  web->GetListMessagesInBox(1, -10, false, false, "", true);
  const auto rows = store.Rows();
  web->DeleteMessage(rows[0].id, EDelType::DEL_TYPE_LOCALE);
  store.db().Execute("UPDATE Pulizia SET dim_msg_canc_file=3145729 WHERE id_utente=7");
  std::filesystem::rename(store.MessageFile(), store.MessageFile() + ".away");
  EXPECT_THROW(web->BackgroundClean(), std::runtime_error);
  std::filesystem::rename(store.MessageFile() + ".away", store.MessageFile());
  EXPECT_TRUE(web->GetMessage(rows[1].id));
}

TEST_F(WebInterfaceTest, ACleanWhoseConnectionWasTakenAwayIsRaised) {
  auto web = Web();
  web->ConnDataBase(nullptr);
  EXPECT_THROW(web->BackgroundClean(), DatabaseError);
  EXPECT_EQ(web->GetLastError(), 0);
  web->ConnDataBase(store.Connect());
  EXPECT_TRUE(web->BackgroundClean());
}

TEST_F(WebInterfaceTest, FinishReleasesNothing) {
  auto web = Web();
  EXPECT_TRUE(web->Finish());
  EXPECT_TRUE(web->VerifyAccount());
  EXPECT_TRUE(web->Finish());
}

}  // namespace
}  // namespace korvane::test
