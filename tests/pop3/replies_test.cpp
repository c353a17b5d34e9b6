// Replies without a socket: parsing, and putting together what arrives in pieces.
#include "pop3/replies.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "frame/error_numbers.h"

namespace korvane {
namespace {

using Progress = ReplyReader::Progress;

/// The text of a multi-line reply fed in pieces of the given size; "(open)" when it did not end.
std::string Text(ReplyKind kind, std::string_view reply, size_t piece) {
  ReplyReader reader;
  reader.Expect(kind);
  for (size_t i = 0; i < reply.size(); i += piece) {
    const Progress progress = reader.Feed(reply.substr(i, piece));
    if (progress == Progress::kComplete) return reader.InText() ? reader.TakeText() : "(status)";
    if (progress == Progress::kTooLong) return "(too long)";
  }
  return "(open)";
}

void ExpectText(ReplyKind kind, std::string_view reply, std::string_view text) {
  for (size_t piece = 1; piece <= reply.size() + 1; ++piece) {
    EXPECT_EQ(Text(kind, reply, piece), text) << "in pieces of " << piece;
  }
}

TEST(Replies, AReplyIsPositiveByItsFirstCharacterAlone) {
  EXPECT_TRUE(IsPositiveReply("+"));
  EXPECT_TRUE(IsPositiveReply("+nonsense"));
  EXPECT_FALSE(IsPositiveReply("-ERR"));
  EXPECT_FALSE(IsPositiveReply(" +OK"));
  EXPECT_FALSE(IsPositiveReply("OK"));
  EXPECT_FALSE(IsPositiveReply(std::string_view("\0+OK", 4)));
  EXPECT_FALSE(IsPositiveReply(""));
}

TEST(Replies, StatCountStandsBehindExactlyPlusOkAndABlank) {
  EXPECT_EQ(StatCount("+OK 3 1200\r\n"), 3);
  EXPECT_EQ(StatCount("+OK 0 0\r\n"), 0);
  EXPECT_EQ(StatCount("+OK 12\r\n"), 12);
  EXPECT_EQ(StatCount("+ABC7 1"), 7) << "four characters, whatever they are";
  EXPECT_EQ(StatCount("+OK  3 1200\r\n"), std::nullopt)
      << "the field before the second blank is empty";
  EXPECT_EQ(StatCount("+OK\r\n"), std::nullopt);
  EXPECT_EQ(StatCount("+OK"), std::nullopt);
  EXPECT_EQ(StatCount("+"), std::nullopt);
  EXPECT_EQ(StatCount("+OK many 1"), std::nullopt);
  EXPECT_EQ(StatCount("+OK -3 1"), std::nullopt);
}

TEST(Replies, NumbersStopAtTheEndsOf32Bits) {
  EXPECT_EQ(ReplyNumber("2147483647"), 2147483647);
  EXPECT_EQ(ReplyNumber("2147483648"), 2147483647);
  EXPECT_EQ(ReplyNumber("99999999999999999999999999999999999"), 2147483647);
  EXPECT_EQ(ReplyNumber("-99999999999999999999"), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(ReplyNumber("-2147483648.9"), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(ReplyNumber("2147483647.9"), 2147483647);
}

TEST(Replies, NumbersAreRoundedHalfToEven) {
  EXPECT_EQ(ReplyNumber("1200.4"), 1200);
  EXPECT_EQ(ReplyNumber("1200.5"), 1200);
  EXPECT_EQ(ReplyNumber("1201.5"), 1202);
  EXPECT_EQ(ReplyNumber("1200.500"), 1200);
  EXPECT_EQ(ReplyNumber("1200.51"), 1201);
  EXPECT_EQ(ReplyNumber("1200."), 1200);
}

TEST(Replies, ANumberEndsWhereItsDigitsEnd) {
  EXPECT_EQ(ReplyNumber("  42 octets"), 42);
  EXPECT_EQ(ReplyNumber("42octets"), 42);
  EXPECT_EQ(ReplyNumber("+7"), 7);
  EXPECT_EQ(ReplyNumber("abc"), 0);
  EXPECT_EQ(ReplyNumber(""), 0);
  EXPECT_EQ(ReplyNumber("-"), 0);
  EXPECT_EQ(ReplyNumber(std::string_view("4\0002", 3)), 4);
}

TEST(Replies, AFieldWithoutAFirstBlankIs1075) {
  EXPECT_EQ(SecondReplyField("+OK\r\n").error, error::ReplyWithoutField);
  EXPECT_EQ(SecondReplyField("+OK").error, error::ReplyWithoutField);
  EXPECT_EQ(SecondReplyField("+OK ").error, error::ReplyWithoutField) << "the blank is the last";
  EXPECT_EQ(SecondReplyField("").error, error::ReplyWithoutField);
}

TEST(Replies, AFieldWithoutASecondBlankIs1076) {
  EXPECT_EQ(SecondReplyField("+OK 5\r\n").error, error::ReplyWithoutValue);
  EXPECT_EQ(SecondReplyField("+OK 5").error, error::ReplyWithoutValue);
  EXPECT_EQ(SecondReplyField("+OK 5 ").error, error::ReplyWithoutValue) << "the blank is the last";
  EXPECT_EQ(SecondReplyField("+OK \r\n").error, error::ReplyWithoutValue);
}

TEST(Replies, AFieldRunsToTheLineEndOrToTheLastCharacter) {
  EXPECT_EQ(SecondReplyField("+OK 2 abc\r\n").value, "abc");
  EXPECT_EQ(SecondReplyField("+OK 2 abc").value, "abc");
  EXPECT_EQ(SecondReplyField("+OK 2 abc\n").value, "abc");
  EXPECT_EQ(SecondReplyField("+OK 2 a b c\r\n").value, "a b c");
  EXPECT_EQ(SecondReplyField("+OK 2 \r\n").value, "");
  EXPECT_EQ(SecondReplyField("+OK 2 \r\n").error, 0);
  EXPECT_EQ(SecondReplyField("+OK  abc\r\n").value, "abc") << "two blanks in a row are two";
}

TEST(Replies, AHeaderKeepsItsFinalLineBreakAndAMessageLosesIt) {
  constexpr std::string_view kReply = "+OK 12 octets\r\nSubject: x\r\n\r\nbody\r\n.\r\n";
  ExpectText(ReplyKind::kHeader, kReply, "Subject: x\r\n\r\nbody\r\n");
  ExpectText(ReplyKind::kMessage, kReply, "Subject: x\r\n\r\nbody");
}

TEST(Replies, DoubledDotsStayDoubled) {
  ExpectText(ReplyKind::kMessage, "+OK\r\n\r\n..x\r\n..\r\n.\r\n", "\r\n..x\r\n..");
}

TEST(Replies, AnEmptyTextIsEmpty) {
  for (const ReplyKind kind : {ReplyKind::kHeader, ReplyKind::kMessage}) {
    ExpectText(kind, "+OK\r\n.\r\n", "");
    ExpectText(kind, "+OK\n.\n", "");
    ExpectText(kind, "+OK\r\n.\n", "");
  }
  ExpectText(ReplyKind::kHeader, "+OK\r\n\r\n.\r\n", "\r\n");
  ExpectText(ReplyKind::kMessage, "+OK\r\n\r\n.\r\n", "");
}

TEST(Replies, ATextWithLfAloneEndsWithLfDotLf) {
  ExpectText(ReplyKind::kHeader, "+OK\nSubject: x\n\n.\n", "Subject: x\n\n");
  ExpectText(ReplyKind::kMessage, "+OK\nSubject: x\n\nbody\n.\n", "Subject: x\n\nbody");
  ExpectText(ReplyKind::kMessage, "+OK\r\nSubject: x\n\nbody\n.\r\n", "Subject: x\n\nbody");
  ExpectText(ReplyKind::kMessage, "+OK\r\nSubject: x\n\nbody\r\n.\r\n", "Subject: x\n\nbody");
}

TEST(Replies, ALineOfOneDotBetweenLfIsContentInATextWithCrLf) {
  ExpectText(ReplyKind::kMessage, "+OK\r\nSubject: x\r\n\r\na\n.\nb\r\n.\r\n",
             "Subject: x\r\n\r\na\n.\nb");
  ExpectText(ReplyKind::kMessage, "+OK\r\nSubject: x\r\n\r\na\n.\r\nb\r\n.\r\n",
             "Subject: x\r\n\r\na\n.\r\nb");
}

TEST(Replies, TheEndIsLookedForInTheLastTenCharacters) {
  EXPECT_EQ(Text(ReplyKind::kMessage, "+OK\r\na\r\n.\r\n12345", 1000), "a");
  EXPECT_EQ(Text(ReplyKind::kMessage, "+OK\r\na\r\n.\r\n123456", 1000), "(open)");
}

TEST(Replies, ANegativeReplyToATextCommandIsOneLine) {
  ReplyReader reader;
  for (const std::string_view reply : {"-ERR no\r\n", "-ERR no\n"}) {
    reader.Expect(ReplyKind::kMessage);
    for (size_t i = 0; i + 1 < reply.size(); ++i) {
      ASSERT_EQ(reader.Feed(reply.substr(i, 1)), Progress::kMore);
    }
    EXPECT_EQ(reader.Feed(reply.substr(reply.size() - 1)), Progress::kComplete);
    EXPECT_FALSE(reader.InText());
    EXPECT_EQ(reader.Status(), reply);
  }
}

TEST(Replies, AStatusLineIsJoinedUntilItsLf) {
  ReplyReader reader;
  reader.Expect(ReplyKind::kLine);
  EXPECT_EQ(reader.Feed("+"), Progress::kMore);
  EXPECT_EQ(reader.Feed("OK 3 12"), Progress::kMore);
  EXPECT_EQ(reader.Feed("00\r"), Progress::kMore);
  EXPECT_EQ(reader.Feed("\n"), Progress::kComplete);
  EXPECT_EQ(reader.Status(), "+OK 3 1200\r\n");
}

TEST(Replies, WhatComesBehindAStatusLineIsNoPartOfIt) {
  ReplyReader reader;
  reader.Expect(ReplyKind::kLine);
  EXPECT_EQ(reader.Feed("+OK\r\n 5 surplus\r\n"), Progress::kComplete);
  EXPECT_EQ(reader.Status(), "+OK\r\n");
}

TEST(Replies, TheRestOfALineThatCameTooLateIsDropped) {
  for (const size_t piece : {1, 2, 3, 100}) {
    ReplyReader reader;
    reader.Expect(ReplyKind::kLine);
    EXPECT_EQ(reader.Feed("+OK 3 1"), Progress::kMore);
    ASSERT_TRUE(reader.TakeWhatCame());
    EXPECT_EQ(reader.Status(), "+OK 3 1");
    reader.Expect(ReplyKind::kLine);
    constexpr std::string_view kLate = "200\r\n+OK 7 abc\r\n";
    Progress progress = Progress::kMore;
    for (size_t i = 0; i < kLate.size(); i += piece) progress = reader.Feed(kLate.substr(i, piece));
    EXPECT_EQ(progress, Progress::kComplete);
    EXPECT_EQ(reader.Status(), "+OK 7 abc\r\n");
  }
}

TEST(Replies, WithoutALateRestTheNextReplyIsTakenAsItComes) {
  ReplyReader reader;
  reader.Expect(ReplyKind::kLine);
  EXPECT_EQ(reader.Feed("-ERR"), Progress::kMore);
  ASSERT_TRUE(reader.TakeWhatCame());
  reader.Expect(ReplyKind::kLine);
  EXPECT_EQ(reader.Feed("+OK\r\n"), Progress::kComplete);
  EXPECT_EQ(reader.Status(), "+OK\r\n");
  reader.Expect(ReplyKind::kLine);
  EXPECT_EQ(reader.Feed("garbage\r\n"), Progress::kComplete) << "only a late rest is dropped";
  EXPECT_EQ(reader.Status(), "garbage\r\n");
}

TEST(Replies, ALateRestBeforeATextIsDroppedToo) {
  ReplyReader reader;
  reader.Expect(ReplyKind::kLine);
  reader.Feed("+OK 3");
  ASSERT_TRUE(reader.TakeWhatCame());
  reader.Expect(ReplyKind::kHeader);
  EXPECT_EQ(reader.Feed(" 1200\r\n+OK\r\nSubject: x\r\n\r\n.\r\n"), Progress::kComplete);
  EXPECT_EQ(reader.TakeText(), "Subject: x\r\n\r\n");
}

TEST(Replies, ATextHasNoPartThatCouldBeTakenForIt) {
  ReplyReader reader;
  reader.Expect(ReplyKind::kMessage);
  EXPECT_EQ(reader.Feed("+OK\r\nSubject"), Progress::kMore);
  EXPECT_FALSE(reader.TakeWhatCame());
  reader.Expect(ReplyKind::kLine);
  EXPECT_FALSE(reader.TakeWhatCame()) << "nothing came";
}

TEST(Replies, EveryLimitHolds) {
  ReplyLimits limits;
  limits.status_line = 8;
  limits.text_line = 10;
  limits.header = 29;
  limits.message = 60;
  const auto feed = [&](ReplyKind kind, std::string_view reply, size_t piece) {
    ReplyReader reader(limits);
    reader.Expect(kind);
    Progress progress = Progress::kMore;
    for (size_t i = 0; i < reply.size() && progress == Progress::kMore; i += piece) {
      progress = reader.Feed(reply.substr(i, piece));
    }
    return progress;
  };
  for (const size_t piece : {1, 5, 1000}) {
    EXPECT_EQ(feed(ReplyKind::kLine, "+OK 12\r\n", piece), Progress::kComplete);
    EXPECT_EQ(feed(ReplyKind::kLine, "+OK 123\r\n", piece), Progress::kTooLong);
    EXPECT_EQ(feed(ReplyKind::kLine, std::string(100, '+'), piece), Progress::kTooLong);
    EXPECT_EQ(feed(ReplyKind::kHeader, "-" + std::string(100, 'x'), piece), Progress::kTooLong);
    EXPECT_EQ(feed(ReplyKind::kMessage, "+OK\r\n" + std::string(11, 'x'), piece),
              Progress::kTooLong);
    EXPECT_EQ(feed(ReplyKind::kHeader, "+OK\r\n123456\r\n123456\r\n1234\r\n.\r\n", piece),
              Progress::kTooLong);
    EXPECT_EQ(feed(ReplyKind::kMessage, "+OK\r\n123456\r\n123456\r\n1234\r\n.\r\n", piece),
              Progress::kComplete);
  }
}

TEST(Replies, ALateRestHasALimitToo) {
  ReplyLimits limits;
  limits.status_line = 8;
  ReplyReader reader(limits);
  reader.Expect(ReplyKind::kLine);
  reader.Feed("+OK");
  ASSERT_TRUE(reader.TakeWhatCame());
  reader.Expect(ReplyKind::kLine);
  EXPECT_EQ(reader.Feed("12345678"), Progress::kMore);
  EXPECT_EQ(reader.Feed("9"), Progress::kTooLong);
}

}  // namespace
}  // namespace korvane
