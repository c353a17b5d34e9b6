#include "engine/message_ids.h"

#include <gtest/gtest.h>

#include <string>

namespace korvane::test {
namespace {

using Ids = std::vector<int32_t>;

TEST(MessageIds, ANumberIsOneIdentifier) {
  EXPECT_EQ(ReadMessageIds(Any(12)), (Ids{12}));
  EXPECT_EQ(ReadMessageIds(Any(12.0)), (Ids{12})) << "a script's arithmetic makes such numbers";
  EXPECT_EQ(ReadMessageIds(Any(int64_t{1} << 40)), std::nullopt);
  EXPECT_EQ(ReadMessageIds(Any(1e300)), std::nullopt);
}

TEST(MessageIds, ATextIsAListWithBlanksAroundItsItems) {
  EXPECT_EQ(ReadMessageIds("12"), (Ids{12}));
  EXPECT_EQ(ReadMessageIds("15,12,15"), (Ids{15, 12, 15})) << "in the order given";
  EXPECT_EQ(ReadMessageIds("  1 ,   2147483647 "), (Ids{1, 2147483647}));
}

TEST(MessageIds, NoItemOrAnEmptyItemIsRefused) {
  for (const char* text : {"", " ", ",", "1,", ",1", "1, ,2"}) {
    EXPECT_EQ(ReadMessageIds(text), std::nullopt) << '"' << text << '"';
  }
}

TEST(MessageIds, WhatIsNoDecimalNumberIsRefusedAsAWhole) {
  for (const char* text : {"a", "1,b", "1 2", "1;2", "-1", "+1", "1.0", "0x1", "2147483648",
                           "99999999999999999999999", "1\t", "1\n", "1 OR 1=1", "1)--", "'1'"}) {
    EXPECT_EQ(ReadMessageIds(text), std::nullopt) << text;
  }
  EXPECT_EQ(ReadMessageIds(std::string("1\0", 2)), std::nullopt);
}

TEST(MessageIds, OtherValuesAreRefused) {
  for (const Any& value : {Any(), Any(nullptr), Any(true), Any(1.5)}) {
    EXPECT_EQ(ReadMessageIds(value), std::nullopt);
  }
}

TEST(MessageIds, AListOfAMillionIsReadInOnePass) {
  std::string text = "1";
  for (int i = 0; i < 1'000'000; ++i) text += ",1";
  EXPECT_EQ(ReadMessageIds(text)->size(), 1'000'001u);
}

}  // namespace
}  // namespace korvane::test
