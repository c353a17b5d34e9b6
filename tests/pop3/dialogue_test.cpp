// Every dialogue of tests/dialogues: each reply in one block, one byte at a time, and both of these
// with a client that reads ahead. Where nothing is read ahead such a client says the same to the
// byte, so only the dialogues with a selection get a server that bears more.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "facade/mail_user.h"
#include "frame/sql_text.h"
#include "message/row_text.h"
#include "pop3/ahead_server.h"
#include "pop3/dialogue.h"
#include "pop3/fake_connection.h"
#include "pop3/probed_server.h"
#include "pop3/transport_tap.h"
#include "support/scripted_server.h"
#include "support/taken_messages.h"

namespace korvane::test {
namespace {

std::vector<std::filesystem::path> DialogueFiles() {
  std::vector<std::filesystem::path> files;
  const std::filesystem::path folder = std::string(KORVANE_SOURCE_DIR) + "/tests/dialogues";
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() == ".dialogue") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void Script(ScriptedServer& server, const Dialogue& dialogue) {
  for (const Exchange& exchange : dialogue.exchanges) {
    switch (exchange.kind) {
      case Exchange::Kind::kSay:
        server.Say(exchange.text);
        break;
      case Exchange::Kind::kSayOften:
        server.SayOften(exchange.text, exchange.number);
        break;
      case Exchange::Kind::kDrip:
        server.Drip(exchange.text, exchange.number);
        break;
      case Exchange::Kind::kHear:
        server.Hear(exchange.text);
        break;
      case Exchange::Kind::kPause:
        server.Pause(exchange.number);
        break;
      case Exchange::Kind::kClose:
        server.Close();
        break;
      case Exchange::Kind::kAccept:
        server.Accept();
        break;
    }
  }
}

std::shared_ptr<MailUser> Account(const Words& words, int32_t port) {
  auto user = std::make_shared<MailUser>();
  user->MailServer(words.Named("host", "127.0.0.1"));
  user->ServerPort(words.Number("port", port));
  user->Username(words.Named("user", "bob"));
  user->Password(words.Named("password", "secret"));
  user->ServerTimeout(words.Number("timeout", 5000));
  user->UserId(words.Number("user-id", 7));
  user->MailListPageSize(words.Number("page-size", 10));
  return user;
}

MailServer::Limits LimitsOf(const Words& words) {
  MailServer::Limits limits;
  limits.reply.status_line = static_cast<size_t>(words.Number("status-line", 16384));
  limits.reply.text_line = static_cast<size_t>(words.Number("text-line", 1 << 26));
  limits.reply.header = static_cast<size_t>(words.Number("header", 1 << 26));
  limits.reply.message = static_cast<size_t>(words.Number("message", 1 << 29));
  limits.timeouts_per_command = words.Number("timeouts", 10);
  return limits;
}

/// A row as the store writes it, found under its texts as the table holds them.
void AddRow(FakeConnection& connection, const std::string& table, const Words& words,
            int32_t user_id) {
  std::string received = words.Named("received", "");
  if (words.named.contains("at")) received = "from a by b; " + words.named.at("at");
  const std::string id = words.Named("id", "");
  FakeRow row;
  row["DwnldCorrettoFAQ"] = words.Number("faq", 0) != 0;
  row["mittente"] = RowText(words.Named("sender", ""), kSenderCharacters);
  row["oggetto"] = RowText(words.Named("subject", ""), kSubjectCharacters);
  row["data"] = words.Named("date", "");
  row["dimensione"] = words.Number("size", 0);
  connection.Answer("SELECT * FROM " + table + " WHERE id_utente=" + std::to_string(user_id) +
                        " AND id_server=-10 AND campo_received='" +
                        DoubleQuotes(RowText(received)) + "' AND campo_MessageId='" +
                        DoubleQuotes(RowText(id, kMessageIdCharacters)) + "'",
                    row);
}

class DialogueRun {
 public:
  DialogueRun(const Dialogue& dialogue, int32_t piece, bool ahead = false) : dialogue_(dialogue) {
    if (ahead && Selects(dialogue)) {
      ahead_server_ = std::make_unique<AheadServer>(dialogue);
    } else {
      Script(server_, dialogue);
    }
    user_ = Account(dialogue.account, Start());
    // Lines that could not be sent ahead are missed only when their replies do not come.
    if (ahead_server_ && !dialogue.account.named.contains("timeout")) user_->ServerTimeout(300);
    if (ahead && user_->MailServer() == "127.0.0.1") user_->MailServer("pop3+ahead://127.0.0.1");
    client_ = std::make_unique<ProbedServer>();
    client_->SetLimits(LimitsOf(dialogue.limits));
    client_->SetUser(user_);
    for (const Words& row : dialogue.known) AddRow(connection_, "mail", row, user_->UserId());
    for (const Words& row : dialogue.deleted) {
      AddRow(connection_, "messaggi_eliminati", row, user_->UserId());
    }
    if (!dialogue.deleted.empty()) connection_.AddTable("messaggi_eliminati");
    TransportTap::Reset();
    TransportTap::piece = piece;
  }

  void Go() {
    for (const Call& call : dialogue_.calls) {
      SCOPED_TRACE(dialogue_.name + ".dialogue:" + std::to_string(call.line) + " " +
                   call.operation.Plain(0));
      TransportTap::sends_left = call.sends;
      const size_t asked_before = connection_.asked().size();
      Check(call);
      TransportTap::sends_left = -1;
      EXPECT_EQ(client_->GetLastError(), call.error);
      EXPECT_EQ(client_->GetLastErrorDesc(), call.error_text);
      EXPECT_TRUE(client_->done());
      if (call.state != 0) {
        EXPECT_EQ(static_cast<int32_t>(client_->state()), call.state);
      }
      if (call.asked >= 0) {
        EXPECT_EQ(static_cast<int32_t>(connection_.asked().size() - asked_before), call.asked);
      }
    }
    if (TransportTap::capacity != 0) {
      EXPECT_EQ(TransportTap::capacity, 16384);
    }
    if (dialogue_.unvisited) {
      EXPECT_FALSE(server_.Visited());
    }
    client_.reset();
    EXPECT_EQ(ahead_server_ ? ahead_server_->Finish() : server_.Finish(), "");
  }

  static bool Selects(const Dialogue& dialogue) {
    return std::any_of(dialogue.calls.begin(), dialogue.calls.end(), [](const Call& call) {
      return call.operation.Plain(0).starts_with("GetNew");
    });
  }

 private:
  int32_t Start() {
    if (ahead_server_) return ahead_server_->Start();
    return dialogue_.unvisited ? server_.Listen() : server_.Start();
  }

  void Check(const Call& call) {
    const Words& words = call.operation;
    const std::string name = words.Plain(0);
    const auto traits = Traits(words);
    const MessageTraits* row = words.named.contains("sender") ? &traits : nullptr;
    if (name == "Connect") {
      Expect(call, client_->Connect());
    } else if (name == "Disconnect") {
      Expect(call, client_->Disconnect());
    } else if (name == "CloseConnection") {
      client_->CloseConnection();
      EXPECT_EQ(call.result.Plain(0), "nothing");
    } else if (name == "SetUser") {
      Expect(call, client_->SetUser(words.Plain(1) == "none" ? nullptr : user_));
    } else if (name == "GetMessagesCount") {
      EXPECT_EQ(std::to_string(client_->GetMessagesCount()), call.result.Plain(0));
    } else if (name == "GetMessageHeader") {
      Expect(call, client_->GetMessageHeader(words.Number(1)));
    } else if (name == "GetFullMessage") {
      Expect(call, client_->GetFullMessage(words.Number(1), words.Plain(2)));
    } else if (name == "GetFullMessageByUIDL") {
      Expect(call, client_->GetFullMessageByUIDL(words.Number(1), words.Plain(2), words.Plain(3)));
    } else if (name == "DeleteServerMessage") {
      Expect(call, client_->DeleteServerMessage(words.Number(1)));
    } else if (name == "DeleteServerMessageByUIDL") {
      Expect(call, client_->DeleteServerMessageByUIDL(words.Number(1), words.Plain(2)));
    } else if (name == "FindFullMessage") {
      Expect(call, client_->FindFullMessage(words.Number(1), Received(words), words.Named("id", ""),
                                            words.Named("separator", ""), row));
    } else if (name == "FindAndDeleteMessage") {
      Expect(call, client_->FindAndDeleteMessage(words.Number(1), Received(words),
                                                 words.Named("id", ""), row));
    } else if (name == "GetHeadersPage") {
      Any pages;
      Any messages;
      const auto page = client_->GetHeadersPage(words.Number(1), &pages, &messages);
      Expect(call, page);
      EXPECT_EQ(messages.ToText(), call.result.Named("total", messages.ToText()));
      EXPECT_EQ(pages.ToText(), call.result.Named("pages", pages.ToText()));
    } else if (name == "GetNewHeaders") {
      Expect(call, client_->GetNewHeaders(connection_, words.Plain(1), words.Plain(2) == "true"));
    } else if (name == "GetNewMessages") {
      Expect(call, client_->GetNewMessages(connection_, words.Plain(1), words.Plain(2) == "true",
                                           words.Plain(3)));
    } else if (name == "BreakDatabase") {
      connection_.Break();
    } else if (name == "Run") {
      RunCommand(call);
    } else {
      ADD_FAILURE() << "no such operation";
    }
  }

  void RunCommand(const Call& call) {
    using Command = MailServer::Command;
    const std::map<std::string, Command> commands = {
        {"STAT", Command::kStat}, {"LIST", Command::kList}, {"UIDL", Command::kUidl},
        {"TOP", Command::kTop},   {"RETR", Command::kRetr}, {"DELE", Command::kDele}};
    client_->RunOn(commands.at(call.operation.Plain(1)), call.operation.Number(2));
    if (call.result.named.contains("data")) {
      EXPECT_EQ(client_->Data(), call.result.named.at("data"));
    }
    if (call.result.named.contains("size")) {
      EXPECT_EQ(std::to_string(client_->MessageSize()), call.result.named.at("size"));
    }
    if (call.result.named.contains("uidl")) {
      EXPECT_EQ(client_->Uidl(), call.result.named.at("uidl"));
    }
  }

  static std::string Received(const Words& words) {
    return words.named.contains("at") ? "from a by b; " + words.named.at("at")
                                      : words.Named("received", "");
  }

  static MessageTraits Traits(const Words& words) {
    return {RowText(words.Named("sender", ""), kSenderCharacters),
            RowText(words.Named("subject", ""), kSubjectCharacters), words.Named("date", ""),
            words.Number("size", 0)};
  }

  static void Expect(const Call& call, bool result) {
    EXPECT_EQ(result ? "true" : "false", call.result.Plain(0));
  }

  static void Expect(const Call& call, const std::shared_ptr<MailMessage>& message) {
    if (!message) {
      EXPECT_EQ(call.result.Plain(0), "nothing");
      return;
    }
    ASSERT_EQ(call.result.Plain(0), "message");
    EXPECT_EQ(std::to_string(message->IdOnServer()), call.result.Plain(1));
    EXPECT_EQ(message->Id(), message->IdOnServer());
    const auto same = [&](const std::string& key, const std::string& value) {
      EXPECT_EQ(call.result.Named(key, value), value) << key;
    };
    same("size", std::to_string(message->Size()));
    same("uidl", message->MessageUIDL());
    same("subject", message->Subject(ETextFormat::TextFormat_Normal));
    same("id", message->MessageID());
    same("header", message->OriginalHeader());
    same("separator", message->MessageSeparator());
    same("body", message->BodyText());
  }

  static void Expect(const Call& call, const std::shared_ptr<MailMessages>& messages) {
    if (!messages) {
      EXPECT_EQ(call.result.Plain(0), "nothing");
      return;
    }
    ExpectNumbers(call, messages->Items());
  }
  static void Expect(const Call& call, const std::unique_ptr<NewMessages>& messages) {
    if (!messages) {
      EXPECT_EQ(call.result.Plain(0), "nothing");
      return;
    }
    ExpectNumbers(call, TakeAll(*messages));
  }
  static void ExpectNumbers(const Call& call,
                            const std::vector<std::shared_ptr<MailMessage>>& messages) {
    std::vector<std::string> found = {"messages"};
    for (const auto& message : messages) found.push_back(std::to_string(message->IdOnServer()));
    EXPECT_EQ(found, call.result.plain);
  }

  const Dialogue& dialogue_;
  ScriptedServer server_;
  std::unique_ptr<AheadServer> ahead_server_;
  FakeConnection connection_;
  std::shared_ptr<MailUser> user_;
  std::unique_ptr<ProbedServer> client_;
};

class DialogueTest : public testing::TestWithParam<std::filesystem::path> {};

TEST_P(DialogueTest, Whole) {
  const Dialogue dialogue = ReadDialogue(GetParam());
  SCOPED_TRACE(dialogue.claim);
  DialogueRun(dialogue, std::numeric_limits<int32_t>::max()).Go();
}

TEST_P(DialogueTest, OneByteAtATime) {
  const Dialogue dialogue = ReadDialogue(GetParam());
  SCOPED_TRACE(dialogue.claim);
  if (!dialogue.whole_only) DialogueRun(dialogue, 1).Go();
}

TEST_P(DialogueTest, WholeReadingAhead) {
  const Dialogue dialogue = ReadDialogue(GetParam());
  SCOPED_TRACE(dialogue.claim);
  DialogueRun(dialogue, std::numeric_limits<int32_t>::max(), true).Go();
}

TEST_P(DialogueTest, OneByteAtATimeReadingAhead) {
  const Dialogue dialogue = ReadDialogue(GetParam());
  SCOPED_TRACE(dialogue.claim);
  if (!dialogue.whole_only) DialogueRun(dialogue, 1, true).Go();
}

INSTANTIATE_TEST_SUITE_P(Pop3, DialogueTest, testing::ValuesIn(DialogueFiles()),
                         [](const auto& file) { return file.param.stem().string(); });

TEST(Dialogues, ThereAreSome) { EXPECT_GE(DialogueFiles().size(), 60U); }

}  // namespace
}  // namespace korvane::test
