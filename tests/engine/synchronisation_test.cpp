// Bringing the store up to date, against a real Dovecot.
#include <filesystem>
#include <fstream>
#include <thread>

#include "engine_fixture.h"
#include "frame/files.h"
#include "support/scripted_server.h"
#include "support/unnamed_files.h"

namespace korvane::test {
namespace {

using Synchronisation = ServerTest;
constexpr const char* kFirst = "01/01/0001 00:00:00";

const bool kReadsAhead = LocalHost().find("+ahead") != std::string::npos;

/// So that most of what the tests below deliver waits in the file.
MailServer::Limits LittleMemory() {
  MailServer::Limits limits;
  limits.in_memory = 10'000;
  return limits;
}

TEST_F(Synchronisation, ADeclaredFirstDownloadOf500MessagesStoresAllAndTheNextOneAsksForOneHeader) {
  Deliver(1, 500);
  Request first(store);
  const auto page = first.SyncWhole(true);
  ASSERT_EQ(first.Error(), 0) << first.engine.GetLastErrorDesc();
  EXPECT_EQ(Stored(), Expected(1, 500));
  EXPECT_EQ(first.mails.ToInt32(), 500);
  EXPECT_EQ(first.pages.ToInt32(), 20);
  ASSERT_EQ(page->Count(), 25);
  EXPECT_EQ(page->ItemIndex(1)->Subject(ETextFormat::TextFormat_Normal), "mail 500");
  EXPECT_EQ(proxy->Count("STAT"), 1);
  EXPECT_EQ(proxy->Count("TOP "), 500);
  EXPECT_EQ(proxy->Count("RETR "), 500);
  EXPECT_EQ(proxy->Count("LIST "), 1000);
  EXPECT_EQ(proxy->Count("UIDL "), 1000);
  EXPECT_EQ(proxy->Count("QUIT"), 1);
  const auto kept = store.Kept(account);
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->time, "05/03/2020 01:23:20");
  EXPECT_FALSE(kept->error);
  for (const auto& row : store.Rows()) {
    ASSERT_GT(row.position, 0);
    ASSERT_TRUE(row.known_with_older);
    ASSERT_EQ(row.account, account);
  }

  proxy->Forget();
  Request second(store);
  second.SyncWhole();
  EXPECT_EQ(second.Error(), 0);
  EXPECT_EQ(store.Rows().size(), 500u);
  const std::vector<std::string> commands = {"USER bob", "PASS",     "STAT", "TOP 500 0",
                                             "LIST 500", "UIDL 500", "QUIT"};
  EXPECT_EQ(proxy->Commands(), commands);

  // The records are what the rows say.
  Request opening(store);
  const auto message = opening.engine.GetMessage(store.Rows()[249].id, "", false);
  ASSERT_TRUE(message);
  std::string body;
  ASSERT_TRUE(message->MessageBody(body, ETextAlternativeType::AlterType_Text,
                                   ETextFormat::TextFormat_Normal));
  EXPECT_NE(body.find("text 250"), std::string::npos);
}

TEST_F(Synchronisation, WithoutADeclarationEveryMessageIsLookedUpAndStaysToBeLookedUp) {
  Deliver(1, 40);
  Request first(store);
  first.SyncWhole();
  EXPECT_EQ(first.Error(), 0);
  EXPECT_EQ(Stored(), Expected(1, 40));
  const auto kept = store.Kept(account);
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->time, kFirst);
  EXPECT_TRUE(kept->error);
  for (const auto& row : store.Rows()) ASSERT_FALSE(row.known_with_older);

  proxy->Forget();
  Request second(store);
  second.SyncWhole();
  EXPECT_EQ(second.Error(), 0);
  EXPECT_EQ(store.Rows().size(), 40u);
  EXPECT_EQ(proxy->Count("TOP "), 40);
  EXPECT_EQ(proxy->Count("RETR "), 0);
}

TEST_F(Synchronisation, ADeclaredFirstDownloadWithoutARowAsksTheDatabaseForNothing) {
  Deliver(1, 5);
  // Were the table asked, these rows would make every message known.
  Request earlier(store);
  earlier.SyncHeaders(true);
  store.db().Execute("DELETE FROM ultimi_scaricamenti WHERE id_utente=7");
  Request again(store);
  again.SyncHeaders(true);
  EXPECT_EQ(again.Error(), 0);
  EXPECT_EQ(store.Rows().size(), 10u);
}

TEST_F(Synchronisation, NewMailIsTakenFromTheNewestKnownMessageOn) {
  Deliver(1, 20);
  Request(store).SyncWhole(true);
  Deliver(21, 23);
  proxy->Forget();
  Request second(store);
  second.SyncWhole();
  EXPECT_EQ(second.Error(), 0);
  EXPECT_EQ(Stored(), Expected(1, 23));
  // Commands sent ahead go beyond the message that ends the scan, by no more than the window.
  const int ahead = kReadsAhead ? 12 : 0;
  EXPECT_GE(proxy->Count("TOP "), 4);
  EXPECT_LE(proxy->Count("TOP "), 4 + ahead);
  EXPECT_GE(proxy->Count("RETR "), 3);
  EXPECT_LE(proxy->Count("RETR "), 3 + ahead);
  EXPECT_EQ(store.Kept(account)->time, "05/03/2020 00:03:50");
}

TEST_F(Synchronisation, HeadersOnlyMakeRowsWithoutRecords) {
  Deliver(1, 12);
  Request request(store);
  request.SyncHeaders(true);
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(Stored(), Expected(1, 12));
  EXPECT_EQ(proxy->Count("RETR "), 0);
  EXPECT_EQ(store.MessageFileSize(), -1);
  for (const auto& row : store.Rows()) {
    EXPECT_EQ(row.position, -1);
    EXPECT_TRUE(row.known_with_older);
    EXPECT_GT(row.size, 0);
  }
  EXPECT_FALSE(store.Kept(account)->error);
}

TEST_F(Synchronisation, MessagesAreStoredFromTheOldestToTheNewest) {
  Deliver(1, 9);
  Request(store).SyncWhole(true);
  EXPECT_EQ(store.Subjects().front(), "mail 1");
  EXPECT_EQ(store.Subjects().back(), "mail 9");
  EXPECT_EQ(store.Rows().front().id, 1);
}

TEST_F(Synchronisation, OverTlsTheSameIsStored) {
  Deliver(1, 30);
  ::setenv("SSL_CERT_FILE", dovecot.certificate().c_str(), 1);
  store.ChangeAccount(account, "Porta_server", dovecot.tls_port());
  for (const char* host : {"pop3s://localhost", "pop3s+ahead://localhost",
                           "pop3s-insecure://127.0.0.1", "pop3s-insecure+ahead://127.0.0.1"}) {
    SCOPED_TRACE(host);
    store.ChangeAccount(account, "Nome_server", host);
    store.db().Execute("DELETE FROM mail WHERE id_utente=7");
    store.db().Execute("DELETE FROM ultimi_scaricamenti WHERE id_utente=7");
    Request first(store);
    first.SyncWhole(true);
    EXPECT_EQ(first.Error(), 0) << first.engine.GetLastErrorDesc();
    EXPECT_EQ(Stored(), Expected(1, 30));
    Request second(store);
    second.SyncWhole();
    EXPECT_EQ(second.Error(), 0);
    EXPECT_EQ(store.Rows().size(), 30u);
  }
}

TEST_F(Synchronisation, DeletingOnTheServerEmptiesItAndTheRowsSaySo) {
  Deliver(1, 130);  // more than a batch
  Request request(store);
  request.SyncWhole(true, true);
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(dovecot.Count("bob"), 0);
  EXPECT_EQ(Stored(), Expected(1, 130));
  for (const auto& row : store.Rows()) ASSERT_EQ(row.number, -100);
  // The rest of the mailbox is empty, and so is the next run.
  Request second(store);
  second.SyncWhole(false, true);
  EXPECT_EQ(second.Error(), 0);
  EXPECT_EQ(store.Rows().size(), 130u);
}

TEST_F(Synchronisation, AMessageWhoseRecordCouldNotBeWrittenStaysOnTheServer) {
  Deliver(1, 3);
  std::filesystem::create_directory(store.MessageFile());  // no file can be opened there
  Request request(store);
  request.SyncWhole(true, true);
  EXPECT_EQ(dovecot.Count("bob"), 3);
  const auto rows = store.Rows();
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[0].position, -1);
  EXPECT_EQ(rows[0].number, 1);
  EXPECT_EQ(rows[2].number, 3);
  EXPECT_TRUE(store.AttachmentFiles().empty());
}

TEST_F(Synchronisation, MinusOneContactsNoServerAndTouchesNoBookkeeping) {
  Deliver(1, 2);
  Request request(store);
  MailEngine::SyncRequest none;
  none.server_id = -1;
  const auto page = request.Sync(none);
  ASSERT_TRUE(page);
  EXPECT_EQ(page->Count(), 0);
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(proxy->Connections(), 0);
  EXPECT_FALSE(store.Kept(account));
}

TEST_F(Synchronisation, AnUndeclaredFirstRunMakesTheRowAndChecksEveryMessage) {
  Deliver(1, 3);
  Request(store).SyncHeaders(true);  // three rows known
  store.db().Execute("DELETE FROM ultimi_scaricamenti WHERE id_utente=7");
  // Nothing but the look-ups may decide.
  store.db().Execute("UPDATE mail SET DwnldCorrettoFAQ=0");
  Deliver(4, 5);
  Request request(store);
  request.SyncHeaders(false);
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(Stored(), Expected(1, 5));
  EXPECT_EQ(store.Kept(account)->time, kFirst);
}

TEST_F(Synchronisation, ARunInterruptedAfterItBeganLeavesItsMarkAndTheNextChecksEveryMessage) {
  Deliver(1, 6);
  Request(store).SyncWhole(true);
  store.Keep(account, {store.Kept(account)->time, true});
  store.Change(store.Rows()[5].id, "id_utente", 99);  // the newest was not stored
  Request request(store);
  request.SyncWhole();
  EXPECT_EQ(Stored(), Expected(1, 6));
  EXPECT_TRUE(store.Kept(account)->error);
  EXPECT_FALSE(store.Rows().back().known_with_older);
}

TEST_F(Synchronisation, WhileARunGoesOnItsRowIsMarked) {
  Deliver(1, 2);
  Request(store).SyncWhole(true);
  bool marked = false;
  Store& looked_at = store;
  const int32_t id = account;
  proxy->OnCommand([&](const std::string& line) {
    if (line == "STAT") marked = looked_at.Kept(id)->error;
  });
  Request(store).SyncWhole();
  EXPECT_TRUE(marked);
  EXPECT_FALSE(store.Kept(account)->error);
}

TEST_F(Synchronisation, AServerThatCannotBeReachedStillGivesThePageWithTheClientsError) {
  Deliver(1, 4);
  Request(store).SyncWhole(true);
  const auto kept = store.Kept(account);
  store.ChangeAccount(account, "Porta_server", kNobodysPort);
  Request request(store);
  const auto page = request.SyncWhole();
  EXPECT_EQ(request.Error(), error::ConnectFailed);
  ASSERT_TRUE(page);
  EXPECT_EQ(page->Count(), 4);
  EXPECT_EQ(store.Kept(account)->time, kept->time);
  EXPECT_FALSE(store.Kept(account)->error);
}

TEST_F(Synchronisation, AWrongPasswordIsTheServersRefusal) {
  store.ChangeAccount(account, "Password_server", "wrong");
  Request request(store);
  EXPECT_TRUE(request.SyncWhole());
  EXPECT_EQ(request.Error(), error::ServerRefusedPassword);
  EXPECT_EQ(request.engine.GetLastErrorDesc().substr(0, 4), "-ERR");
  EXPECT_FALSE(store.Kept(account));
}

TEST_F(Synchronisation, AllAccountsAreSynchronisedAndTheFormerOneIsLoadedAgain) {
  dovecot.AddUser("carl");
  const int32_t other = AddAccount("carl", false);
  Deliver(1, 3);
  dovecot.Deliver("carl", Mail(100, 1000));
  Request request(store);  // the default account, the first
  MailEngine::SyncRequest all;
  all.server_id = -100;
  all.header_only = false;
  all.first_download = true;
  request.Sync(all);
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(request.account_object->AccountId(), account);
  EXPECT_EQ(request.account_object->Username(), "bob");
  EXPECT_TRUE(store.Kept(account));
  EXPECT_TRUE(store.Kept(other));
  int of_other = 0;
  for (const auto& row : store.Rows()) of_other += row.account == other;
  EXPECT_EQ(store.Rows().size(), 4u);
  EXPECT_EQ(of_other, 1);
}

TEST_F(Synchronisation, OfSeveralAccountsOneThatFailsDoesNotStopTheOthers) {
  dovecot.AddUser("carl");
  AddAccount("carl", false);
  dovecot.Deliver("carl", Mail(100, 1000));
  store.ChangeAccount(account, "Password_server", "wrong");
  Request request(store);
  MailEngine::SyncRequest all;
  all.server_id = -100;
  request.Sync(all);
  EXPECT_EQ(request.Error(), error::ServerRefusedPassword);
  EXPECT_EQ(Stored(), std::vector<std::string>{"mail 100"});
}

TEST_F(Synchronisation, AfterAllAccountsWhatThePageHadSetIsBackWhenNoAccountWasLoaded) {
  Deliver(1, 1);
  Request request(store, MailUser::kNoAccount);
  request.account_object->MailServer("page.example");
  request.account_object->Username("page");
  request.account_object->Password("of the page");
  MailEngine::SyncRequest all;
  all.server_id = -100;
  request.Sync(all);
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(request.account_object->AccountId(), MailUser::kNoAccount);
  EXPECT_EQ(request.account_object->MailServer(), "page.example");
  EXPECT_EQ(request.account_object->Password(), "of the page");
}

TEST_F(Synchronisation, AUserWithoutAccountsKeepsError1031) {
  Request request(store, MailUser::kNoAccount, 8);
  MailEngine::SyncRequest all;
  all.server_id = -100;
  EXPECT_TRUE(request.Sync(all));
  EXPECT_EQ(request.Error(), error::NoAccounts);
}

TEST_F(Synchronisation, OneGivenAccountIsSynchronisedAndTheFormerOneIsLoadedAgain) {
  dovecot.AddUser("carl");
  const int32_t other = AddAccount("carl", false);
  Deliver(1, 2);
  dovecot.Deliver("carl", Mail(100, 1000));
  Request request(store);
  MailEngine::SyncRequest one;
  one.server_id = other;
  request.Sync(one);
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(Stored(), std::vector<std::string>{"mail 100"});
  EXPECT_EQ(request.account_object->AccountId(), account);
}

TEST_F(Synchronisation, AnAccountThatDoesNotExistIsError1035AndThePageComes) {
  Request request(store);
  MailEngine::SyncRequest one;
  one.server_id = 4711;
  EXPECT_TRUE(request.Sync(one));
  EXPECT_EQ(request.Error(), error::AccountNotFound);
  EXPECT_EQ(request.account_object->AccountId(), account);
  EXPECT_EQ(proxy->Connections(), 0);
}

TEST_F(Synchronisation, AFormerAccountThatIsGoneIsAnErrorOnlyWhereNoneIsSet) {
  dovecot.AddUser("carl");
  const int32_t other = AddAccount("carl", false);
  Request request(store);
  store.db().Execute("DELETE FROM account_email_utenti WHERE Id_account_email=" +
                     std::to_string(account));
  MailEngine::SyncRequest one;
  one.server_id = other;
  request.Sync(one);
  EXPECT_EQ(request.Error(), error::AccountNotFound);
  EXPECT_EQ(request.account_object->Username(), "bob");

  store.ChangeAccount(other, "Password_server", "wrong");
  request.Sync(one);
  EXPECT_EQ(request.Error(), error::ServerRefusedPassword);

  MailEngine::SyncRequest all;
  all.server_id = -100;
  request.Sync(all);
  EXPECT_EQ(request.Error(), error::AccountNotFound) << "over all accounts the later error stays";
}

TEST_F(Synchronisation, ASecondRunOfTheSameAccountListsWithoutOne) {
  Deliver(1, 3);
  const FileLock held(store.MessageFolder() + "/7_" + std::to_string(account) + "_sync.lock");
  ASSERT_EQ(held.state(), FileLock::State::kHeld);
  Request request(store);
  EXPECT_TRUE(request.SyncWhole(true));
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(proxy->Connections(), 0);
  EXPECT_FALSE(store.Kept(account));
}

TEST_F(Synchronisation, TwoRunsAtOnceStoreEveryMessageOnce) {
  Deliver(1, 60);
  std::vector<std::thread> runs;
  for (int i = 0; i < 4; ++i) {
    runs.emplace_back([this] {
      Request request(store);
      request.SyncWhole(true);
    });
  }
  for (auto& run : runs) run.join();
  EXPECT_EQ(Stored(), Expected(1, 60));
}

TEST_F(Synchronisation, ThePageIsOutOfRangeWithError1007) {
  Request request(store);
  MailMessages::ListRequest list;
  list.page = 2;
  MailEngine::SyncRequest none;
  none.server_id = -1;
  Any pages, mails;
  EXPECT_TRUE(request.engine.GetListMessagesInBox(none, list, &pages, &mails));
  EXPECT_EQ(request.Error(), error::ListingFailed);
  EXPECT_EQ(request.engine.GetLastErrorDesc(), "XXX");
}

/// Subjects in the order of identifiers, which has to be that of the records.
std::vector<std::string> InOrderOfStoring(Store& store) {
  std::vector<std::string> subjects;
  int32_t id = 0;
  int32_t position = 0;
  for (const auto& row : store.Rows()) {
    EXPECT_GT(row.id, id);
    EXPECT_GT(row.position, position);
    id = row.id;
    position = row.position;
    subjects.push_back(row.subject);
  }
  return subjects;
}

TEST_F(Synchronisation, AMailboxLargerThanTheMemoryForItIsStoredOldestFirst) {
  std::vector<std::string> expected;
  for (int i = 1; i <= 40; ++i) {
    dovecot.Deliver("bob", Mail(i, i * 10, "", std::string(2'000, 'x')));
    expected.push_back("mail " + std::to_string(i));
  }
  for (const bool delete_on_server : {false, true}) {
    proxy->Forget();
    Request request(store);
    request.server->SetLimits(LittleMemory());
    request.SyncWhole(true, delete_on_server);
    EXPECT_EQ(request.Error(), 0);
    EXPECT_EQ(InOrderOfStoring(store), expected);
    EXPECT_EQ(proxy->Connections(), 1);
    EXPECT_EQ(proxy->Count("TOP "), 40);
    EXPECT_EQ(proxy->Count("RETR "), 40);
    EXPECT_EQ(dovecot.Count("bob"), delete_on_server ? 0 : 40);
    EXPECT_EQ(store.Kept(account)->time, "05/03/2020 00:06:40");
    EXPECT_FALSE(store.Kept(account)->error);
    for (const auto& row : store.Rows()) EXPECT_TRUE(row.known_with_older);
    Request check(store);
    for (const auto& row : store.Rows()) {
      EXPECT_EQ(check.engine.GetMessage(row.id, "", false)->Subject(ETextFormat::TextFormat_Normal),
                row.subject);
    }
    store.db().Execute("DELETE FROM mail WHERE id_utente=7");
    store.db().Execute("DELETE FROM ultimi_scaricamenti WHERE id_utente=7");
    std::filesystem::remove(store.MessageFile());
  }
}

TEST_F(Synchronisation, HeadersBeyondTheMemoryForThemAreStoredOldestFirst) {
  Deliver(1, 60);
  Request request(store);
  MailServer::Limits limits;
  limits.in_memory = 500;
  request.server->SetLimits(limits);
  MailEngine::SyncRequest sync;
  sync.header_only = sync.first_download = true;
  request.Sync(sync);
  EXPECT_EQ(request.Error(), 0);
  std::vector<std::string> subjects;
  for (const auto& row : store.Rows()) subjects.push_back(row.subject);
  std::vector<std::string> expected;
  for (int i = 1; i <= 60; ++i) expected.push_back("mail " + std::to_string(i));
  EXPECT_EQ(subjects, expected);
}

TEST_F(Synchronisation, WhatWaitsLeavesNoFileBehind) {
  for (int i = 1; i <= 20; ++i) {
    dovecot.Deliver("bob", Mail(i, i * 10, "", std::string(2'000, 'x')));
  }
  Request request(store);
  request.server->SetLimits(LittleMemory());
  bool looked = false;
  request.engine.OnStored([&](int32_t, int32_t) {
    looked = true;
    for (const auto& entry : std::filesystem::directory_iterator(store.MessageFolder())) {
      EXPECT_FALSE(IsTemporaryName(entry.path().filename().string())) << entry.path();
    }
  });
  request.SyncWhole(true);
  EXPECT_TRUE(looked);
}

TEST_F(Synchronisation, WhatCannotBeReadAnyMoreIs1070AndComesTheNextTime) {
  for (int i = 1; i <= 20; ++i) {
    dovecot.Deliver("bob", Mail(i, i * 10, "", std::string(2'000, 'x')));
  }
  Request damaged(store);
  damaged.server->SetLimits(LittleMemory());
  damaged.server->OnProgress([&](const SelectionProgress& now) {
    if (now.looked_at < now.total) return;
    EXPECT_EQ(CutUnnamedFiles(store.MessageFolder(), 1'000), 1);
  });
  damaged.SyncWhole(true, true);
  EXPECT_EQ(damaged.Error(), error::SelectMessageFailed);
  EXPECT_TRUE(store.Rows().empty()) << "none is stored before an older one";
  EXPECT_TRUE(store.Kept(account)->error);
  EXPECT_EQ(dovecot.Count("bob"), 20);
  Request request(store);
  request.SyncWhole();
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(Stored(), Expected(1, 20));
}

TEST_F(Synchronisation, ADownloadThatIsCutWhileItWaitsIsStoredAsFarAsItCameAndResumedUnderLookUps) {
  for (int i = 1; i <= 20; ++i) {
    dovecot.Deliver("bob", Mail(i, i * 10, "", std::string(2'000, 'x')));
  }
  proxy->Set({.cut_at_verb = "RETR 7"});
  Request cut(store);
  cut.server->SetLimits(LittleMemory());
  cut.SyncWhole(true);
  EXPECT_EQ(cut.Error(), error::SelectMessageFailed);
  EXPECT_EQ(Stored(), Expected(8, 20));
  EXPECT_TRUE(store.Kept(account)->error);
  proxy->Clear();
  Request request(store);
  request.SyncWhole();
  EXPECT_EQ(Stored(), Expected(1, 20));
}

TEST_F(Synchronisation, ADatabaseThatWritesTheMonthFirstKeepsTheSameTimes) {
  Deliver(1, 3);
  const auto month_first = [&] { return OpenDatabase(store.url() + "?dates=month-first"); };
  const auto boss = store.Boss();
  ASSERT_TRUE(boss->Init2(month_first()));
  ASSERT_EQ(boss->IsEnglishDate(), 1);
  const auto run = [&](bool first) {
    Request request(store, month_first());
    request.account_object->InitFromConfig(*boss, request.connection, 7, account);
    request.SyncWhole(first);
    EXPECT_EQ(request.Error(), 0);
  };
  run(true);
  EXPECT_EQ(store.Kept(account)->time, "05/03/2020 00:00:30") << "seen day first";
  proxy->Forget();
  run(false);
  EXPECT_EQ(proxy->Count("TOP "), 1);
  EXPECT_EQ(Stored(), Expected(1, 3));
}

TEST_F(Synchronisation, WithoutAFolderForMessageFilesThereAreRowsAndNoFiles) {
  Deliver(1, 2);
  Request request(store, MailUser::kNoAccount);
  BossObject boss;
  boss.InitDefaults(1);
  request.account_object->InitFromConfig(boss, request.connection, 7, account);
  request.SyncWhole(true, true);
  EXPECT_EQ(Stored(), Expected(1, 2));
  for (const auto& row : store.Rows()) EXPECT_EQ(row.position, -1);
  EXPECT_EQ(dovecot.Count("bob"), 2);
}

TEST_F(Synchronisation, AMessageAheadOfTheClockByMoreThanADayDoesNotStopLaterMail) {
  Deliver(1, 2);
  dovecot.Deliver("bob",
                  "Received: from a by b; Thu, 5 Mar 2099 10:00:00 +0000\nMessage-ID: <3@a>"
                  "\nSubject: mail 3\n\nfrom the future\n");
  Request(store).SyncWhole(true);
  EXPECT_EQ(store.Kept(account)->time, "05/03/2020 00:00:20");
  EXPECT_TRUE(store.Kept(account)->error) << "the newest message's time says nothing";
  Deliver(4, 5);
  Request(store).SyncWhole();
  EXPECT_EQ(Stored(), Expected(1, 5));
  Request(store).SyncWhole();
  EXPECT_EQ(Stored(), Expected(1, 5));
}

TEST_F(Synchronisation, AServerThatTurnsTheConnectionAwayIsAnError) {
  ScriptedServer server;
  server.SayLine("-ERR not now").Hear("QUIT").SayLine("+OK");
  store.ChangeAccount(account, "Porta_server", server.Start());
  Request request(store);
  EXPECT_TRUE(request.SyncWhole(true));
  EXPECT_EQ(request.Error(), error::ReceiveFailed);
  EXPECT_TRUE(store.Rows().empty());
}

TEST_F(Synchronisation, ASelectionThatStopsOnARefusalStoresWhatItHadAndLooksUpFromThenOn) {
  Deliver(1, 10);
  proxy->Set({.cut_at_verb = "TOP 4 "});
  Request request(store);
  request.SyncWhole(true);
  EXPECT_EQ(request.Error(), error::SelectMessageHeaderFailed);
  EXPECT_EQ(Stored(), Expected(5, 10));
  EXPECT_TRUE(store.Kept(account)->error);
  EXPECT_EQ(store.Kept(account)->time, kFirst);
  for (const auto& row : store.Rows()) EXPECT_FALSE(row.known_with_older);
  proxy->Clear();
  Request second(store);
  second.SyncWhole(true);
  EXPECT_EQ(second.Error(), 0);
  EXPECT_EQ(Stored(), Expected(1, 10));
}

TEST_F(Synchronisation, ASelectionThatCannotStartLeavesTimeAndFlagAsTheyWere) {
  Deliver(1, 2);
  Request(store).SyncWhole(true);
  const auto before = *store.Kept(account);
  proxy->Set({.cut_before_reply_to = "STAT"});
  Request request(store);
  request.SyncWhole();
  EXPECT_EQ(request.Error(), error::ReceiveFailed);
  EXPECT_EQ(store.Kept(account)->time, before.time);
  EXPECT_FALSE(store.Kept(account)->error);
}

TEST_F(Synchronisation, AServerWithoutMailChangesNothing) {
  Request request(store);
  const auto page = request.SyncWhole(true);
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(page->Count(), 0);
  EXPECT_EQ(store.Kept(account)->time, kFirst);
  EXPECT_FALSE(store.Kept(account)->error);
  Deliver(1, 2);
  Request second(store);
  second.SyncWhole();
  EXPECT_EQ(Stored(), Expected(1, 2));
  EXPECT_EQ(store.Rows()[1].known_with_older, true);
}

TEST_F(Synchronisation, WhenQuitIsNotAnsweredTheRowsDeletedOnTheServerGetTheirNumbersBack) {
  Deliver(1, 4);
  proxy->Set({.cut_at_verb = "QUIT"});
  Request request(store);
  request.SyncWhole(true, true);
  EXPECT_NE(request.Error(), 0);
  EXPECT_EQ(dovecot.Count("bob"), 4);
  int number = 0;
  for (const auto& row : store.Rows()) EXPECT_EQ(row.number, ++number);
  // They are known: nothing comes twice, and a deletion finds them.
  proxy->Clear();
  Request second(store);
  second.SyncWhole(false, true);
  EXPECT_EQ(Stored(), Expected(1, 4));
}

TEST_F(Synchronisation, ARowIsCommittedBeforeDeleAndMarkedBeforeQuit) {
  Deliver(1, 3);
  std::vector<int32_t> at_dele, at_quit;
  proxy->OnCommand([&](const std::string& line) {
    if (line == "DELE 1") {
      for (const auto& row : store.Rows()) at_dele.push_back(row.number);
    }
    if (line == "QUIT") {
      for (const auto& row : store.Rows()) at_quit.push_back(row.number);
    }
  });
  Request(store).SyncWhole(true, true);
  EXPECT_EQ(at_dele, (std::vector<int32_t>{1, 2, 3}));
  EXPECT_EQ(at_quit, (std::vector<int32_t>{-100, -100, -100}));
}

TEST_F(Synchronisation, AMessageWhoseDeletionIsRefusedKeepsItsNumber) {
  Deliver(1, 3);
  proxy->Set({.cut_at_verb = "DELE 2"});
  Request request(store);
  request.SyncWhole(true, true);
  EXPECT_EQ(dovecot.Count("bob"), 3);
  EXPECT_EQ(Stored(), Expected(1, 3));
  int number = 0;
  for (const auto& row : store.Rows()) EXPECT_EQ(row.number, ++number);
}

TEST_F(Synchronisation, AMessageOfADayThatNoCalendarHasIsStoredOnceAndDated) {
  for (const char* subject : {"mail 1", "mail 2"}) {
    dovecot.Deliver("bob", std::string("Received: from a by b; Thu, 29 Feb 1900 10:20:30 +0000\n"
                                       "Message-ID: <") +
                               subject[5] + "@a.example>\nSubject: " + subject + "\n\ntext\n");
  }
  for (int run = 0; run < 3; ++run) {
    Request request(store);
    request.SyncWhole(run == 0);
    EXPECT_EQ(request.Error(), 0) << run;
    EXPECT_EQ(Stored(), Expected(1, 2)) << run;
  }
  const auto row = store.db().Open("SELECT * FROM mail WHERE id_mail=1");
  EXPECT_EQ(row->Field("data").ToText(), "28/02/1900 10:20:30");
}

TEST_F(Synchronisation, TwoUsersMessagesNeverShareAnIdentifier) {
  dovecot.AddUser("ann");
  for (int i = 1; i <= 4; ++i) {
    dovecot.Deliver("ann", Mail(i, i));
    dovecot.Deliver("bob", Mail(i, i));
  }
  Store::Account other;
  other.user = 8;
  other.port = proxy->port();
  other.name = "ann";
  other.password = DovecotServer::kPassword;
  const int32_t anns = store.Add(other);
  Request(store, account).SyncWhole(true);
  Request(store, anns, 8).SyncWhole(true);
  EXPECT_EQ(store.CountOf("SELECT COUNT(*) FROM mail WHERE id_utente=7"), 4);
  EXPECT_EQ(store.CountOf("SELECT COUNT(*) FROM mail WHERE id_utente=8"), 4);
  EXPECT_EQ(store.CountOf("SELECT COUNT(DISTINCT id_mail) FROM mail"), 8);
}

}  // namespace
}  // namespace korvane::test
