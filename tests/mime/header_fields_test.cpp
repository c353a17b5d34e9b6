#include "mime/header_fields.h"

#include <gtest/gtest.h>

#include "mime/quote_pairs.h"
#include "support/hostile_input.h"

namespace korvane {
namespace {

using test::CpuSecondsOf;
using test::kGenerousSeconds;
using test::Repeated;

std::vector<std::string> Unfolded(std::string header) {
  const std::vector<std::string_view> lines = UnfoldHeader(header);
  return {lines.begin(), lines.end()};
}

using Lines = std::vector<std::string>;

TEST(Unfold, AContinuationAfterATabIsJoinedWithThreeBlanks) {
  EXPECT_EQ(Unfolded("Subject: one\r\n\ttwo\r\nFrom: ann@x.org"),
            (Lines{"Subject: one   two", "From: ann@x.org"}));
}

TEST(Unfold, AContinuationAfterABlankIsJoinedWithThreeBlanks) {
  EXPECT_EQ(Unfolded("A: 1\r\n 2"), (Lines{"A: 1   2"}));
}

TEST(Unfold, OnlyTheFirstBlankOfAContinuationBelongsToTheFold) {
  EXPECT_EQ(Unfolded("A: 1\r\n \t 2"), (Lines{"A: 1   \t 2"}));
}

TEST(Unfold, AnEmptyHeaderHasNoLines) { EXPECT_TRUE(Unfolded("").empty()); }

TEST(Unfold, LeadingLineEndsAreDropped) { EXPECT_EQ(Unfolded("\r\n\r\nA: 1"), (Lines{"A: 1"})); }

TEST(Unfold, ATrailingLineEndIsDropped) { EXPECT_EQ(Unfolded("A: 1\r\n"), (Lines{"A: 1"})); }

TEST(Unfold, AHeaderOfLineEndsOnlyHasNoLines) { EXPECT_TRUE(Unfolded("\r\n\r\n").empty()); }

TEST(Unfold, AFoldOfNothingAtTheEndIsBlanks) {
  EXPECT_EQ(Unfolded("A: 1\r\n \r\n"), (Lines{"A: 1   "}));
}

TEST(Unfold, AFirstLineThatBeginsWithABlankContinuesNothing) {
  EXPECT_EQ(Unfolded("\r\n B: 2\r\nC: 3"), (Lines{" B: 2", "C: 3"}));
}

TEST(Unfold, ALineFeedAloneEndsNoLine) {
  EXPECT_EQ(Unfolded("A: 1\nB: 2\r\nC: 3"), (Lines{"A: 1\nB: 2", "C: 3"}));
}

TEST(Unfold, ACarriageReturnAloneEndsNoLine) {
  EXPECT_EQ(Unfolded("A: 1\r\r\nB: 2\r"), (Lines{"A: 1\r", "B: 2\r"}));
}

// The plain way: one search and one change of the text after the other.
Lines UnfoldedStepByStep(std::string header) {
  size_t from = 0;
  while (from < header.size()) {
    const size_t at = header.find("\r\n", from);
    if (at == std::string::npos) break;
    if (at == 0) {
      header.erase(0, 2);
    } else if (at + 2 == header.size()) {
      header.erase(at);
    } else if (header[at + 2] == ' ' || header[at + 2] == '\t') {
      header.replace(at, 3, "   ");
      from = at + 1;
    } else {
      from = at + 2;
    }
  }
  Lines lines;
  if (header.empty()) return lines;
  for (size_t begin = 0;;) {
    const size_t end = header.find("\r\n", begin);
    lines.push_back(header.substr(begin, end == std::string::npos ? end : end - begin));
    if (end == std::string::npos) return lines;
    begin = end + 2;
  }
}

// Every text of up to seven pieces, in base four.
template <class Check>
void ForEveryHeader(Check check) {
  const std::string pieces[] = {"\r\n", " ", "a:", "\t\r"};
  for (int count = 0; count <= 6; ++count) {
    for (int code = 0; code < 1 << (2 * count); ++code) {
      std::string header;
      for (int i = 0; i < count; ++i) header += pieces[code >> (2 * i) & 3];
      check(header);
    }
  }
}

TEST(Unfold, EveryShortHeaderUnfoldsAsItDoesStepByStep) {
  ForEveryHeader([](const std::string& header) {
    ASSERT_EQ(Unfolded(header), UnfoldedStepByStep(header)) << testing::PrintToString(header);
  });
}

TEST(Unfold, HostileHeadersTakeLinearTime) {
  for (const char* piece : {"\r\n", "\r\n ", "a\r\n\t", "\r", "\n", "a:b\r\n"}) {
    std::string header = Repeated(piece, 4 << 20);
    EXPECT_LT(CpuSecondsOf([&] { UnfoldHeader(header); }), kGenerousSeconds) << piece;
  }
}

struct Field {
  std::string name;
  std::string value;
  bool operator==(const Field&) const = default;
};
void PrintTo(const Field& field, std::ostream* out) { *out << field.name << "=" << field.value; }

std::vector<Field> FieldsOf(std::string_view header) {
  std::vector<Field> fields;
  HeaderReader reader(header);
  while (reader.Next()) {
    fields.push_back({std::string(reader.Name()), std::string(reader.Value())});
  }
  return fields;
}

std::vector<Field> FieldsStepByStep(const std::string& header) {
  std::vector<Field> fields;
  for (const std::string& line : UnfoldedStepByStep(header)) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos || colon == 0) continue;
    const std::string name = LowerCase(TrimBlanks(std::string_view(line).substr(0, colon)));
    fields.push_back({name.size() > 32 ? "" : name,
                      std::string(TrimBlanks(std::string_view(line).substr(colon + 1)))});
  }
  return fields;
}

TEST(HeaderReader, ANameIsLowerCasedAndTrimmedAndItsValueTrimmed) {
  EXPECT_EQ(FieldsOf("SUBJECT :  Hello  \r\nFrom:ann@x.org"),
            (std::vector<Field>{{"subject", "Hello"}, {"from", "ann@x.org"}}));
}

TEST(HeaderReader, ALineThatBeginsWithAColonIsPassedOver) {
  EXPECT_EQ(FieldsOf(": a\r\nb: c"), (std::vector<Field>{{"b", "c"}}));
}

TEST(HeaderReader, ALineWithoutAColonIsPassedOver) {
  EXPECT_EQ(FieldsOf("hello\r\nb: c"), (std::vector<Field>{{"b", "c"}}));
}

TEST(HeaderReader, NothingAfterTheColonIsAnEmptyValue) {
  EXPECT_EQ(FieldsOf("Subject:\r\nb:"), (std::vector<Field>{{"subject", ""}, {"b", ""}}));
}

TEST(HeaderReader, AFoldBeforeTheColonBelongsToTheBlanksAroundTheName) {
  EXPECT_EQ(FieldsOf("Subject\r\n : x"), (std::vector<Field>{{"subject", "x"}}));
}

TEST(HeaderReader, ANameLongerThanAnyTablesIsEmpty) {
  EXPECT_EQ(FieldsOf(std::string(33, 'a') + ": x"), (std::vector<Field>{{"", "x"}}));
  EXPECT_EQ(FieldsOf(std::string(32, 'a') + ": x").front().name.size(), 32u);
}

TEST(HeaderReader, EveryShortHeaderReadsAsItUnfolds) {
  ForEveryHeader([](const std::string& header) {
    ASSERT_EQ(FieldsOf(header), FieldsStepByStep(header)) << testing::PrintToString(header);
  });
}

TEST(HeaderReader, HostileHeadersTakeLinearTime) {
  for (const char* piece : {"\r\n", "\r\n ", "a:\r\n\t", "\r", "\n", "a:b\r\n", " ", "\r\n \t:"}) {
    const std::string header = Repeated(piece, 4 << 20);
    EXPECT_LT(CpuSecondsOf([&] { FieldsOf(header); }), kGenerousSeconds) << piece;
  }
}

TEST(MediaType, BeforeASemicolonTheTypeIsTrimmedAndLowerCased) {
  EXPECT_EQ(MediaType(" Text/HTML ; charset=utf-8"), "text/html");
}

TEST(MediaType, WithoutASemicolonALeadingBlankSurvives) {
  EXPECT_EQ(MediaType(" Text/HTML "), " text/html ");
}

TEST(MediaType, OfNothingIsNothing) { EXPECT_EQ(MediaType(""), ""); }

TEST(NthToken, CountsFromOneAndTrims) {
  EXPECT_EQ(NthToken("text / plain / x", '/', 1), "text");
  EXPECT_EQ(NthToken("text / plain / x", '/', 2), "plain");
  EXPECT_EQ(NthToken("text / plain / x", '/', 3), "x");
}

TEST(NthToken, TooFewPiecesAreEmpty) {
  EXPECT_EQ(NthToken("text", '/', 2), "");
  EXPECT_EQ(NthToken("", '/', 1), "");
  EXPECT_EQ(NthToken("a/b", '/', 0), "");
  EXPECT_EQ(NthToken("a/b", '/', -1), "");
}

TEST(Quotes, InsideIsStrictlyBetweenTheQuotesOfAPair) {
  const std::string_view text = "a\"b\"c\"d\"";
  const std::string_view inside = "..i...i.";
  for (size_t i = 0; i < text.size(); ++i) {
    EXPECT_EQ(IsInsideQuotes(text, i), inside[i] == 'i') << i;
  }
}

TEST(Quotes, AnUnpairedLastQuoteOpensNothing) {
  EXPECT_FALSE(IsInsideQuotes("a\"b", 2));
  EXPECT_FALSE(IsInsideQuotes("\"a\" \"b", 5));
}

TEST(Quotes, ABackslashMeansNothing) { EXPECT_FALSE(IsInsideQuotes("\"a\\\"b", 4)); }

TEST(Quotes, RisingPositionsAgreeWithSingleQuestions) {
  const std::string text = "\"\"a\"b\"\"\"c,\"d\",e\"";
  QuotePairs pairs(text);
  for (size_t i = 0; i < text.size(); ++i) {
    EXPECT_EQ(pairs.Inside(i), IsInsideQuotes(text, i)) << i;
  }
}

TEST(Unquote, WithoutAQuoteTheTextIsTrimmed) { EXPECT_EQ(Unquote("  a b "), "a b"); }

TEST(Unquote, BetweenTheFirstAndTheLastQuoteNothingIsTrimmed) {
  EXPECT_EQ(Unquote(" x\" a \" b \"y"), " a \" b ");
}

TEST(Unquote, AfterASingleQuoteEverythingCounts) { EXPECT_EQ(Unquote("a \"b "), "b "); }

TEST(AngleBrackets, AreRemovedFromAnIdentifier) {
  EXPECT_EQ(WithoutAngleBrackets("<a@b>"), "a@b");
  EXPECT_EQ(WithoutAngleBrackets("x < \t a@b > y"), "a@b");
  EXPECT_EQ(WithoutAngleBrackets("a@b"), "a@b");
}

TEST(AngleBrackets, WhiteSpaceEndsAnIdentifierBeforeTheBracket) {
  EXPECT_EQ(WithoutAngleBrackets("<a b>"), "a");
  EXPECT_EQ(WithoutAngleBrackets("  a\tb"), "a");
}

TEST(AngleBrackets, AMissingLastBracketEndsAtTheTextsEnd) {
  EXPECT_EQ(WithoutAngleBrackets("<a@b"), "a@b");
}

TEST(AngleBrackets, NothingBetweenThemIsNothing) {
  EXPECT_EQ(WithoutAngleBrackets("<>"), "");
  EXPECT_EQ(WithoutAngleBrackets("<  >"), "");
  EXPECT_EQ(WithoutAngleBrackets("<"), "");
  EXPECT_EQ(WithoutAngleBrackets("   "), "");
  EXPECT_EQ(WithoutAngleBrackets(""), "");
}

TEST(Trim, TakesBlanksAndNothingElse) {
  EXPECT_EQ(TrimBlanks("  a b\t "), "a b\t");
  EXPECT_EQ(TrimBlanks("   "), "");
}

TEST(FileName, DirectoriesOfBothKindsAndDrivesAreRemoved) {
  EXPECT_EQ(FileNameFromPath("C:\\dir\\a.txt"), "a.txt");
  EXPECT_EQ(FileNameFromPath("dir/a.txt"), "a.txt");
  EXPECT_EQ(FileNameFromPath("a.txt"), "a.txt");
  EXPECT_EQ(FileNameFromPath("x:y"), "y");
}

TEST(FileName, ASeparatorAtTheEndIsRemovedFirst) {
  EXPECT_EQ(FileNameFromPath("a/b/"), "b");
  EXPECT_EQ(FileNameFromPath("a\\b\\"), "b");
  EXPECT_EQ(FileNameFromPath("/"), "");
  EXPECT_EQ(FileNameFromPath("a//"), "");
}

TEST(FileName, ABackslashCountsOnlyWithoutASlash) { EXPECT_EQ(FileNameFromPath("a/b\\c"), "b\\c"); }

TEST(FileName, WhatIsLeftIsTrimmed) { EXPECT_EQ(FileNameFromPath("a/ b.txt "), "b.txt"); }

TEST(DotStuffing, ALineThatBeganWithTwoFullStopsKeepsOne) {
  EXPECT_EQ(UndoDotStuffing("..a\r\n..b\r\n.c\r\nd"), ".a\r\n.b\r\nc\r\nd");
}

TEST(DotStuffing, OnlyALineEndOfBothCharactersCounts) {
  EXPECT_EQ(UndoDotStuffing("a\n.b\r.c"), "a\n.b\r.c");
}

TEST(DotStuffing, DotsThatMeetALineEndByTheRemovalStay) {
  EXPECT_EQ(UndoDotStuffing(".\r\n.\r\n..\r\n"), "\r\n\r\n.\r\n");
}

TEST(DotStuffing, OfNothingIsNothing) {
  EXPECT_EQ(UndoDotStuffing(""), "");
  EXPECT_EQ(UndoDotStuffing("."), "");
}

TEST(DotStuffing, AMailOfStoppedLinesTakesLinearTime) {
  const std::string text = Repeated("\r\n.", 5 << 20);
  EXPECT_LT(CpuSecondsOf([&] { UndoDotStuffing(text); }), kGenerousSeconds);
}

std::string Decoded(EContentTransferEncoding encoding, std::string_view body,
                    EEntityType type = EEntityType::Text, ECharset charset = ECharset::us_ascii) {
  return DecodeTransferEncoding(type, charset, encoding, body);
}

TEST(TransferDecoding, InAQuotedPrintableOrSevenBitBodyALineOfTwoFullStopsKeepsOne) {
  EXPECT_EQ(Decoded(EContentTransferEncoding::quoted_printable, "a=3D\r\n..b=\r\nc"), "a=\r\n.bc");
  EXPECT_EQ(Decoded(EContentTransferEncoding::T7Bit, "a=3D\r\n..b"), "a=3D\r\n.b");
  EXPECT_EQ(Decoded(EContentTransferEncoding::T8Bit, "..b"), ".b");
  EXPECT_EQ(Decoded(EContentTransferEncoding::Binary, "..b"), ".b");
}

TEST(TransferDecoding, DotsAreUndoneBeforeQuotedPrintableIs) {
  EXPECT_EQ(Decoded(EContentTransferEncoding::quoted_printable, "a=0D=0A.b"), "a\r\n.b");
}

TEST(TransferDecoding, ABase64BodyIsDecodedAsItStands) {
  EXPECT_EQ(Decoded(EContentTransferEncoding::base64, ".SGVs\r\nbG8="), "Hello");
  EXPECT_EQ(Decoded(EContentTransferEncoding::base64, "..SGVs\r\n..bG8="), "Hello");
}

TEST(TransferDecoding, AValueOutsideTheEnumerationOnlyUndoesDots) {
  EXPECT_EQ(Decoded(static_cast<EContentTransferEncoding>(9), "..a=3D"), ".a=3D");
}

TEST(TransferDecoding, ABodyOfNothingIsNothing) {
  for (int32_t encoding = 0; encoding < 5; ++encoding) {
    EXPECT_EQ(Decoded(static_cast<EContentTransferEncoding>(encoding), ""), "");
  }
}

TEST(TransferDecoding, TextInUtf8ComesBackWellFormedAndNothingElseIsTouched) {
  const std::string bytes = "\xC3\xA0 \xE0";
  EXPECT_EQ(Decoded(EContentTransferEncoding::T8Bit, bytes, EEntityType::Text, ECharset::UTF_8),
            "\xC3\xA0 \xC3\xA0");
  EXPECT_EQ(Decoded(EContentTransferEncoding::T8Bit, bytes), bytes);
  EXPECT_EQ(
      Decoded(EContentTransferEncoding::T8Bit, bytes, EEntityType::Text, ECharset::iso_8859_x),
      bytes);
  EXPECT_EQ(Decoded(EContentTransferEncoding::T8Bit, bytes, EEntityType::Image, ECharset::UTF_8),
            bytes);
}

TEST(TransferDecoding, EveryLengthOfBase64FitsItsBuffer) {
  for (size_t n = 0; n < 64; ++n) {
    EXPECT_LE(Decoded(EContentTransferEncoding::base64, std::string(n, 'A')).size(), 3 * n / 4);
  }
}

}  // namespace
}  // namespace korvane
