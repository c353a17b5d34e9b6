// Reading ahead by its rules: what goes ahead, how far, and what ends it.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "engine/ahead_selection.h"
#include "engine/model_mailbox.h"
#include "frame/error_numbers.h"
#include "pop3/host_scheme.h"
#include "pop3/reply_shape.h"

namespace korvane::test {
namespace {

using Shape = ReplyLook::Shape;

TEST(ReadingAhead, SendsTheCommandsOfLockStepInTheirOrder) {
  std::vector<std::string> commands[2];
  for (const bool ahead : {false, true}) {
    Mailbox mailbox(100);
    if (!ahead) mailbox.user->MailServer("pop.example");
    mailbox.client.Connect();
    EXPECT_EQ(mailbox.client.GetNewMessages(mailbox.connection, kFirstDownload, false, "")->Count(),
              100);
    mailbox.client.Disconnect();
    EXPECT_EQ(mailbox.server.connections, 1);
    commands[ahead] = mailbox.server.commands;
  }
  EXPECT_EQ(commands[0], commands[1]);
}

TEST(ReadingAhead, WithNothingNewAtMostOneMessagesCommandsAreSent) {
  for (const bool whole : {true, false}) {
    Mailbox mailbox(100);
    mailbox.client.Connect();
    const std::string last = "05/03/2021 00:00:00";
    const auto messages = whole ? mailbox.client.GetNewMessages(mailbox.connection, last, false, "")
                                : mailbox.client.GetNewHeaders(mailbox.connection, last, false);
    EXPECT_EQ(messages->Count(), 0);
    mailbox.client.Disconnect();
    const std::vector<std::string> expected = {"USER bob", "PASS secret", "STAT", "TOP 100 0",
                                               "LIST 100", "UIDL 100",    "QUIT"};
    EXPECT_EQ(mailbox.server.commands, expected);
  }
}

TEST(ReadingAhead, KeepsTheCommandsOnTheirWayWithinItsBound) {
  Mailbox mailbox(3'000);
  std::mt19937 pieces(1);  // so that it has to wait, as on a long line
  mailbox.server.pieces = &pieces;
  mailbox.client.Connect();
  EXPECT_EQ(mailbox.client.GetNewHeaders(mailbox.connection, kFirstDownload, false)->Count(),
            3'000);
  EXPECT_GT(mailbox.server.most_waiting, 5'000U) << "many go ahead";
  EXPECT_LE(mailbox.server.most_waiting, ServerLink::kMostCommandBytes);
}

TEST(ReadingAhead, LargeMessagesDoNotPileUpInTheWindow) {
  Mailbox mailbox(60, 1'500'000);
  int taken = 0;
  int asked = 0;
  int most = 0;
  mailbox.client.OnProgress([&](const SelectionProgress& now) { taken = now.taken; });
  mailbox.odd = [&](const std::string& line) -> std::optional<ModelReply> {
    // Sixteen at first, when nothing is known of their size.
    if (line.starts_with("RETR ") && ++asked > 16) most = std::max(most, asked - taken);
    return std::nullopt;
  };
  mailbox.client.Connect();
  mailbox.client.GetNewMessages(mailbox.connection, kFirstDownload, false, "");
  EXPECT_EQ(asked, 60);
  EXPECT_LE(most * 1'500'000, 16 << 20) << "on a line without pauses";
}

TEST(ReadingAhead, AfterALargeMessageSmallOnesGoAheadAgain) {
  Mailbox mailbox(300);
  int most = 0;
  int taken = 0;
  int asked = 0;
  mailbox.client.OnProgress([&](const SelectionProgress& now) { taken = now.taken; });
  mailbox.odd = [&](const std::string& line) -> std::optional<ModelReply> {
    if (line.starts_with("RETR ") && ++asked > 250) most = std::max(most, asked - taken);
    if (line != "RETR 290") return std::nullopt;
    return ModelReply{"+OK\r\nSubject: large\r\n\r\n" + std::string(3'000'000, 'x') + "\r\n.\r\n",
                      ModelReply::Then::kNothing,
                      {}};
  };
  std::mt19937 pieces(1);
  mailbox.server.pieces = &pieces;
  mailbox.client.Connect();
  EXPECT_EQ(mailbox.client.GetNewMessages(mailbox.connection, kFirstDownload, false, "")->Count(),
            300);
  EXPECT_GT(most, 8);
}

TEST(ReadingAhead, GoesBeyondTheMessageThatEndsTheScanByNoMoreThanTheWindow) {
  Mailbox mailbox(1'000);
  mailbox.client.Connect();
  // The time of message 990: so ten are new.
  EXPECT_EQ(
      mailbox.client.GetNewMessages(mailbox.connection, "05/03/2020 00:16:30", false, "")->Count(),
      11);
  EXPECT_LE(mailbox.Count("TOP "), 11 + 4 * 11);
  EXPECT_FALSE(mailbox.server.sent_ahead_of_turn);
}

TEST(ReadingAhead, DeleAndQuitAreNeverSentAhead) {
  Mailbox mailbox(50);
  mailbox.client.Connect();
  const auto messages =
      mailbox.client.GetNewMessages(mailbox.connection, "05/03/2020 00:00:30", false, "");
  ASSERT_GT(messages->Count(), 0);
  EXPECT_TRUE(mailbox.client.DeleteServerMessage(50));
  EXPECT_TRUE(mailbox.client.Disconnect());
  EXPECT_FALSE(mailbox.server.sent_ahead_of_turn);
  EXPECT_EQ(mailbox.server.deleted, std::set<int32_t>{50});
  EXPECT_EQ(mailbox.server.connections, 1);
}

/// A reply that is not the one that it has to be.
struct Misfit {
  const char* name;
  const char* to;
  const char* reply;
  int connections;  ///< two where what is on its way cannot be told apart
};

void PrintTo(const Misfit& misfit, std::ostream* out) { *out << misfit.name; }

class FirstMisfit : public testing::TestWithParam<Misfit> {};

TEST_P(FirstMisfit, EndsReadingAheadForTheSession) {
  const Misfit& misfit = GetParam();
  Mailbox mailbox(40);
  const size_t one = std::string("TOP 39 0\r\n").size();
  mailbox.odd = [&](const std::string& line) -> std::optional<ModelReply> {
    // This far down none was on its way when the misfit came.
    if (line == "TOP 10 0") mailbox.server.most_waiting = 0;
    if (line != misfit.to) return std::nullopt;
    return ModelReply{misfit.reply, ModelReply::Then::kNothing, {}};
  };
  mailbox.client.Connect();
  const auto messages =
      mailbox.client.GetNewMessages(mailbox.connection, kFirstDownload, false, "");
  EXPECT_EQ(messages->Count(), 40);
  EXPECT_EQ(mailbox.server.connections, misfit.connections);
  EXPECT_LE(mailbox.server.most_waiting, one) << "from then on each reply is awaited";
  EXPECT_TRUE(mailbox.client.DeleteServerMessage(40));
  // Nor does a later selection of the session begin again.
  mailbox.client.GetNewMessages(mailbox.connection, kFirstDownload, false, "");
  EXPECT_LE(mailbox.server.most_waiting, one);
  mailbox.client.Disconnect();
  EXPECT_EQ(mailbox.server.deleted, std::set<int32_t>{40});
}

INSTANTIATE_TEST_SUITE_P(
    ReadingAhead, FirstMisfit,
    testing::Values(Misfit{"ARefusedUniqueId", "UIDL 38", "-ERR no\r\n", 1},
                    Misfit{"ARefusedSize", "LIST 38", "-ERR no\r\n", 1},
                    Misfit{"ASizeWithMoreBehindIt", "LIST 38", "+OK 38 100 octets\r\n", 1},
                    Misfit{"AUniqueIdWithoutItsValue", "UIDL 38", "+OK 38\r\n", 1},
                    Misfit{"ALineThatEndsWithLfAlone", "LIST 38", "+OK 38 100\n", 2}),
    [](const auto& misfit) { return std::string(misfit.param.name); });

TEST(ReadingAhead, AServerThatDiesBeyondTheEndOfTheScanIsAskedAgainAndItsDeletionsAreMade) {
  Mailbox mailbox(50);
  mailbox.odd = [](const std::string& line) -> std::optional<ModelReply> {
    if (line == "TOP 28 0") return ModelReply{"", ModelReply::Then::kClose, {}};
    return std::nullopt;
  };
  mailbox.client.Connect();
  const auto messages =
      mailbox.client.GetNewMessages(mailbox.connection, "05/03/2020 00:00:30", false, "");
  ASSERT_EQ(messages->Count(), 21);
  EXPECT_EQ(mailbox.client.GetLastError(), 0);
  EXPECT_TRUE(mailbox.client.DeleteServerMessage(50));
  EXPECT_TRUE(mailbox.client.Disconnect());
  EXPECT_EQ(mailbox.server.connections, 2);
  EXPECT_EQ(mailbox.server.deleted, std::set<int32_t>{50});
}

TEST(ReadingAhead, ANewConnectionToAnotherMailboxEndsTheSessionAndDeletesNothing) {
  Mailbox mailbox(50);
  mailbox.odd = [&](const std::string& line) -> std::optional<ModelReply> {
    if (line == "TOP 28 0") return ModelReply{"", ModelReply::Then::kClose, {}};
    if (line == "STAT" && mailbox.server.connections > 1) {
      return ModelReply{"+OK 50 1001\r\n", ModelReply::Then::kNothing, {}};
    }
    return std::nullopt;
  };
  mailbox.client.Connect();
  mailbox.client.GetNewMessages(mailbox.connection, "05/03/2020 00:00:30", false, "");
  EXPECT_FALSE(mailbox.client.DeleteServerMessage(50));
  EXPECT_EQ(mailbox.client.GetLastError(), error::ReceiveFailed);
  EXPECT_FALSE(mailbox.client.IsIdle());
  EXPECT_TRUE(mailbox.server.deleted.empty());
}

TEST(ReadingAhead, WithoutTheMarkNoCommandIsSentBeforeTheReplyToTheLast) {
  for (const char* host : {"pop.example", "pop3://pop.example", "pop3s://pop.example",
                           "pop3s-insecure://pop.example"}) {
    Mailbox mailbox(50);
    mailbox.user->MailServer(host);
    mailbox.client.Connect();
    mailbox.client.GetNewMessages(mailbox.connection, kFirstDownload, false, "");
    EXPECT_LE(mailbox.server.most_waiting, std::string("PASS secret\r\n").size()) << host;
  }
}

TEST(ReadingAhead, NotOneByteOfTheDialogueChangesForAnAccountWithoutTheMark) {
  Mailbox mailbox(2);
  mailbox.user->MailServer("pop3://pop.example");
  mailbox.client.Connect();
  EXPECT_EQ(mailbox.client.GetNewMessages(mailbox.connection, kFirstDownload, false, "")->Count(),
            2);
  EXPECT_TRUE(mailbox.client.DeleteServerMessage(2));
  mailbox.client.Disconnect();
  EXPECT_EQ(mailbox.server.heard,
            "USER bob\r\nPASS secret\r\nSTAT\r\n"
            "TOP 2 0\r\nLIST 2\r\nUIDL 2\r\nRETR 2\r\nLIST 2\r\nUIDL 2\r\n"
            "TOP 1 0\r\nLIST 1\r\nUIDL 1\r\nRETR 1\r\nLIST 1\r\nUIDL 1\r\n"
            "DELE 2\r\nQUIT\r\n");
}

TEST(ReadingAhead, TheClientsOwnDialogueNeverSendsCapa) {
  for (const char* host : {"pop.example", "pop3+ahead://pop.example", "pop3s+ahead://pop.example",
                           "pop3s-insecure+ahead://pop.example"}) {
    Mailbox mailbox(30);
    mailbox.user->MailServer(host);
    mailbox.odd = [&](const std::string& line) -> std::optional<ModelReply> {
      // Also not where it has to connect again.
      if (line != "TOP 20 0" || mailbox.server.connections > 1) return std::nullopt;
      return ModelReply{"+OK\r\n", ModelReply::Then::kClose, {}};
    };
    mailbox.client.Connect();
    mailbox.client.GetMessagesCount();
    mailbox.client.GetNewHeaders(mailbox.connection, "05/03/2020 00:00:25", false);
    mailbox.client.GetNewMessages(mailbox.connection, kFirstDownload, true, "");
    mailbox.client.Connect();
    mailbox.client.GetHeadersPage(1, nullptr, nullptr);
    mailbox.client.GetFullMessage(3, "");
    mailbox.client.FindFullMessage(-1, "from a by b; Thu, 5 Mar 2020 00:00:28 +0000", "<28@a>", "");
    mailbox.client.FindAndDeleteMessage(-1, "from a by b; Thu, 5 Mar 2020 00:00:29 +0000",
                                        "<29@a>");
    mailbox.client.DeleteServerMessage(4);
    mailbox.client.Disconnect();
    EXPECT_GT(mailbox.Count("TOP "), 10) << host;
    EXPECT_EQ(mailbox.Count("DELE "), 2) << host;
    EXPECT_EQ(mailbox.Count("QUIT"), 1) << host;
    EXPECT_EQ(mailbox.server.heard.find("CAPA"), std::string::npos) << host;
  }
}

// Seeds that once told the two apart.
TEST(ReadingAhead, ATextWithoutItsEndDoesNotSwallowTheNextReplies) { CompareSelections(87); }
TEST(ReadingAhead, ALineTooManyBehindATextDoesNotCountAsTheNextReply) { CompareSelections(222); }
TEST(ReadingAhead, AServerThatFallsSilentOverADroppedCommandIsAskedAgain) {
  CompareSelections(1'002'416);
}
TEST(ReadingAhead, AServerThatHangsUpBehindTheLastReplyHangsUpInBoth) {
  CompareSelections(1'002'929);
}
TEST(ReadingAhead, ATextDoesNotBeginWithWhatIsNoField) { CompareSelections(1'003'887); }
TEST(ReadingAhead, AUniqueIdThatMayBeASizeIsAskedForAgain) { CompareSelections(1'008'606); }
TEST(ReadingAhead, AStatusLineIsNotTakenForAUniqueId) { CompareSelections(1'021'084); }
TEST(ReadingAhead, ATextDoesNotBeginWithAnEmptyLine) { CompareSelections(1'054'234); }
TEST(ReadingAhead, AUniqueIdWithoutItsLineEndDoesNotRunIntoTheNextReply) {
  CompareSelections(1'091'939);
}
TEST(ReadingAhead, AnEmptyTextIsFetchedInLockStep) { CompareSelections(1'099'727); }

TEST(ReplyShape, ASizeHasItsNumberAndNothingElse) {
  ReplyShape shape({ReplyForm::kSize, 5});
  EXPECT_EQ(shape.Look("+OK 5 120\r\n+OK").shape, Shape::kWhole);
  EXPECT_EQ(shape.Look("+OK 5 120\r\n+OK").length, 11U);
  for (const char* part : {"", "+", "+OK 5", "+OK 5 12", "+OK 5 12\r"}) {
    EXPECT_EQ(shape.Look(part).shape, Shape::kPart) << part;
  }
  for (const char* other : {"-ERR\r\n", "+OK 6 1\r\n", "+OK 5\r\n", "+OK 5 \r\n", "+OK 5 x\r\n",
                            "+OK 5 12\n", "+OK 5 12 octets\r\n", "+ok 5 12\r\n", "\r\n"}) {
    EXPECT_EQ(shape.Look(other).shape, Shape::kOther) << other;
  }
}

TEST(ReplyShape, ATextEndsAtItsFirstDotHoweverItComes) {
  const std::string text = "+OK\r\nA: b\r\n\r\n..x\r\nend\r\n.\r\n";
  for (size_t piece = 1; piece <= text.size(); ++piece) {
    ReplyShape shape({ReplyForm::kText, 5});
    std::string waiting;
    std::string given;
    bool whole = false;
    for (size_t at = 0; at < text.size() && !whole; at += piece) {
      waiting += text.substr(at, piece);
      const ReplyLook look = shape.Look(waiting);
      ASSERT_NE(look.shape, Shape::kOther) << "piece " << piece;
      whole = look.shape == Shape::kWhole;
      shape.HandOn(look.length);
      given += waiting.substr(0, look.length);
      waiting.erase(0, look.length);
    }
    EXPECT_TRUE(whole);
    EXPECT_EQ(given, text);
  }
}

TEST(HostScheme, SaysWhetherAnAccountReadsAhead) {
  EXPECT_FALSE(ReadHostScheme("pop.example", 110).reads_ahead);
  EXPECT_FALSE(ReadHostScheme("pop3s://pop.example", 995).reads_ahead);
  for (const char* host : {"pop3+ahead://h", "pop3s+ahead://h", "POP3S-Insecure+Ahead://h"}) {
    EXPECT_TRUE(ReadHostScheme(host, 110).reads_ahead) << host;
    EXPECT_EQ(ReadHostScheme(host, 110).host, "h");
  }
}

TEST(HostScheme, SwitchingReadingAheadKeepsTheRest) {
  EXPECT_EQ(ReadHostScheme("h", 995).WithReadAhead(true), "pop3s+ahead://h");
  EXPECT_EQ(ReadHostScheme("h", 110).WithReadAhead(true), "pop3+ahead://h");
  EXPECT_EQ(ReadHostScheme("pop3s-insecure://h:9", 1).WithReadAhead(true),
            "pop3s-insecure+ahead://h:9");
  EXPECT_EQ(ReadHostScheme("pop3+ahead://h", 995).WithReadAhead(false), "pop3://h");
}

}  // namespace
}  // namespace korvane::test
