#include "frame/code_page.h"

#include <gtest/gtest.h>

#include <string>

namespace korvane {
namespace {

TEST(CodePage, BytesThatFormUtf8StayWhatTheyAre) {
  const std::string text = "Citt\xC3\xA0 \xE2\x82\xAC \xF0\x9F\x93\xA7";
  EXPECT_TRUE(IsUtf8(text));
  EXPECT_EQ(ToUtf8(text), text);
}

TEST(CodePage, AWellFormedTextIsMovedNotCopied) {
  std::string text(100, 'x');
  const char* const place = text.data();
  EXPECT_EQ(static_cast<const void*>(ToUtf8(std::move(text)).data()), place);
}

TEST(CodePage, AnyOtherByteIsItsWindowsCharacter) {
  EXPECT_EQ(ToUtf8("Citt\xE0"), "Citt\xC3\xA0");
  EXPECT_EQ(ToUtf8("\x80"), "\xE2\x82\xAC");
  EXPECT_EQ(ToUtf8("\x93quoted\x94"), "\xE2\x80\x9Cquoted\xE2\x80\x9D");
}

TEST(CodePage, TheFiveUnassignedBytesStandForThemselves) {
  for (const unsigned char byte : {0x81, 0x8D, 0x8F, 0x90, 0x9D}) {
    const std::string expected = {'\xC2', static_cast<char>(byte)};
    EXPECT_EQ(ToUtf8(std::string(1, static_cast<char>(byte))), expected);
    EXPECT_EQ(FromUtf8(expected), std::string(1, static_cast<char>(byte)));
  }
}

TEST(CodePage, BothKindsOfBytesMayMixInOneText) {
  EXPECT_EQ(ToUtf8("\xE0 and \xC3\xA0"), "\xC3\xA0 and \xC3\xA0");
}

TEST(CodePage, OverlongSurrogateAndTruncatedSequencesAreNoUtf8) {
  for (const char* bytes : {"\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xC3",
                            "\xE2\x82", "\xF0\x9F\x93", "\x80", "\xF5\x80\x80\x80"}) {
    EXPECT_FALSE(IsUtf8(bytes)) << testing::PrintToString(bytes);
    EXPECT_TRUE(IsUtf8(ToUtf8(bytes)));
  }
}

TEST(CodePage, EveryPairOfBytesBecomesWellFormed) {
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const std::string bytes = {static_cast<char>(first), static_cast<char>(second)};
      ASSERT_TRUE(IsUtf8(ToUtf8(bytes))) << first << " " << second;
    }
  }
}

TEST(CodePage, WhatLeavesAsBytesReadsBackAsTheSameText) {
  for (const char* text : {"Citt\xC3\xA0", "\xE2\x82\xAC", "\xD0\x9F\xD1\x80", "plain",
                           // Two characters whose bytes together would form a third.
                           "\xC3\x83\xC2\xA0", ""}) {
    EXPECT_EQ(ToUtf8(FromUtf8(text)), text);
  }
  EXPECT_EQ(FromUtf8("Citt\xC3\xA0"), "Citt\xE0");
  EXPECT_EQ(FromUtf8("\xD0\x9F"), "\xD0\x9F") << "the code page has no such letter";
}

TEST(CodePage, ACutCountsCharactersAndNeverLeavesHalfOfOne) {
  const std::string text = "a\xC3\xA0\xE2\x82\xAC\xF0\x9F\x93\xA7z";
  EXPECT_EQ(CutCharacters(text, 0), "");
  EXPECT_EQ(CutCharacters(text, 1), "a");
  EXPECT_EQ(CutCharacters(text, 2), "a\xC3\xA0");
  EXPECT_EQ(CutCharacters(text, 4), text.substr(0, text.size() - 1));
  EXPECT_EQ(CutCharacters(text, 5), text);
  EXPECT_EQ(CutCharacters(text, 500), text);
}

}  // namespace
}  // namespace korvane
