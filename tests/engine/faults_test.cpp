// Faults of the database and of the files while messages are stored, opened and deleted.
#include <chrono>
#include <filesystem>
#include <fstream>

#include "engine_fixture.h"
#include "frame/files.h"
#include "store_check.h"
#include "support/faulty_connection.h"
#include "support/file_size_limit.h"

namespace korvane::test {
namespace {

using Kind = DatabaseError::Kind;

class Faults : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    connection = std::make_shared<FaultyConnection>(store.Connect());
  }
  static std::string WithFile(int number) {
    return Mail(number, number * 10,
                "MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=\"b\"\n",
                "--b\nContent-Type: text/plain\n\nhello\n--b\nContent-Type: "
                "application/octet-stream; name=\"f.bin\"\n\nbytes\n--b--\n");
  }
  /// Every second commit loses the connection at `hook`: nothing is stored twice, nothing is lost.
  void StoreWithCommitsInDoubt(std::function<void()>& hook) {
    for (int i = 1; i <= 5; ++i) dovecot.Deliver("bob", WithFile(i));
    connection->reopens = true;
    bool lose = false;
    connection->on_begin = [&] { lose = !lose; };
    hook = [&] {
      if (lose) throw DatabaseError(Kind::kConnectionLost, "gone");
    };
    Request request(store, connection);
    request.SyncWhole(true, true);
    EXPECT_EQ(request.Error(), 0);
    EXPECT_EQ(Stored(), Expected(1, 5));
    EXPECT_EQ(dovecot.Count("bob"), 0);
    for (const auto& row : store.Rows()) EXPECT_EQ(row.number, -100);
    CheckStore(store);
    connection->on_begin = hook = nullptr;
  }
  std::shared_ptr<FaultyConnection> connection;
};

TEST_F(Faults, AnIdentifierThatIsTakenIsRetriedUnderAnotherAndNothingStaysUnderTheWrongOne) {
  for (int i = 1; i <= 4; ++i) dovecot.Deliver("bob", WithFile(i));
  int updates = 0;
  connection->on_update = [&](const std::string& statement, Recordset&) {
    if (statement == "mail" && ++updates == 3) throw DatabaseError(Kind::kDuplicateKey, "taken");
  };
  bool inserted = false;
  connection->after_rollback = [&] {
    // Another process was quicker.
    if (inserted) return;
    inserted = true;
    const auto row = store.db().Open("mail");
    row->AddNew();
    row->SetField("id_mail", 1);
    row->SetField("id_utente", 8);
    row->Update();
  };
  Request request(store, connection);
  request.SyncWhole(true, true);
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(Stored(), Expected(1, 4));
  EXPECT_EQ(store.Rows().front().id, 2);
  EXPECT_EQ(store.Rows().front().position, 1);
  EXPECT_EQ(dovecot.Count("bob"), 0);
  CheckStore(store);
}

TEST_F(Faults, ADatabaseThatIsBusyForAMomentIsAskedAgain) {
  Deliver(1, 3);
  int commits = 0;
  connection->on_commit = [&] {
    if (++commits <= 3) throw DatabaseError(Kind::kBusy, "busy");
  };
  Request request(store, connection);
  request.SyncWhole(true);
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(Stored(), Expected(1, 3));
  CheckStore(store);
}

TEST_F(Faults, ARowThatTheDatabaseRefusesDoesNotTakeOthersWithItAndNothingIsDeletedOnTheServer) {
  for (int i = 1; i <= 5; ++i) dovecot.Deliver("bob", WithFile(i));
  connection->on_update = [&](const std::string& statement, Recordset& row) {
    if (statement == "mail" && row.Field("oggetto").ToText() == "mail 3") {
      throw DatabaseError(Kind::kOther, "not this one");
    }
  };
  Request request(store, connection);
  request.SyncWhole(true, true);
  EXPECT_EQ(request.Error(), error::DatabaseFault);
  EXPECT_EQ(Stored(), (std::vector<std::string>{"mail 1", "mail 2", "mail 4", "mail 5"}));
  EXPECT_EQ(dovecot.Count("bob"), 5) << "the session ended without QUIT";
  EXPECT_EQ(proxy->Count("QUIT"), 0);
  for (const auto& row : store.Rows()) EXPECT_GT(row.number, 0);
  EXPECT_TRUE(store.Kept(account)->error);
  CheckStore(store);
  // What is older than the failure is known with all older ones, what is newer is not.
  EXPECT_TRUE(store.Rows()[1].known_with_older);
  EXPECT_FALSE(store.Rows()[2].known_with_older);
  Request again(store);
  again.SyncWhole();
  EXPECT_EQ(again.Error(), 0);
  EXPECT_EQ(Stored(), Expected(1, 5));
  CheckStore(store);
}

TEST_F(Faults, ALostConnectionWhileStoringLeavesNothingBehindAndTheServerUntouched) {
  for (int i = 1; i <= 5; ++i) dovecot.Deliver("bob", WithFile(i));
  bool lost = false;
  connection->on_update = [&](const std::string& statement, Recordset&) {
    if (statement == "mail") lost = true;
    if (lost) throw DatabaseError(Kind::kConnectionLost, "gone");
  };
  connection->on_statement = [&](const std::string&) {
    if (lost) throw DatabaseError(Kind::kConnectionLost, "gone");
  };
  Request request(store, connection);
  EXPECT_TRUE(request.SyncWhole(true, true));
  EXPECT_EQ(request.Error(), error::ListingFailed);
  EXPECT_TRUE(store.Rows().empty());
  EXPECT_EQ(store.MessageFileSize(), 0);
  EXPECT_TRUE(store.AttachmentFiles().empty());
  EXPECT_EQ(dovecot.Count("bob"), 5);
  EXPECT_EQ(proxy->Count("QUIT"), 0);
  EXPECT_TRUE(store.Kept(account)->error);
  Request again(store);
  again.SyncWhole(true);
  EXPECT_EQ(Stored(), Expected(1, 5));
}

TEST_F(Faults, AConnectionLostWhileStoringThatComesBackIsNoError) {
  for (int i = 1; i <= 5; ++i) dovecot.Deliver("bob", WithFile(i));
  connection->reopens = true;
  int updates = 0;
  connection->on_update = [&](const std::string& statement, Recordset&) {
    if (statement == "mail" && ++updates == 3) throw DatabaseError(Kind::kConnectionLost, "gone");
  };
  Request request(store, connection);
  request.SyncWhole(true, true);
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(Stored(), Expected(1, 5));
  EXPECT_EQ(dovecot.Count("bob"), 0);
  CheckStore(store);
}

TEST_F(Faults, EveryCommitInDoubtThatWasMadeIsNotMadeAgain) {
  StoreWithCommitsInDoubt(connection->after_commit);
}

TEST_F(Faults, EveryCommitInDoubtThatWasNotMadeIsMadeAgain) {
  StoreWithCommitsInDoubt(connection->on_commit);
}

TEST_F(Faults, ACommitInDoubtThatNobodyCanAskAfterIsReportedAndItsRecordsStay) {
  for (int i = 1; i <= 5; ++i) dovecot.Deliver("bob", WithFile(i));
  bool lost = false;
  bool stores = false;
  connection->on_update = [&](const std::string& statement, Recordset&) {
    stores = statement == "mail";
  };
  connection->on_begin = [&] {
    if (lost) throw DatabaseError(Kind::kConnectionLost, "gone");
  };
  connection->after_commit = [&] {
    lost = stores;
    if (lost) throw DatabaseError(Kind::kConnectionLost, "gone");
  };
  Request request(store, connection);
  request.SyncWhole(true, true);
  EXPECT_NE(request.Error(), 0);
  EXPECT_EQ(proxy->Count("DELE"), 0);
  Request again(store);
  again.SyncWhole(true);
  EXPECT_EQ(again.Error(), 0);
  EXPECT_EQ(Stored(), Expected(1, 5));
  CheckStore(store);
}

TEST_F(Faults, MarkingAfterDeleThatFailsEndsTheSessionWithoutQuit) {
  Deliver(1, 3);
  connection->on_statement = [](const std::string& statement) {
    if (statement.find("IdSulServer=-100 WHERE id_mail=2") != std::string::npos) {
      throw DatabaseError(Kind::kOther, "refused");
    }
  };
  Request request(store, connection);
  request.SyncWhole(true, true);
  EXPECT_NE(request.Error(), 0);
  EXPECT_EQ(dovecot.Count("bob"), 3);
  EXPECT_EQ(proxy->Count("QUIT"), 0);
  for (const auto& row : store.Rows()) EXPECT_GT(row.number, 0);
}

TEST_F(Faults, OverAConnectionWithoutTransactionsEverythingIsStoredToo) {
  for (int i = 1; i <= 4; ++i) dovecot.Deliver("bob", WithFile(i));
  connection->transactions = false;
  int updates = 0;
  connection->on_update = [&](const std::string& statement, Recordset&) {
    if (statement == "mail" && ++updates == 2) throw DatabaseError(Kind::kDuplicateKey, "taken");
  };
  Request request(store, connection);
  request.SyncWhole(true, true);
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(Stored(), Expected(1, 4));
  EXPECT_EQ(dovecot.Count("bob"), 0);
  CheckStore(store);
  const auto rows = store.Rows();
  EXPECT_TRUE(request.engine.DeleteMessage(rows[0].id, EDelType::DEL_TYPE_LOCALE));
  EXPECT_TRUE(store.RowOf(rows[0].id).deleted);
}

TEST_F(Faults, ALastDownloadThatCannotBeReadIsError1005AndNothingIsDownloaded) {
  Deliver(1, 2);
  connection->on_statement = [](const std::string& statement) {
    if (statement.find("ultimi_scaricamenti") != std::string::npos) {
      throw DatabaseError(Kind::kOther, "refused");
    }
  };
  Request request(store, connection);
  EXPECT_TRUE(request.SyncWhole(true));
  EXPECT_EQ(request.Error(), error::LastDownloadNotRead);
  EXPECT_EQ(request.engine.GetLastErrorDesc(), "XXX");
  EXPECT_EQ(proxy->Count("STAT"), 0);
  EXPECT_EQ(proxy->Count("QUIT"), 1);
}

TEST_F(Faults, ALastDownloadThatCannotBeWrittenIsError1006AndWhatCameIsStored) {
  Deliver(1, 2);
  int times = 0;
  connection->on_update = [&](const std::string& statement, Recordset&) {
    if (statement.find("ultimi_scaricamenti") != std::string::npos && ++times == 2) {
      throw DatabaseError(Kind::kOther, "refused");
    }
  };
  Request request(store, connection);
  EXPECT_TRUE(request.SyncWhole(true));
  EXPECT_EQ(request.Error(), error::LastDownloadNotWritten);
  EXPECT_EQ(Stored(), Expected(1, 2));
  EXPECT_TRUE(store.Kept(account)->error) << "the next run looks everything up";
}

TEST_F(Faults, ALookUpThatFailsInTheSelectionIsError1008) {
  Deliver(1, 2);
  connection->on_statement = [](const std::string& statement) {
    if (statement.find("campo_MessageId='") != std::string::npos) {
      throw DatabaseError(Kind::kOther, "refused");
    }
  };
  Request request(store, connection);
  EXPECT_TRUE(request.SyncWhole());
  EXPECT_EQ(request.Error(), error::DatabaseFault);
  EXPECT_TRUE(store.Rows().empty());
}

TEST_F(Faults, ADatabaseWithoutTablesGivesItsNumberForEachOperation) {
  Request request(store);
  for (const char* table : {"mail", "conteggi_cartelle", "ultimi_scaricamenti"}) {
    store.db().Execute(std::string("DROP TABLE ") + table);
  }
  EXPECT_TRUE(request.SyncWhole());
  EXPECT_EQ(request.Error(), error::ListingFailed);
  EXPECT_FALSE(request.engine.GetMessage(1, "", false));
  EXPECT_EQ(request.Error(), error::DatabaseFault);
  EXPECT_FALSE(request.engine.DeleteMessage(1, EDelType::DEL_TYPE_LOCALE));
  EXPECT_EQ(request.Error(), error::DatabaseFault);
}

TEST_F(Faults, AnEngineThatWasNotInitialisedReports1008) {
  MailEngine engine;
  EXPECT_FALSE(engine.GetMessage(1, "", false));
  EXPECT_EQ(engine.GetLastError(), error::DatabaseFault);
  EXPECT_FALSE(engine.DeleteMessage(1, EDelType::DEL_TYPE_LOCALE));
  EXPECT_FALSE(engine.GetListMessagesInBox({}, {}, nullptr, nullptr));
}

TEST_F(Faults, ADatabaseThatCannotBeWrittenLosesNothing) {
  Deliver(1, 3);
  Request(store).SyncWhole(true);
  Deliver(4, 5);
  Request request(store);
  request.connection->Execute("PRAGMA query_only=1");
  EXPECT_EQ(request.SyncWhole(false, true)->Count(), 3);
  EXPECT_EQ(request.Error(), error::LastDownloadNotRead);
  EXPECT_EQ(dovecot.Count("bob"), 5);
  const auto rows = store.Rows();
  EXPECT_TRUE(request.engine.GetMessage(rows[0].id, "", false)) << "it can be read all the same";
  EXPECT_EQ(request.Error(), error::DatabaseFault) << "but not marked as read";
  EXPECT_FALSE(request.engine.DeleteMessage(rows[0].id, EDelType::DEL_TYPE_LOCALE_SERVER));
  EXPECT_EQ(request.Error(), error::DatabaseFault);
  EXPECT_EQ(dovecot.Count("bob"), 5) << "what cannot be marked is not deleted on the server";
  request.connection->Execute("PRAGMA query_only=0");
  request.SyncWhole();
  EXPECT_EQ(request.Error(), 0);
  EXPECT_EQ(Stored(), Expected(1, 5));
}

TEST_F(Faults, ADatabaseThatSomebodyElseHoldsGivesItsNumberInBoundedTime) {
  Deliver(1, 2);
  Request request(store, OpenDatabase(store.url() + "?timeout=100"));
  store.db().BeginAllocating();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(request.SyncWhole(true, true));
  EXPECT_EQ(request.Error(), error::LastDownloadNotRead);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
  store.db().Rollback();
  EXPECT_EQ(dovecot.Count("bob"), 2);
  request.SyncWhole(true);
  EXPECT_EQ(Stored(), Expected(1, 2));
}

TEST_F(Faults, AMessageFileThatCannotGrowGivesRowsWithoutRecordsAndTheMessagesStayOnTheServer) {
  for (int i = 1; i <= 4; ++i) dovecot.Deliver("bob", WithFile(i));
  const int64_t size = 20'000'000;
  ASSERT_TRUE(WriteWholeFile(store.MessageFile(), ""));
  std::filesystem::resize_file(store.MessageFile(), static_cast<uintmax_t>(size));
  Request request(store);
  {
    // Enough for one record, not for four.
    const FileSizeLimit limit(static_cast<rlim_t>(size) + 1'500);
    request.SyncWhole(true, true);
  }
  EXPECT_EQ(Stored(), Expected(1, 4));
  const auto rows = store.Rows();
  EXPECT_EQ(rows[0].position, size + 1);
  EXPECT_EQ(rows[0].number, -100);
  for (size_t i = 1; i < 4; ++i) {
    EXPECT_EQ(rows[i].position, -1);
    EXPECT_GT(rows[i].number, 0);
  }
  EXPECT_EQ(dovecot.Count("bob"), 3);
  CheckStore(store);
  // With space again, they can be fetched.
  Request later(store);
  EXPECT_TRUE(later.engine.GetMessage(rows[2].id, "", false));
}

TEST_F(Faults, ARecordBeyondTheLastPositionThatARowCanHoldIsNotWritten) {
  Deliver(1, 1);
  ASSERT_TRUE(WriteWholeFile(store.MessageFile(), ""));
  const int64_t size = 2'147'483'647;
  std::filesystem::resize_file(store.MessageFile(), static_cast<uintmax_t>(size));
  Request request(store);
  request.SyncWhole(true, true);
  ASSERT_EQ(store.Rows().size(), 1u);
  EXPECT_EQ(store.Rows()[0].position, -1);
  EXPECT_EQ(dovecot.Count("bob"), 1);
  EXPECT_EQ(store.MessageFileSize(), size);
}

TEST_F(Faults, InDebugModeTheCauseIsLoggedWithoutThePassword) {
  store.SetDebugMode(true);
  connection->on_statement = [](const std::string& statement) {
    if (statement.find("ultimi_scaricamenti") != std::string::npos) {
      throw DatabaseError(Kind::kOther, "the cause of it");
    }
  };
  Request request(store, connection);
  request.SyncWhole(true);
  std::string log;
  for (const auto& entry : std::filesystem::directory_iterator(store.LogFolder())) {
    std::string text;
    ReadWholeFile(entry.path(), text);
    log += text;
  }
  EXPECT_NE(log.find("the cause of it"), std::string::npos);
  EXPECT_EQ(log.find(DovecotServer::kPassword), std::string::npos);
}

}  // namespace
}  // namespace korvane::test
