// Reading ahead by its rules: what goes ahead, how far, and what ends it.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
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

TEST(ReadingAhead, WithNothingNewAsksForOneHeader) {
  Mailbox mailbox(100);
  mailbox.client.Connect();
  EXPECT_EQ(
      mailbox.client.GetNewMessages(mailbox.connection, "05/03/2021 00:00:00", false, "")->Count(),
      0);
  mailbox.client.Disconnect();
  const std::vector<std::string> expected = {"USER bob", "PASS secret", "STAT", "TOP 100 0",
                                             "LIST 100", "UIDL 100",    "QUIT"};
  EXPECT_EQ(mailbox.server.commands, expected);
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

TEST(ReadingAhead, LargeMessagesDoNotPileUp) {
  Mailbox mailbox(60, 1'500'000);
  mailbox.client.Connect();
  mailbox.client.GetNewMessages(mailbox.connection, kFirstDownload, false, "");
  // Sixteen at first, when nothing is known of their size; then one more than is read.
  EXPECT_LE(mailbox.server.most_waiting, 16 * 6 * 12U);
  const auto asked = mailbox.Count("RETR ");
  mailbox.server.commands.clear();
  EXPECT_GT(asked, 0);
  mailbox.client.Disconnect();
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

TEST(ReadingAhead, DeleAndQuitWaitForTheRepliesOnTheirWay) {
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

TEST(ReadingAhead, ARefusalEndsItForTheSession) {
  Mailbox mailbox(40);
  mailbox.odd = [](const std::string& line) -> std::optional<ModelReply> {
    if (line == "UIDL 38") return ModelReply{"-ERR no\r\n", ModelReply::Then::kNothing, {}};
    return std::nullopt;
  };
  mailbox.client.Connect();
  const auto messages =
      mailbox.client.GetNewMessages(mailbox.connection, kFirstDownload, false, "");
  EXPECT_EQ(messages->Count(), 40);
  EXPECT_EQ(messages->Items()[2]->MessageUIDL(), "");
  EXPECT_EQ(mailbox.server.connections, 1) << "the replies on their way can be told apart";
  const auto& commands = mailbox.server.commands;
  const auto last = std::find(commands.rbegin(), commands.rend(), "TOP 10 0").base();
  EXPECT_EQ(*last, "LIST 10");
  mailbox.client.Disconnect();
}

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
  Mailbox mailbox(50);
  mailbox.user->MailServer("pop3://pop.example");
  mailbox.client.Connect();
  mailbox.client.GetNewMessages(mailbox.connection, kFirstDownload, false, "");
  EXPECT_LE(mailbox.server.most_waiting, std::string("PASS secret\r\n").size());
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
