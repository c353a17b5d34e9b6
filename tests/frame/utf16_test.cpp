// UTF-16 outside, UTF-8 inside: what is a character comes back, what is none never gets through.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "frame/code_page.h"
#include "frame/utf16.h"

namespace korvane {
namespace {

TEST(Utf16, EveryCharacterGoesAndComesBack) {
  for (char32_t c = 0; c < 0x110000; ++c) {
    if (c >= 0xD800 && c < 0xE000) continue;
    std::u16string wide;
    if (c < 0x10000) {
      wide = {static_cast<char16_t>(c)};
    } else {
      wide = {static_cast<char16_t>(0xD7C0 + (c >> 10)),
              static_cast<char16_t>(0xDC00 + (c & 0x3FF))};
    }
    const std::string utf8 = FromUtf16(wide);
    ASSERT_TRUE(IsUtf8(utf8)) << static_cast<unsigned>(c);
    ASSERT_EQ(ToUtf16(utf8), wide) << static_cast<unsigned>(c);
  }
}

TEST(Utf16, HalvesOfCharactersBecomeTheReplacement) {
  EXPECT_EQ(FromUtf16(std::u16string{0xD83D}), "\uFFFD");
  EXPECT_EQ(FromUtf16(std::u16string{0xDE00}), "\uFFFD");
  EXPECT_EQ(FromUtf16(std::u16string{0xDE00, 0xD83D}), "\uFFFD\uFFFD");
  EXPECT_EQ(FromUtf16(std::u16string{0xD83D, 0xD83D, 0xDE00}), "\uFFFD😀");
  EXPECT_EQ(ToUtf16("\xED\xA0\xBD"), u"\uFFFD\uFFFD\uFFFD") << "a half in UTF-8 is none";
}

TEST(Utf16, NulsPass) {
  EXPECT_EQ(FromUtf16(std::u16string(u"a\0b", 3)), std::string("a\0b", 3));
  EXPECT_EQ(ToUtf16(std::string("a\0b", 3)), std::u16string(u"a\0b", 3));
}

TEST(Utf16, WhateverComesInIsWellFormedOutside) {
  std::mt19937 random(7);
  for (int round = 0; round < 20'000; ++round) {
    std::u16string wide;
    std::string bytes;
    for (size_t i = random() % 12; i > 0; --i) {
      wide += static_cast<char16_t>(random() % 3 ? 0xD700 + random() % 0x900 : random());
      bytes += static_cast<char>(random() % 3 ? 0x80 + random() % 0x80 : random());
    }
    const std::string utf8 = FromUtf16(wide);
    ASSERT_TRUE(IsUtf8(utf8));
    // Nothing is left to replace the second time.
    ASSERT_EQ(FromUtf16(ToUtf16(utf8)), utf8);
    ASSERT_TRUE(IsUtf8(FromUtf16(ToUtf16(bytes))));
  }
}

}  // namespace
}  // namespace korvane
