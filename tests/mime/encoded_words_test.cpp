#include <gtest/gtest.h>

#include "mime/header_fields.h"
#include "support/hostile_input.h"

namespace korvane {
namespace {

using test::CpuSecondsOf;
using test::kGenerousSeconds;
using test::Repeated;

std::string Decoded(std::string_view value) { return DecodeEncodedWords(value); }
std::string DecodedAddress(std::string_view value) { return DecodeEncodedWords(value, true); }

TEST(EncodedWords, UnderscoresOfAQWordAreBlanksAndTheCharsetPlaysNoPart) {
  EXPECT_EQ(Decoded("=?utf-8?Q?hello_world?="), "hello world");
  EXPECT_EQ(Decoded("=?nonsense?Q?hello_world?="), "hello world");
  EXPECT_EQ(Decoded("=??Q?hello_world?="), "hello world");
}

TEST(EncodedWords, TwoBWordsSeparatedByABlankAreJoinedWithoutIt) {
  EXPECT_EQ(Decoded("=?utf-8?B?SGVsbG8s?= =?utf-8?B?IHdvcmxk?="), "Hello, world");
}

TEST(EncodedWords, PlainTextInFrontOfAWordIsKept) {
  EXPECT_EQ(Decoded("Re: =?utf-8?Q?Citt=C3=A0?="), "Re: Citt\xC3\xA0");
}

TEST(EncodedWords, TextBehindAWordIsKeptWithItsBlank) {
  EXPECT_EQ(Decoded("=?utf-8?Q?a?= b =?utf-8?Q?c?= d"), "a b c d");
}

TEST(EncodedWords, AnotherEncodingThanQOrBIsReturnedUnchanged) {
  EXPECT_EQ(Decoded("=?utf-8?X?abc?="), "=?utf-8?X?abc?=");
  EXPECT_EQ(Decoded("a =?utf-8?QQ?abc?= b"), "a =?utf-8?QQ?abc?= b");
  EXPECT_EQ(Decoded("=?utf-8??abc?="), "=?utf-8??abc?=");
}

TEST(EncodedWords, AWordWithoutItsEndIsReturnedUnchanged) {
  EXPECT_EQ(Decoded("=?utf-8?Q?abc"), "=?utf-8?Q?abc");
  EXPECT_EQ(Decoded("=?utf-8?Q?abc?"), "=?utf-8?Q?abc?");
  EXPECT_EQ(Decoded("a =?utf-8?Q"), "a =?utf-8?Q");
  EXPECT_EQ(Decoded("a =?utf-8"), "a =?utf-8");
  EXPECT_EQ(Decoded("a =?"), "a =?");
  EXPECT_EQ(Decoded("=?"), "=?");
}

TEST(EncodedWords, TheEncodingIsTrimmedAndItsCaseDoesNotMatter) {
  EXPECT_EQ(Decoded("=?utf-8?q?a=3Db?="), "a=b");
  EXPECT_EQ(Decoded("=?utf-8? b ?SGVsbG8=?="), "Hello");
}

TEST(EncodedWords, AMarkerInsideAWordBeginsAnew) {
  EXPECT_EQ(Decoded("=?utf-=?utf-8?Q?a?="), "=?utf-a");
  EXPECT_EQ(Decoded("=?utf-8?=?utf-8?Q?a?="), "=?utf-8?a");
  EXPECT_EQ(Decoded("=?utf-8?Q=?utf-8?Q?a?="), "=?utf-8?Qa");
}

TEST(EncodedWords, AfterAnUnknownEncodingItsClosingSignIsPlainText) {
  EXPECT_EQ(Decoded("=?a?X?b?==?utf-8?Q?c?="), "=?a?X?b?=c");
}

TEST(EncodedWords, BlanksBeforeTheFirstWordAreDropped) {
  EXPECT_EQ(Decoded("  =?utf-8?Q?a?="), "a");
}

TEST(EncodedWords, BlanksBehindTheLastWordAreKept) { EXPECT_EQ(Decoded("=?utf-8?Q?a?=  "), "a  "); }

TEST(EncodedWords, TabsBetweenWordsCountAsBlanks) {
  EXPECT_EQ(Decoded("=?utf-8?Q?a?=\t =?utf-8?Q?b?="), "ab");
}

TEST(EncodedWords, ACharacterCutBetweenTwoWordsIsWhole) {
  EXPECT_EQ(Decoded("=?utf-8?Q?Citt=C3?= =?utf-8?Q?=A0?="), "Citt\xC3\xA0");
  EXPECT_EQ(Decoded("=?utf-8?B?Q2l0dMM=?=   =?utf-8?B?oA==?="), "Citt\xC3\xA0");
}

TEST(EncodedWords, OneTextInEveryCharsetReadsTheSame) {
  const std::string city = "Citt\xC3\xA0";
  EXPECT_EQ(Decoded("=?UTF-8?Q?Citt=C3=A0?="), city);
  EXPECT_EQ(Decoded("=?iso-8859-1?Q?Citt=E0?="), city);
  EXPECT_EQ(Decoded("Citt\xE0"), city);
  EXPECT_EQ(Decoded("Citt\xC3\xA0"), city);
  EXPECT_EQ(Decoded("=?iso-8859-1?B?Q2l0dOA=?="), city);
  EXPECT_EQ(Decoded("=?windows-1252?Q?=80?="), "\xE2\x82\xAC");
}

TEST(EncodedWords, ControlCharactersOfADecodedValueBecomeBlanks) {
  EXPECT_EQ(Decoded("=?utf-8?Q?a=0D=0ABcc:_b=00c?="), "a  Bcc: b c");
  EXPECT_EQ(Decoded("=?utf-8?B?YQkKYg==?="), "a  b");
  EXPECT_EQ(Decoded("a\tb\x7F"
                    "c"),
            "a b c");
}

TEST(EncodedWords, AnEmptyWordIsNothing) {
  EXPECT_EQ(Decoded("a =?utf-8?Q?\?= b"), "a  b");
  EXPECT_EQ(Decoded("=?utf-8?B?\?="), "");
}

TEST(EncodedWords, PlainTextStaysAsItIs) {
  EXPECT_EQ(Decoded(""), "");
  EXPECT_EQ(Decoded("Hello = ? world"), "Hello = ? world");
  EXPECT_EQ(Decoded("a question?= b"), "a question?= b");
}

TEST(EncodedWords, EveryByteInEveryPlaceOfAValueIsUnderstoodAlike) {
  // Eight bytes are looked at together; each place among them must give the same answer.
  for (size_t length = 1; length <= 17; ++length) {
    for (size_t at = 0; at < length; ++at) {
      for (int byte = 0; byte < 256; ++byte) {
        std::string value(length, 'x');
        value[at] = static_cast<char>(byte);
        const std::string decoded = Decoded(value);
        std::string expected(length, 'x');
        if (byte < 0x20 || byte == 0x7F) {
          expected[at] = ' ';
          ASSERT_EQ(decoded, expected) << byte;
        } else if (byte < 0x80) {
          expected[at] = static_cast<char>(byte);
          ASSERT_EQ(decoded, expected) << byte;
        } else {
          ASSERT_GT(decoded.size(), length) << byte;
        }
      }
    }
  }
}

TEST(EncodedWords, AVariableThatIsReusedHoldsTheNewValueOnly) {
  std::string field = "something longer than what comes";
  DecodeEncodedWordsInto(field, "plain");
  EXPECT_EQ(field, "plain");
  DecodeEncodedWordsInto(field, "=?utf-8?Q?word?=");
  EXPECT_EQ(field, "word");
  DecodeEncodedWordsInto(field, "");
  EXPECT_EQ(field, "");
}

TEST(EncodedWords, AWordWithASeparatorStandsForAQuotedTextInAnAddress) {
  EXPECT_EQ(DecodedAddress("=?utf-8?Q?Rossi=2C_Mario?= <m@x.org>"), "\"Rossi, Mario\" <m@x.org>");
  EXPECT_EQ(DecodedAddress("=?utf-8?Q?a=3Bb=3Ac=3Cd=3E?= <m@x.org>"), "\"a;b:c<d>\" <m@x.org>");
}

TEST(EncodedWords, ThePhraseAroundSuchAWordIsQuotedWithIt) {
  EXPECT_EQ(DecodedAddress("=?iso-8859-1?Q?M=FCller,?= Hans <h@x>"),
            "\"M\xC3\xBCller, Hans\" <h@x>");
  EXPECT_EQ(DecodedAddress("Ann <a@x>, Dr. =?utf-8?Q?Bob=2C?= =?utf-8?Q?_Jr?= <b@x>, c@x"),
            "Ann <a@x>, \"Dr. Bob, Jr\" <b@x>, c@x");
}

TEST(EncodedWords, QuotesFromAWordBecomeApostrophesInAnAddress) {
  EXPECT_EQ(DecodedAddress("=?utf-8?Q?Ann_=22X=22_B?= <a@x>"), "Ann 'X' B <a@x>");
  EXPECT_EQ(DecodedAddress("=?utf-8?Q?=22A=2C_B=22?= <a@x>"), "\"'A, B'\" <a@x>");
}

TEST(EncodedWords, AWordBetweenQuotesNeedsNoMore) {
  EXPECT_EQ(DecodedAddress("\"=?utf-8?Q?Rossi=2C_Mario?=\" <m@x>"), "\"Rossi, Mario\" <m@x>");
}

TEST(EncodedWords, QuotesBesideSuchAWordGoIntoItsOwn) {
  EXPECT_EQ(DecodedAddress("\"Dr.\" =?utf-8?Q?A=2C_B?= <a@x>"), "\"Dr. A, B\" <a@x>");
}

TEST(EncodedWords, AnUnpairedQuoteDoesNotPairWithTheNewOnes) {
  EXPECT_EQ(DecodedAddress("a\" <a@x>, =?utf-8?Q?B=2C_C?= <b@x>"), "a' <a@x>, \"B, C\" <b@x>");
}

TEST(EncodedWords, AnAddressWithoutSeparatorsInItsWordsIsNotQuoted) {
  EXPECT_EQ(DecodedAddress("=?utf-8?Q?Citt=C3=A0?= <a@x.org>"), "Citt\xC3\xA0 <a@x.org>");
  EXPECT_EQ(DecodedAddress("=?utf-8?Q?ann=40x.org?="), "ann@x.org");
}

TEST(EncodedWords, OutsideAddressesNothingIsQuoted) {
  EXPECT_EQ(Decoded("=?utf-8?Q?a=2C_=22b=22?="), "a, \"b\"");
}

TEST(EncodedWords, HostileValuesTakeLinearTime) {
  for (const char* piece : {"=?", "=?a", "=?a?", "=?a?Q?", "=?a?X?b?=", "=?a?Q?b?= ", "?=", "=",
                            "=?a?=?", "\"=?a?Q?=2C?=", "=?a?Q?=2C?=<", "=?a?B?,\"?=,", "\t"}) {
    const std::string value = Repeated(piece, 4 << 20);
    EXPECT_LT(CpuSecondsOf([&] { Decoded(value); }), kGenerousSeconds) << piece;
    EXPECT_LT(CpuSecondsOf([&] { DecodedAddress(value); }), kGenerousSeconds) << piece;
  }
}

}  // namespace
}  // namespace korvane
