// Opening messages.
#include <filesystem>
#include <fstream>

#include "engine_fixture.h"
#include "message/message_file.h"

namespace korvane::test {
namespace {

class Retrieval : public ServerTest {
 protected:
  /// Rows of headers only, as many as were delivered.
  std::vector<Store::Row> Headers() {
    Request request(store);
    request.SyncHeaders(true);
    EXPECT_EQ(request.Error(), 0);
    proxy->Forget();
    return store.Rows();
  }
  std::vector<Store::Row> Whole() {
    Request request(store);
    request.SyncWhole(true);
    EXPECT_EQ(request.Error(), 0);
    proxy->Forget();
    return store.Rows();
  }
  static std::string Body(MailMessage& message) {
    std::string body;
    EXPECT_TRUE(message.MessageBody(body, ETextAlternativeType::AlterType_Default,
                                    ETextFormat::TextFormat_Normal));
    return body;
  }
};

TEST_F(Retrieval, AHeaderOnlyMessageIsFetchedStoredDeletedOnTheServerAndThenReadFromItsRecord) {
  Deliver(1, 3);
  const auto rows = Headers();
  Request first(store);
  auto message = first.engine.GetMessage(rows[1].id, "", true);
  ASSERT_TRUE(message) << first.Error();
  EXPECT_EQ(first.Error(), 0);
  EXPECT_EQ(Body(*message), "text 2");
  EXPECT_EQ(message->Id(), rows[1].id);
  EXPECT_EQ(message->IdOnServer(), -100);
  auto row = store.RowOf(rows[1].id);
  EXPECT_EQ(row.position, 1);
  EXPECT_EQ(row.number, -100);
  EXPECT_TRUE(row.read);
  EXPECT_EQ(dovecot.Count("bob"), 2);
  EXPECT_EQ(proxy->Count("DELE"), 1);
  EXPECT_EQ(proxy->Count("QUIT"), 1);

  proxy->Forget();
  Request second(store);
  message = second.engine.GetMessage(rows[1].id, "", true);
  ASSERT_TRUE(message);
  EXPECT_EQ(Body(*message), "text 2");
  EXPECT_EQ(proxy->Connections(), 0);
}

TEST_F(Retrieval, AFetchedMessageThatStaysOnTheServerKeepsItsNumber) {
  Deliver(1, 2);
  const auto rows = Headers();
  Request request(store);
  ASSERT_TRUE(request.engine.GetMessage(rows[0].id, "", false));
  EXPECT_EQ(store.RowOf(rows[0].id).number, 1);
  EXPECT_GT(store.RowOf(rows[0].id).position, 0);
  EXPECT_EQ(proxy->Count("DELE"), 0);
  EXPECT_EQ(dovecot.Count("bob"), 2);
}

TEST_F(Retrieval, AMessageOpenedByTwoRequestsAtOnceHasOneRecord) {
  Deliver(1, 1);
  const auto rows = Headers();
  bool opening = false;
  proxy->OnCommand([&](const std::string& line) {
    if (opening || line.compare(0, 5, "RETR ") != 0) return;
    opening = true;
    Request other(store);
    EXPECT_TRUE(other.engine.GetMessage(rows[0].id, "", false));
  });
  Request request(store);
  const auto message = request.engine.GetMessage(rows[0].id, "", true);
  ASSERT_TRUE(message) << request.Error();
  EXPECT_TRUE(opening);
  EXPECT_EQ(Body(*message), "text 1");
  EXPECT_EQ(store.RowOf(rows[0].id).position, 1);
  EXPECT_EQ(store.RowOf(rows[0].id).number, -100);
  EXPECT_EQ(dovecot.Count("bob"), 0);
  BinaryFile file;
  ASSERT_TRUE(file.Open(store.MessageFile(), BinaryFile::Mode::kRead));
  const auto record = OutlineRecord(file, 1);
  ASSERT_TRUE(record);
  EXPECT_EQ(store.MessageFileSize(), record->length) << "one record and nothing behind it";
}

TEST_F(Retrieval, TheSeparatorGivenReachesTheMessageThatIsFetched) {
  Deliver(1, 1);
  const auto rows = Headers();
  Request request(store);
  EXPECT_EQ(request.engine.GetMessage(rows[0].id, "<HR>", false)->MessageSeparator(), "<HR>");
}

TEST_F(Retrieval, OpeningMarksTheMessageAsReadAndOpeningItTwiceChangesNothingMore) {
  Deliver(1, 2);
  const auto rows = Whole();
  EXPECT_FALSE(rows[0].read);
  Request(store).engine.GetMessage(rows[0].id, "", false);
  const auto once = store.RowOf(rows[0].id);
  EXPECT_TRUE(once.read);
  EXPECT_FALSE(store.RowOf(rows[1].id).read);
  const auto size = store.MessageFileSize();
  Request(store).engine.GetMessage(rows[0].id, "", false);
  EXPECT_TRUE(store.RowOf(rows[0].id).read);
  EXPECT_EQ(store.RowOf(rows[0].id).position, once.position);
  EXPECT_EQ(store.MessageFileSize(), size);
  EXPECT_EQ(proxy->Connections(), 0);
}

TEST_F(Retrieval, OpeningTakesTheBoxOfTheMessage) {
  Deliver(1, 1);
  const auto rows = Whole();
  store.Change(rows[0].id, "id_cartella", 4);
  Request request(store);
  request.engine.GetMessage(rows[0].id, "", false);
  EXPECT_EQ(request.account_object->BoxId(), 4);
}

TEST_F(Retrieval, AMessageThatDoesNotExistIsError1001) {
  Request request(store);
  EXPECT_FALSE(request.engine.GetMessage(12345, "", false));
  EXPECT_EQ(request.Error(), error::MessageNotFound);
  EXPECT_EQ(request.engine.GetLastErrorDesc(), "XXX");
}

TEST_F(Retrieval, AMessageOfAnotherUserIsError1001) {
  Deliver(1, 1);
  const auto rows = Whole();
  Request request(store, MailUser::kNoAccount, 8);
  EXPECT_FALSE(request.engine.GetMessage(rows[0].id, "", false));
  EXPECT_EQ(request.Error(), error::MessageNotFound);
}

TEST_F(Retrieval, ASavedMessageWithoutARecordIsError1002) {
  Deliver(1, 1);
  const auto rows = Headers();
  store.Change(rows[0].id, "id_server", -1);
  Request request(store);
  EXPECT_FALSE(request.engine.GetMessage(rows[0].id, "", false));
  EXPECT_EQ(request.Error(), error::SavedMessageWithoutRecord);
}

TEST_F(Retrieval, ABodyThatIsNowhereAnyMoreIsError1003) {
  Deliver(1, 1);
  const auto rows = Headers();
  for (const int32_t number : {-100, -10}) {
    store.Change(rows[0].id, "IdSulServer", number);
    Request request(store);
    EXPECT_FALSE(request.engine.GetMessage(rows[0].id, "", false));
    EXPECT_EQ(request.Error(), error::BodyNoLongerOnServer);
    EXPECT_FALSE(store.RowOf(rows[0].id).read);
  }
  EXPECT_EQ(proxy->Connections(), 0);
}

TEST_F(Retrieval, ADamagedOrMissingMessageFileIsError1057) {
  Deliver(1, 2);
  const auto rows = Whole();
  std::filesystem::resize_file(store.MessageFile(), static_cast<uintmax_t>(rows[1].position) + 20);
  Request truncated(store);
  EXPECT_FALSE(truncated.engine.GetMessage(rows[1].id, "", false));
  EXPECT_EQ(truncated.Error(), error::RecordNotRead);
  EXPECT_TRUE(truncated.engine.GetMessage(rows[0].id, "", false)) << "the first is whole";
  std::filesystem::remove(store.MessageFile());
  Request missing(store);
  EXPECT_FALSE(missing.engine.GetMessage(rows[0].id, "", false));
  EXPECT_EQ(missing.Error(), error::RecordNotRead);
  EXPECT_FALSE(std::filesystem::exists(store.MessageFile())) << "reading makes no file";
}

TEST_F(Retrieval, ACompactionThatDiedBetweenItsRenamesIsSettledBeforeTheFileIsRead) {
  Deliver(1, 2);
  const auto rows = Whole();
  std::filesystem::rename(store.MessageFile(), store.MessageFolder() + "/7_Messaggi_cpy.dat");
  Request request(store);
  EXPECT_TRUE(request.engine.GetMessage(rows[1].id, "", false)) << request.Error();
  EXPECT_TRUE(std::filesystem::exists(store.MessageFile()));
}

TEST_F(Retrieval, AMessageThatWentFromTheServerIsTheClientsError) {
  Deliver(1, 2);
  const auto rows = Headers();
  dovecot.Empty("bob");
  Request empty(store);
  EXPECT_FALSE(empty.engine.GetMessage(rows[0].id, "", false));
  EXPECT_EQ(empty.Error(), error::FindServerEmpty);
  Deliver(50, 51);
  Request other(store);
  EXPECT_FALSE(other.engine.GetMessage(rows[0].id, "", false));
  EXPECT_EQ(other.Error(), error::FindNotFound);
  EXPECT_EQ(store.RowOf(rows[0].id).position, -1);
}

TEST_F(Retrieval, ALoginThatFailsIsTheClientsErrorAndLeavesTheRow) {
  Deliver(1, 1);
  const auto rows = Headers();
  store.ChangeAccount(account, "Password_server", "wrong");
  Request request(store);
  EXPECT_FALSE(request.engine.GetMessage(rows[0].id, "", false));
  EXPECT_EQ(request.Error(), error::ServerRefusedPassword);
  EXPECT_FALSE(store.RowOf(rows[0].id).read);
}

TEST_F(Retrieval, AnAccountThatIsGoneIsItsError) {
  Deliver(1, 1);
  const auto rows = Headers();
  store.Change(rows[0].id, "id_server", 4711);
  Request request(store);
  EXPECT_FALSE(request.engine.GetMessage(rows[0].id, "", false));
  EXPECT_EQ(request.Error(), error::AccountNotFound);
}

TEST_F(Retrieval, TheAccountThatAFetchLoadedStaysLoaded) {
  dovecot.AddUser("carl");
  const int32_t other = AddAccount("carl", false);
  dovecot.Deliver("carl", Mail(1, 10));
  Request sync(store);
  MailEngine::SyncRequest one;
  one.server_id = other;
  sync.Sync(one);
  Request request(store);
  ASSERT_EQ(request.account_object->AccountId(), account);
  ASSERT_TRUE(request.engine.GetMessage(store.Rows()[0].id, "", false));
  EXPECT_EQ(request.account_object->AccountId(), other);
}

TEST_F(Retrieval, WhenQuitIsNotAnsweredTheMessageIsShownAndItsRowGetsItsNumberBack) {
  Deliver(1, 2);
  const auto rows = Headers();
  proxy->Set({.cut_at_verb = "QUIT"});
  Request request(store);
  const auto message = request.engine.GetMessage(rows[0].id, "", true);
  ASSERT_TRUE(message);
  EXPECT_NE(request.Error(), 0);
  EXPECT_EQ(message->IdOnServer(), 1);
  EXPECT_EQ(store.RowOf(rows[0].id).number, 1);
  EXPECT_GT(store.RowOf(rows[0].id).position, 0);
  EXPECT_EQ(dovecot.Count("bob"), 2);
}

TEST_F(Retrieval, ARecordThatCannotBeWrittenLeavesTheMessageOnTheServer) {
  Deliver(1, 1);
  const auto rows = Headers();
  std::filesystem::create_directory(store.MessageFile());
  Request request(store);
  EXPECT_FALSE(request.engine.GetMessage(rows[0].id, "", true));
  EXPECT_EQ(request.Error(), error::RecordAndRowNotWritten);
  EXPECT_EQ(store.RowOf(rows[0].id).position, -1);
  EXPECT_EQ(store.RowOf(rows[0].id).number, 1);
  EXPECT_EQ(dovecot.Count("bob"), 1);
}

TEST_F(Retrieval, AttachmentsAreFilesUnderTheRowsNumberAndASecondOpeningRewritesNone) {
  dovecot.Deliver("bob", Mail(1, 10,
                              "MIME-Version: 1.0\nContent-Type: multipart/mixed; "
                              "boundary=\"b\"\n",
                              "--b\nContent-Type: text/plain\n\nhello\n--b\nContent-Type: "
                              "application/octet-stream; name=\"f.bin\"\n"
                              "Content-Transfer-Encoding: base64\n\nAAECAwQ=\n--b--\n"));
  const auto rows = Headers();
  EXPECT_FALSE(rows[0].attachments);
  Request request(store);
  auto message = request.engine.GetMessage(rows[0].id, "", false);
  ASSERT_TRUE(message);
  const std::string name = "7_" + std::to_string(rows[0].id) + "_2_f.bin";
  EXPECT_EQ(store.AttachmentFiles(), std::vector<std::string>{name});
  EXPECT_TRUE(store.RowOf(rows[0].id).attachments);
  std::ifstream file(store.AttachmentFolder() + "/" + name, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), {});
  EXPECT_EQ(bytes, std::string("\0\1\2\3\4", 5));
  message = Request(store).engine.GetMessage(rows[0].id, "", false);
  ASSERT_TRUE(message);
  ASSERT_EQ(message->GetAttachments()->Count(), 1);
  EXPECT_EQ(message->GetAttachments()->ItemIndex(1)->NameOnServer(), name);
  EXPECT_EQ(store.AttachmentFiles(), std::vector<std::string>{name});
}

TEST_F(Retrieval, AMessageWithApostrophesOrWithoutTextsIsFoundAgain) {
  dovecot.Deliver("bob",
                  "Received: from o'hara by b; Thu, 5 Mar 2020 10:00:01 +0000\nMessage-ID: "
                  "<it's@a>\nSubject: quoted\n\nl'ora\n");
  dovecot.Deliver("bob", "Received: from a by b; Thu, 5 Mar 2020 10:00:02 +0000\nMessage-ID: <" +
                             std::string(300, 'x') + "1@a>\nSubject: long one\n\none\n");
  dovecot.Deliver("bob", "Received: from a by b; Thu, 5 Mar 2020 10:00:02 +0000\nMessage-ID: <" +
                             std::string(300, 'x') + "2@a>\nSubject: long two\n\ntwo\n");
  dovecot.Deliver("bob", "From: ann@a\nSubject: nameless\n\nnobody\n");
  dovecot.Deliver("bob", "From: ann@a\nSubject: also nameless\n\nnothing\n");
  const auto rows = Headers();
  ASSERT_EQ(rows.size(), 5u);
  const char* bodies[] = {"l'ora", "one", "two", "nobody", "nothing"};
  for (size_t i = 0; i < rows.size(); ++i) {
    Request request(store);
    const auto message = request.engine.GetMessage(rows[i].id, "", false);
    ASSERT_TRUE(message) << rows[i].subject << " " << request.Error();
    EXPECT_EQ(Body(*message), bodies[i]);
  }
}

}  // namespace
}  // namespace korvane::test
