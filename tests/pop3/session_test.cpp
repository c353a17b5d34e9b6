// The session where no dialogue reaches: the object's life, accounts, the transport, progress.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "frame/boss_object.h"
#include "frame/error_numbers.h"
#include "pop3/fake_connection.h"
#include "pop3/session_fixture.h"

namespace korvane::test {
namespace {

using State = MailServer::State;
using Command = MailServer::Command;

TEST(MailServer, AFreshObjectIsNotConnectedAndHasNoError) {
  const ProbedServer client;
  EXPECT_EQ(client.state(), State::kNotConnected);
  EXPECT_TRUE(client.done());
  EXPECT_EQ(client.command(), Command::kNone);
  EXPECT_FALSE(client.IsIdle());
  EXPECT_EQ(client.ServerTimeout(), 7000);
  EXPECT_EQ(client.GetLastError(), 0);
  EXPECT_EQ(client.GetLastErrorDesc(), "");
}

TEST(MailServer, ConnectWithoutAnyAccountIs1062) {
  ProbedServer client;
  EXPECT_FALSE(client.Connect());
  EXPECT_EQ(client.GetLastError(), error::ConnectWithoutAccount);
  EXPECT_EQ(client.GetLastErrorDesc(), "XXX");
}

TEST(MailServer, ConnectTakesTheAccountsTimeout) {
  Session session(1234);
  session.server.Login("bob", "secret");
  session.client->ServerTimeout(99);
  session.LogIn();
  EXPECT_EQ(session.client->ServerTimeout(), 1234);
  session.End();
}

TEST(MailServer, DisconnectWhileACommandIsInProgressIs1094) {
  Session session;
  session.server.Login("bob", "secret").Hear("STAT");
  session.LogIn();
  bool disconnected = true;
  TransportTap::instead_of_receive = [&] { disconnected = session.client->Disconnect(); };
  EXPECT_EQ(session.client->GetMessagesCount(), -1);
  EXPECT_FALSE(disconnected);
  EXPECT_EQ(session.client->GetLastError(), error::DisconnectWhileBusy);
  EXPECT_EQ(session.client->GetLastErrorDesc(), "XXX");
  EXPECT_EQ(session.client->state(), State::kNotConnected);
  session.End();
}

TEST(MailServer, WhileACommandIsInProgressEveryOperationIsRefused) {
  Session session;
  session.server.Login("bob", "secret").Hear("STAT");
  session.LogIn();
  TransportTap::instead_of_receive = [&] {
    EXPECT_FALSE(session.client->IsIdle());
    EXPECT_EQ(session.client->GetMessagesCount(), -1);
    EXPECT_EQ(session.client->GetMessageHeader(1), nullptr);
    EXPECT_FALSE(session.client->Connect());
    EXPECT_FALSE(session.client->SetUser(nullptr));
    EXPECT_FALSE(session.client->DeleteServerMessage(1));
  };
  EXPECT_EQ(session.client->GetMessagesCount(), -1);
  EXPECT_EQ(session.client->GetLastError(), error::ReceiveFailed);
  session.End();
}

TEST(MailServer, TheReceiveBufferIs16384BytesAndALongReplyComesInSeveralBlocks) {
  Session session;
  session.server.Login("bob", "secret").Hear("RETR 1").SayLine("+OK");
  session.server.SayOften(std::string(998, 'x') + "\r\n", 200).SayLine(".");
  session.server.Hear("LIST 1").SayLine("+OK 1 200000");
  session.LogIn();
  session.client->RunOn(Command::kRetr, 1);
  EXPECT_EQ(session.client->Data().size(), 200 * 1000U - 2);
  EXPECT_EQ(TransportTap::capacity, 16384);
  EXPECT_LE(TransportTap::longest_block, 16384);
  session.End();
}

std::shared_ptr<FakeConnection> AccountOfKind(const Any& kind, int32_t port,
                                              const std::string& password) {
  auto connection = std::make_shared<FakeConnection>();
  FakeRow row;
  row["Id_account_email"] = 5;
  row["Nome_server"] = "127.0.0.1";
  row["Porta_server"] = port;
  row["Time_out_server"] = 2000;
  row["Username_server"] = "bob";
  row["Password_server"] = password;
  row["caso"] = kind;
  connection->Answer("SELECT * FROM Query1_account WHERE id_utente=7 AND Id_account_email=5", row);
  return connection;
}

TEST(MailServer, AnAccountThatTakesThePagesPasswordFailsWithoutOneBeforeAnythingIsSent) {
  for (const Any& kind : {Any(1), Any(2), Any(nullptr)}) {
    ScriptedServer server;
    const auto connection = AccountOfKind(kind, server.Listen(), "of another account");
    auto user = std::make_shared<MailUser>();
    ASSERT_TRUE(user->InitFromConfig(BossObject(), connection, 7, 5));
    ASSERT_FALSE(user->HasPassword());
    ProbedServer client;
    client.SetUser(user);
    EXPECT_FALSE(client.Connect());
    EXPECT_EQ(client.GetLastError(), error::ConnectFailed);
    EXPECT_FALSE(server.Visited());
  }
}

TEST(MailServer, AnAccountThatTakesThePagesPasswordLogsInWithIt) {
  ScriptedServer server;
  server.Login("bob", "from the page");
  const auto connection = AccountOfKind(2, server.Start(), "of the row");
  auto user = std::make_shared<MailUser>();
  user->Password("from the page");
  ASSERT_TRUE(user->InitFromConfig(BossObject(), connection, 7, 5));
  {
    ProbedServer client;
    client.SetUser(user);
    EXPECT_TRUE(client.Connect());
    EXPECT_TRUE(client.IsIdle());
  }
  EXPECT_EQ(server.Finish(), "");
}

TEST(MailServer, ANameOrPasswordOfMoreThan8192BytesIsNoAccounts) {
  ScriptedServer server;
  auto user = std::make_shared<MailUser>();
  user->MailServer("127.0.0.1");
  user->ServerPort(server.Listen());
  user->Username(std::string(8193, 'x'));
  ProbedServer client;
  client.SetUser(user);
  EXPECT_FALSE(client.Connect());
  EXPECT_EQ(client.GetLastError(), error::ConnectFailed);
  EXPECT_FALSE(server.Visited());
}

TEST(MailServer, AShortPasswordInAReplyIsLeftThere) {
  // Hiding "no" in "-ERR no such user" would tell the password instead of keeping it.
  Session session;
  session.user->Password("no");
  session.server.SayLine("+OK")
      .Hear("USER bob")
      .SayLine("-ERR no such user")
      .Hear("QUIT")
      .SayLine("+OK");
  session.Start();
  EXPECT_FALSE(session.client->Connect());
  EXPECT_EQ(session.client->GetLastErrorDesc(), "-ERR no such user\r\n");
  session.End();
}

void SayHeader(ScriptedServer& server, int32_t number) {
  const std::string n = std::to_string(number);
  server.Hear("TOP " + n + " 0").Say("+OK\r\nSubject: " + n + "\r\n\r\n.\r\n");
  server.Hear("LIST " + n).SayLine("+OK " + n + " 100");
  server.Hear("UIDL " + n).SayLine("+OK " + n + " u" + n);
}

TEST(MailServer, ASelectionTellsItsProgress) {
  Session session;
  session.server.Login("bob", "secret").Hear("STAT").SayLine("+OK 2 200");
  SayHeader(session.server, 2);
  SayHeader(session.server, 1);
  session.LogIn();
  std::vector<std::tuple<int32_t, int32_t, int32_t>> told;
  std::vector<std::pair<int64_t, int64_t>> bytes;
  session.client->OnProgress([&](const SelectionProgress& progress) {
    told.emplace_back(progress.looked_at, progress.total, progress.taken);
    bytes.emplace_back(progress.bytes, progress.all_bytes);
    EXPECT_TRUE(progress.to_the_end);
  });
  FakeConnection connection;
  EXPECT_EQ(session.client->GetNewHeaders(connection, "01/01/0001 00:00:00", false)->Count(), 2);
  const std::vector<std::tuple<int32_t, int32_t, int32_t>> expected = {
      {0, 2, 0}, {1, 2, 1}, {2, 2, 2}};
  EXPECT_EQ(told, expected);
  const std::vector<std::pair<int64_t, int64_t>> expected_bytes = {
      {0, 200}, {100, 200}, {200, 200}};
  EXPECT_EQ(bytes, expected_bytes);
  session.End();
}

TEST(MailServer, ASessionThatIsClosedDuringASelectionIsItsHeaderError) {
  Session session;
  session.server.Login("bob", "secret").Hear("STAT").SayLine("+OK 2 200");
  SayHeader(session.server, 2);
  session.LogIn();
  session.client->OnProgress([&](const SelectionProgress& progress) {
    if (progress.looked_at == 1) session.client->CloseConnection();
  });
  FakeConnection connection;
  const auto messages = session.client->GetNewHeaders(connection, "01/01/0001 00:00:00", false);
  EXPECT_EQ(messages->Count(), 1);
  EXPECT_EQ(session.client->GetLastError(), error::SelectHeaderFailed);
  session.End();
}

TEST(MailServer, TheDuplicateCheckAsksItsStatementToTheLastBlank) {
  Session session;
  session.server.Login("bob", "secret").Hear("STAT").SayLine("+OK 1 100");
  session.server.Hear("TOP 1 0").Say(
      "+OK\r\nReceived: from o'hara by b; Tue, 5 Mar 2002 10:00:00 +0000\r\n"
      "Message-ID: <l'ora@x>\r\n\r\n.\r\n");
  session.server.Hear("LIST 1").SayLine("+OK 1 100").Hear("UIDL 1").SayLine("+OK 1 u1");
  session.LogIn();
  FakeConnection connection;
  connection.AddTable("messaggi_eliminati");
  session.client->GetNewHeaders(connection, "01/01/2002 00:00:00", true);
  const std::string account = " WHERE id_utente=7 AND id_server=-10 AND campo_received='";
  const std::string plain =
      "from o''hara by b; Tue, 5 Mar 2002 10:00:00 +0000' AND campo_MessageId='<l''ora@x>'";
  const std::string stored =
      "from o''''hara by b; Tue, 5 Mar 2002 10:00:00 +0000' AND campo_MessageId='<l''''ora@x>'";
  const std::vector<std::string> expected = {"SELECT * FROM mail" + account + plain,
                                             "SELECT * FROM mail" + account + stored,
                                             "SELECT * FROM messaggi_eliminati" + account + stored};
  EXPECT_EQ(connection.asked(), expected);
  session.End();
}

}  // namespace
}  // namespace korvane::test
