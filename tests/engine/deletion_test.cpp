// Deleting messages here, on the server and both.
#include "engine_fixture.h"
#include "support/scripted_server.h"

namespace korvane::test {
namespace {

constexpr auto kServer = EDelType::DEL_TYPE_SERVER;
constexpr auto kHere = EDelType::DEL_TYPE_LOCALE;
constexpr auto kBoth = EDelType::DEL_TYPE_LOCALE_SERVER;

class Deletion : public ServerTest {
 protected:
  std::vector<Store::Row> Fill(int count, bool whole = true) {
    Deliver(1, count);
    Request request(store);
    whole ? request.SyncWhole(true) : request.SyncHeaders(true);
    EXPECT_EQ(request.Error(), 0);
    proxy->Forget();
    return store.Rows();
  }
  static std::string Ids(const std::vector<Store::Row>& rows) {
    std::string ids;
    for (const auto& row : rows) ids += (ids.empty() ? "" : ",") + std::to_string(row.id);
    return ids;
  }
};

TEST_F(Deletion, TwoMessagesDeletedHereAreMarkedWithoutAServerAndTheirSizesCounted) {
  const auto rows = Fill(3);
  store.Change(rows[1].id, "dimensione", 0);
  Request request(store);
  EXPECT_TRUE(request.engine.DeleteMessage(
      std::to_string(rows[0].id) + "," + std::to_string(rows[1].id), kHere));
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(proxy->Connections(), 0);
  EXPECT_TRUE(store.RowOf(rows[0].id).deleted);
  EXPECT_TRUE(store.RowOf(rows[1].id).deleted);
  EXPECT_FALSE(store.RowOf(rows[2].id).deleted);
  EXPECT_EQ(store.RowOf(rows[0].id).number, 1) << "it is still on the server";
  // The counter's row is made of the rows themselves, by their column; from then on it is added to.
  EXPECT_EQ(store.DeadBytes(), rows[0].size);
  EXPECT_TRUE(request.engine.DeleteMessage(std::to_string(rows[1].id), kHere));
  EXPECT_EQ(store.DeadBytes(), rows[0].size + 15360);
  EXPECT_TRUE(request.engine.DeleteMessage(rows[2].id, kHere));
  EXPECT_EQ(store.DeadBytes(), rows[0].size + 15360 + rows[2].size);
}

TEST_F(Deletion, OnlyMessagesWithARecordAreCounted) {
  const auto rows = Fill(2, false);
  Request request(store);
  EXPECT_TRUE(request.engine.DeleteMessage(Ids(rows), kHere));
  EXPECT_TRUE(store.RowOf(rows[0].id).deleted);
  EXPECT_FALSE(store.DeadBytes());
}

TEST_F(Deletion, OnTheServerOnlyLeavesTheRowAndItsNumberSaysSo) {
  const auto rows = Fill(3);
  Request request(store);
  EXPECT_TRUE(request.engine.DeleteMessage(std::to_string(rows[1].id), kServer));
  EXPECT_EQ(dovecot.Count("bob"), 2);
  EXPECT_EQ(store.RowOf(rows[1].id).number, -100);
  EXPECT_FALSE(store.RowOf(rows[1].id).deleted);
  EXPECT_FALSE(store.DeadBytes());
  // A second time there is nothing to do on the server.
  proxy->Forget();
  EXPECT_TRUE(request.engine.DeleteMessage(std::to_string(rows[1].id), kServer));
  EXPECT_EQ(proxy->Connections(), 0);
}

TEST_F(Deletion, BothDeletesThereAndHere) {
  const auto rows = Fill(4);
  Request request(store);
  EXPECT_TRUE(request.engine.DeleteMessage(Ids({rows[0], rows[2]}), kBoth));
  EXPECT_EQ(dovecot.Count("bob"), 2);
  EXPECT_EQ(proxy->Count("QUIT"), 1);
  EXPECT_EQ(proxy->Count("DELE"), 2);
  for (const size_t i : {0u, 2u}) {
    EXPECT_TRUE(store.RowOf(rows[i].id).deleted);
    EXPECT_EQ(store.RowOf(rows[i].id).number, -100);
  }
  EXPECT_EQ(store.DeadBytes(), rows[0].size + rows[2].size);
}

TEST_F(Deletion, AMessageThatIsNoLongerOnTheServerCountsAsDeleted) {
  const auto rows = Fill(2);
  dovecot.Empty("bob");
  Deliver(10, 10);
  Request request(store);
  EXPECT_TRUE(request.engine.DeleteMessage(std::to_string(rows[0].id), kBoth));
  EXPECT_TRUE(store.RowOf(rows[0].id).deleted);
  EXPECT_EQ(dovecot.Count("bob"), 1);
}

TEST_F(Deletion, WhenTheLoginFailsBothLeavesEveryRowAsItWasAfterOneTry) {
  const auto rows = Fill(3);
  store.ChangeAccount(account, "Password_server", "wrong");
  Request request(store);
  EXPECT_FALSE(request.engine.DeleteMessage(Ids(rows), kBoth));
  EXPECT_EQ(request.Error(), error::ServerRefusedPassword);
  EXPECT_EQ(proxy->Count("PASS"), 1);
  for (const auto& row : store.Rows()) {
    EXPECT_FALSE(row.deleted);
    EXPECT_GT(row.number, 0);
  }
  EXPECT_FALSE(store.DeadBytes());
  EXPECT_EQ(dovecot.Count("bob"), 3);
}

TEST_F(Deletion, AnAccountThatIsGoneFailsItsRowsOnly) {
  const auto rows = Fill(3);
  store.Change(rows[0].id, "id_server", 4711);
  Request request(store);
  EXPECT_FALSE(request.engine.DeleteMessage(Ids(rows), kBoth));
  EXPECT_EQ(request.Error(), error::AccountNotFound);
  EXPECT_FALSE(store.RowOf(rows[0].id).deleted);
  EXPECT_TRUE(store.RowOf(rows[1].id).deleted);
  EXPECT_TRUE(store.RowOf(rows[2].id).deleted);
  EXPECT_EQ(request.account_object->AccountId(), account);
}

TEST_F(Deletion, ASavedMessageIsOnlyDeletedHere) {
  const auto rows = Fill(2);
  store.Change(rows[0].id, "id_server", -1);
  Request request(store);
  EXPECT_TRUE(request.engine.DeleteMessage(std::to_string(rows[0].id), kBoth));
  EXPECT_TRUE(store.RowOf(rows[0].id).deleted);
  EXPECT_EQ(proxy->Connections(), 0);
  EXPECT_EQ(dovecot.Count("bob"), 2);
}

TEST_F(Deletion, OverSeveralAccountsEachHasOneSessionAndTheFormerOneIsLoadedAgain) {
  dovecot.AddUser("carl");
  const int32_t other = AddAccount("carl", false);
  Deliver(1, 2);
  for (int i = 3; i <= 4; ++i) dovecot.Deliver("carl", Mail(i, i * 10));
  Request sync(store);
  MailEngine::SyncRequest all;
  all.server_id = -100;
  all.header_only = false;
  all.first_download = true;
  sync.Sync(all);
  const auto rows = store.Rows();
  ASSERT_EQ(rows.size(), 4u);
  proxy->Forget();
  Request request(store);
  // Mixed: the rows are taken account by account.
  EXPECT_TRUE(request.engine.DeleteMessage(Ids({rows[3], rows[0], rows[2], rows[1]}), kBoth));
  EXPECT_EQ(proxy->Connections(), 2);
  EXPECT_EQ(proxy->Count("QUIT"), 2);
  EXPECT_EQ(dovecot.Count("bob") + dovecot.Count("carl"), 0);
  EXPECT_EQ(request.account_object->AccountId(), account);
  EXPECT_NE(account, other);
}

TEST_F(Deletion, RowsOfAnotherUserArePassedOver) {
  const auto rows = Fill(2);
  store.Change(rows[0].id, "id_utente", 8);
  Request request(store);
  EXPECT_TRUE(request.engine.DeleteMessage(Ids(rows), kHere));
  EXPECT_FALSE(store.RowOf(rows[0].id).deleted);
  EXPECT_TRUE(store.RowOf(rows[1].id).deleted);
}

TEST_F(Deletion, ANumberThatIsNowhereIsPassedOver) {
  Request request(store);
  EXPECT_TRUE(request.engine.DeleteMessage("99999", kBoth));
  EXPECT_EQ(request.Error(), 0);
}

TEST_F(Deletion, NoIdOrWhatIsNoIdIsError1004BeforeAnyStatement) {
  const auto rows = Fill(1);
  const std::string id = std::to_string(rows[0].id);
  const std::vector<Any> wrong = {
      Any(),     Any(nullptr),   "",        " ",  ",",  id + ",", "," + id, id + ",,2",
      "abc",     id + " OR 1=1", "1;2",     "-1", "+1", "1.5",    "0x1",    "99999999999",
      Any(true), Any(1.5),       id + "\t", "1 2"};
  for (const Any& ids : wrong) {
    Request request(store);
    EXPECT_FALSE(request.engine.DeleteMessage(ids, kHere)) << ids.ToText();
    EXPECT_EQ(request.Error(), error::NoMessageGiven) << ids.ToText();
    EXPECT_EQ(request.engine.GetLastErrorDesc(), "XXX");
  }
  EXPECT_FALSE(store.RowOf(rows[0].id).deleted);
}

TEST_F(Deletion, ANumberAndATextWithBlanksAreBothIds) {
  const auto rows = Fill(3);
  Request request(store);
  EXPECT_TRUE(request.engine.DeleteMessage(rows[0].id, kHere));
  EXPECT_TRUE(request.engine.DeleteMessage(
      " " + std::to_string(rows[1].id) + " , " + std::to_string(rows[2].id) + " ", kHere));
  for (const auto& row : store.Rows()) EXPECT_TRUE(row.deleted);
}

TEST_F(Deletion, AnyNumberOfIdsWorks) {
  {
    Transaction transaction(store.db());
    const auto row = store.db().Open("mail");
    for (int32_t id = 1; id <= 5'000; ++id) {
      row->AddNew();
      row->SetField("id_mail", id);
      row->SetField("id_utente", 7);
      row->SetField("id_server", id % 2 ? account : -1);
      row->SetField("dimensione", 10);
      row->SetField("body_scaricato", id);
      row->Update();
    }
    transaction.Commit();
  }
  std::string ids = "1";
  for (int32_t id = 2; id <= 5'000; ++id) ids += "," + std::to_string(id);
  Request request(store);
  EXPECT_TRUE(request.engine.DeleteMessage(ids, kHere));
  EXPECT_EQ(store.CountOf("SELECT COUNT(*) FROM mail WHERE Cancellata=0"), 0);
  EXPECT_EQ(store.DeadBytes(), 50'000);
}

TEST_F(Deletion, TheBoxOfTheLastMessageIsTaken) {
  const auto rows = Fill(1);
  store.Change(rows[0].id, "id_cartella", 6);
  Request request(store);
  request.engine.DeleteMessage(rows[0].id, kHere);
  EXPECT_EQ(request.account_object->BoxId(), 6);
}

TEST_F(Deletion, WhenQuitIsNotAnsweredADeletionOfBothIsUndoneAndReported) {
  const auto rows = Fill(3);
  proxy->Set({.cut_at_verb = "QUIT"});
  Request request(store);
  EXPECT_FALSE(request.engine.DeleteMessage(Ids(rows), kBoth));
  EXPECT_EQ(request.Error(), error::ReceiveFailed);
  for (const auto& row : store.Rows()) {
    EXPECT_FALSE(row.deleted);
    EXPECT_GT(row.number, 0);
  }
  EXPECT_FALSE(store.DeadBytes());
  EXPECT_EQ(dovecot.Count("bob"), 3);
  proxy->Clear();
  EXPECT_TRUE(request.engine.DeleteMessage(Ids(rows), kBoth));
  EXPECT_EQ(dovecot.Count("bob"), 0);
}

TEST_F(Deletion, UndoingDoesNotBringBackWhatWasDeletedHereBefore) {
  const auto rows = Fill(2);
  Request request(store);
  request.engine.DeleteMessage(rows[0].id, kHere);
  proxy->Set({.cut_at_verb = "QUIT"});
  EXPECT_FALSE(request.engine.DeleteMessage(Ids(rows), kBoth));
  EXPECT_TRUE(store.RowOf(rows[0].id).deleted);
  EXPECT_FALSE(store.RowOf(rows[1].id).deleted);
}

TEST_F(Deletion, ASessionThatDiesBetweenTwoDeletionsLeavesBothUndone) {
  const auto rows = Fill(3);
  proxy->Set({.cut_at_verb = "DELE 2"});
  Request request(store);
  EXPECT_FALSE(request.engine.DeleteMessage(Ids(rows), kBoth));
  EXPECT_NE(request.Error(), 0);
  for (const auto& row : store.Rows()) EXPECT_FALSE(row.deleted) << row.subject;
  EXPECT_EQ(dovecot.Count("bob"), 3);
}

TEST_F(Deletion, ADeletionThatTheServerRefusesLeavesItsRowAndTheOthersGoOn) {
  const auto rows = Fill(2);
  const auto head = [&](int n) {
    const auto text = Mail(n, n * 10);
    std::string header = text.substr(0, text.find("\n\n") + 1);
    for (size_t at = 0; (at = header.find('\n', at)) != std::string::npos; at += 2) {
      header.replace(at, 1, "\r\n");
    }
    return header + "\r\n.";
  };
  ScriptedServer server;
  server.SayLine("+OK").Hear("USER bob").SayLine("+OK");
  server.Hear(std::string("PASS ") + DovecotServer::kPassword).SayLine("+OK");
  for (int n = 1; n <= 2; ++n) {
    const std::string number = std::to_string(n);
    server.Hear("STAT").SayLine("+OK 2 500");
    server.Hear("TOP " + number + " 0").SayLine("+OK").SayLine(head(n));
    server.Hear("LIST " + number).SayLine("+OK " + number + " 250");
    server.Hear("UIDL " + number).SayLine("+OK " + number + " u" + number);
    server.Hear("DELE " + number).SayLine(n == 1 ? "-ERR held by somebody" : "+OK");
  }
  server.Hear("QUIT").SayLine("+OK");
  store.ChangeAccount(account, "Porta_server", server.Start());
  Request request(store);
  EXPECT_FALSE(request.engine.DeleteMessage(Ids(rows), kBoth));
  EXPECT_EQ(request.Error(), error::ServerRefusedDele);
  EXPECT_EQ(request.engine.GetLastErrorDesc().substr(0, 12), "-ERR held by");
  EXPECT_FALSE(store.RowOf(rows[0].id).deleted);
  EXPECT_EQ(store.RowOf(rows[0].id).number, 1);
  EXPECT_TRUE(store.RowOf(rows[1].id).deleted);
  EXPECT_EQ(store.RowOf(rows[1].id).number, -100);
  EXPECT_EQ(server.Finish(), "");
}

TEST_F(Deletion, AHeaderThatFailsInTheSearchIsError1071AndTheRowStays) {
  const auto rows = Fill(3);
  proxy->Set({.cut_before_reply_to = "TOP 1 "});
  Request request(store);
  EXPECT_FALSE(request.engine.DeleteMessage(rows[0].id, kBoth));
  EXPECT_EQ(request.Error(), error::DeleteHeaderFailed);
  EXPECT_FALSE(store.RowOf(rows[0].id).deleted);
}

TEST_F(Deletion, AKindThatDoesNotExistChangesNothing) {
  const auto rows = Fill(1);
  Request request(store);
  request.engine.DeleteMessage(rows[0].id, static_cast<EDelType>(9));
  EXPECT_FALSE(store.RowOf(rows[0].id).deleted);
  EXPECT_EQ(proxy->Connections(), 0);
}

TEST_F(Deletion, ADeletedMessageThatStaysOnTheServerDoesNotComeBack) {
  const auto rows = Fill(3);
  Request request(store);
  request.engine.DeleteMessage(rows[2].id, kHere);
  request.SyncWhole();
  EXPECT_EQ(store.Rows().size(), 3u);
}

}  // namespace
}  // namespace korvane::test
