#include <gtest/gtest.h>

#include "mime/header_fields.h"
#include "support/hostile_input.h"

namespace korvane {
namespace {

using test::CpuSecondsOf;
using test::kGenerousSeconds;
using test::Repeated;

TEST(Parameter, IsReturnedWithoutItsQuotes) {
  EXPECT_EQ(Parameter("text/plain; charset=\"utf-8\"", "charset"), "utf-8");
  EXPECT_EQ(Parameter("text/plain; charset=utf-8; format=flowed", "charset"), "utf-8");
}

TEST(Parameter, ThatIsAbsentIsEmpty) {
  EXPECT_EQ(Parameter("text/plain; format=flowed", "charset"), "");
  EXPECT_EQ(Parameter("", "charset"), "");
  EXPECT_EQ(Parameter("text/plain", ""), "");
}

TEST(Parameter, NameIsFoundWhateverItsCase) {
  EXPECT_EQ(Parameter("text/plain; CharSet=UTF-8", "charset"), "UTF-8");
  EXPECT_EQ(Parameter("text/plain; charset=UTF-8", "Charset"), "UTF-8");
}

TEST(Parameter, NameIsAlsoFoundInsideFilename) {
  EXPECT_EQ(Parameter("attachment; filename=a.txt", "name"), "a.txt");
}

TEST(Parameter, NameBetweenQuotesIsPassedOver) {
  EXPECT_EQ(Parameter("x; a=\"name=no\"; name=yes", "name"), "yes");
}

TEST(Parameter, BlanksMayStandAroundTheEqualSign) {
  EXPECT_EQ(Parameter("x; name \t\r\n= \"a\" ; b", "name"), "a");
  EXPECT_EQ(Parameter("x; name= a b ;c", "name"), "a b");
}

TEST(Parameter, NameWithoutAnEqualSignIsPassedOver) {
  EXPECT_EQ(Parameter("name; x=1; name=a", "name"), "a");
  EXPECT_EQ(Parameter("x; named=1; name=a", "name"), "a");
}

TEST(Parameter, NameAtTheEndIsNone) {
  EXPECT_EQ(Parameter("x; name", "name"), "");
  EXPECT_EQ(Parameter("x; name=", "name"), "");
  EXPECT_EQ(Parameter("x; name =", "name"), "");
  EXPECT_EQ(Parameter("x; name  ", "name"), "");
  EXPECT_EQ(Parameter("x; name=a", "name"), "a");
}

TEST(Parameter, AnEmptyPlainValueIsNothing) {
  EXPECT_EQ(Parameter("x; name=\"\"; b=c", "name"), "");
}

TEST(Parameter, ASemicolonBetweenQuotesDoesNotEndTheValue) {
  EXPECT_EQ(Parameter("x; name=\"a;b\"", "name"), "a;b");
}

TEST(Parameter, BehindAQuotedSemicolonTheNextOneEndsTheValue) {
  EXPECT_EQ(Parameter("x; name=\"a;b\"; other=\"c\"", "name"), "a;b");
  EXPECT_EQ(Parameter("x; name=\"a;b;;\"; other=\"c;d\"", "other"), "c;d");
}

TEST(Parameter, AnUnpairedQuoteHidesNoSemicolon) {
  EXPECT_EQ(Parameter("x; name=\"a; other=c", "name"), "a");
  EXPECT_EQ(Parameter("x; name=\"a; other=c", "other"), "c");
}

TEST(ExtendedParameter, CountsWhereThePlainOneIsAbsent) {
  EXPECT_EQ(Parameter("attachment; filename*=UTF-8''Citt%C3%A0%20a.txt", "filename"),
            "Citt\xC3\xA0 a.txt");
  EXPECT_EQ(Parameter("attachment; filename*=iso-8859-1'it'Citt%E0", "filename"), "Citt\xC3\xA0");
}

TEST(ExtendedParameter, ThePlainOneComesFirst) {
  EXPECT_EQ(Parameter("x; filename*=utf-8''b.txt; filename=a.txt", "filename"), "a.txt");
  EXPECT_EQ(Parameter("x; filename=\"\"; filename*=utf-8''b.txt", "filename"), "b.txt");
}

TEST(ExtendedParameter, NameIsAlsoFoundInsideFilename) {
  EXPECT_EQ(Parameter("attachment; filename*=utf-8''a.txt", "name"), "a.txt");
}

TEST(ExtendedParameter, PiecesAreJoinedInTheOrderOfTheirNumbers) {
  EXPECT_EQ(Parameter("x; name*1=\"b c\"; name*2=d; name*0=\"a \"", "name"), "a b cd");
}

TEST(ExtendedParameter, MoreThanTenPiecesAreJoined) {
  std::string value = "x";
  std::string expected;
  for (int i = 11; i >= 0; --i) {
    value += "; name*" + std::to_string(i) + "=" + std::string(1, static_cast<char>('a' + i));
  }
  for (int i = 0; i < 12; ++i) expected += static_cast<char>('a' + i);
  EXPECT_EQ(Parameter(value, "name"), expected);
}

TEST(ExtendedParameter, EncodedAndPlainPiecesMayAlternate) {
  EXPECT_EQ(Parameter("x; name*0*=utf-8''a%20; name*1=%20b; name*2*=%20c", "name"), "a %20b c");
}

TEST(ExtendedParameter, ACharacterCutBetweenTwoPiecesIsWhole) {
  EXPECT_EQ(Parameter("x; name*0*=utf-8''Citt%C3; name*1*=%A0", "name"), "Citt\xC3\xA0");
}

TEST(ExtendedParameter, AGapEndsIt) { EXPECT_EQ(Parameter("x; name*0=a; name*2=c", "name"), "a"); }

TEST(ExtendedParameter, WithoutItsFirstPieceItIsNone) {
  EXPECT_EQ(Parameter("x; name*1=b; name*2=c", "name"), "");
}

TEST(ExtendedParameter, OfAPieceGivenTwiceTheFirstCounts) {
  EXPECT_EQ(Parameter("x; name*0=a; name*0=b; name*1=c", "name"), "ac");
}

TEST(ExtendedParameter, CharsetAndLanguageMayBeMissing) {
  EXPECT_EQ(Parameter("x; name*=a%20b", "name"), "a b");
  EXPECT_EQ(Parameter("x; name*=it's", "name"), "it's");
}

TEST(ExtendedParameter, APercentSignWithoutTwoDigitsIsText) {
  EXPECT_EQ(Parameter("x; name*=utf-8''100%;", "name"), "100%");
  EXPECT_EQ(Parameter("x; name*=utf-8''%4", "name"), "%4");
  EXPECT_EQ(Parameter("x; name*=utf-8''%zz%4a%4A", "name"), "%zzJJ");
}

TEST(ExtendedParameter, ControlCharactersBecomeBlanks) {
  EXPECT_EQ(Parameter("x; name*=utf-8''a%00b%0D%0Ac", "name"), "a b  c");
}

TEST(ExtendedParameter, CountsForBoundariesToo) {
  EXPECT_EQ(Parameter("multipart/mixed; boundary*0=ab; boundary*1=cd", "boundary"), "abcd");
}

TEST(ExtendedParameter, WhatIsNoPieceIsPassedOver) {
  EXPECT_EQ(Parameter("x; name*x=1; name*0x=2; name**=3; name*0=a", "name"), "a");
  EXPECT_EQ(Parameter("x; name*99999999999999999999=a", "name"), "");
  EXPECT_EQ(Parameter("x; name*", "name"), "");
  EXPECT_EQ(Parameter("x; name*0", "name"), "");
  EXPECT_EQ(Parameter("x; name*0*", "name"), "");
}

TEST(Parameter, HostileValuesTakeLinearTime) {
  for (const char* piece : {"name", "name=\"", "\"name=;", "\";\"", "name*0=;", "name*1*=\";", "n",
                            "name*0=\"a;b\";", "name ", "\"", ";", "name*0*=%4;"}) {
    const std::string value = Repeated(piece, 2 << 20);
    EXPECT_LT(CpuSecondsOf([&] { Parameter(value, "name"); }), kGenerousSeconds) << piece;
    const std::string behind = "x; name=\"" + value + "\"; a=b";
    EXPECT_LT(CpuSecondsOf([&] { Parameter(behind, "name"); }), kGenerousSeconds) << piece;
  }
  std::string pieces = "x";
  for (int i = 0; i < 200000; ++i) pieces += ";name*" + std::to_string(200000 - i) + "=a";
  EXPECT_LT(CpuSecondsOf([&] { Parameter(pieces, "name"); }), kGenerousSeconds);
}

}  // namespace
}  // namespace korvane
