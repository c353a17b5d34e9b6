#include "frame/any.h"

#include <gtest/gtest.h>

#include <limits>

namespace korvane {
namespace {

struct Thing : Object {};
struct OtherThing : Object {};

TEST(Any, AFreshOneIsEmptyAndReadsAsNothing) {
  const Any value;
  EXPECT_TRUE(value.IsEmpty());
  EXPECT_FALSE(value.IsNull());
  EXPECT_EQ(value.ToInt32(), 0);
  EXPECT_EQ(value.ToBool(), false);
  EXPECT_EQ(value.ToText(), "");
}

TEST(Any, NullIsNoNumberButAnEmptyText) {
  const Any value(nullptr);
  EXPECT_TRUE(value.IsNull());
  EXPECT_EQ(value.ToInt64(), std::nullopt);
  EXPECT_EQ(value.ToBool(), std::nullopt);
  EXPECT_EQ(value.ToText(), "");
}

TEST(Any, TrueIsMinusOneAsANumberAndTheWordAsAText) {
  EXPECT_EQ(Any(true).ToInt32(), -1);
  EXPECT_EQ(Any(true).ToText(), "True");
  EXPECT_EQ(Any(false).ToInt32(), 0);
  EXPECT_EQ(Any(false).ToText(), "False");
}

TEST(Any, ANumberIsRoundedHalfToEven) {
  EXPECT_EQ(Any(0.5).ToInt32(), 0);
  EXPECT_EQ(Any(1.5).ToInt32(), 2);
  EXPECT_EQ(Any(2.5).ToInt32(), 2);
  EXPECT_EQ(Any(-0.5).ToInt32(), 0);
  EXPECT_EQ(Any(-1.5).ToInt32(), -2);
  EXPECT_EQ(Any(-2.5).ToInt32(), -2);
  EXPECT_EQ(Any(2.51).ToInt32(), 3);
  EXPECT_EQ(Any("3.5").ToInt32(), 4);
}

TEST(Any, WhatDoesNotFitIsNoNumber) {
  EXPECT_EQ(Any(int64_t{1} << 31).ToInt32(), std::nullopt);
  EXPECT_EQ(Any(-(int64_t{1} << 31)).ToInt32(), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(Any(1e30).ToInt64(), std::nullopt);
  EXPECT_EQ(Any(std::numeric_limits<double>::quiet_NaN()).ToInt64(), std::nullopt);
  EXPECT_EQ(Any("99999999999999999999").ToInt64(), std::nullopt);
}

TEST(Any, ATextIsReadAsADecimalNumber) {
  EXPECT_EQ(Any(" 12 ").ToInt32(), 12);
  EXPECT_EQ(Any("-7").ToInt32(), -7);
  EXPECT_EQ(Any("+7").ToInt32(), 7);
  for (const char* text : {"", " ", "12a", "0x10", "1 2", "+-7", "nan", "inf"}) {
    EXPECT_EQ(Any(text).ToInt32(), std::nullopt) << text;
  }
}

TEST(Any, TheWordsTrueAndFalseAreReadInAnyCase) {
  EXPECT_EQ(Any("True").ToBool(), true);
  EXPECT_EQ(Any("false").ToBool(), false);
  EXPECT_EQ(Any("-1").ToBool(), true);
  EXPECT_EQ(Any("0").ToBool(), false);
  EXPECT_EQ(Any(0.25).ToBool(), true);
  EXPECT_EQ(Any("perhaps").ToBool(), std::nullopt);
}

TEST(Any, NumbersAsTextAreDecimalAndRoundTrip) {
  EXPECT_EQ(Any(int64_t{-9'000'000'000}).ToText(), "-9000000000");
  EXPECT_EQ(Any(0.1).ToText(), "0.1");
  EXPECT_EQ(Any(2.0).ToText(), "2");
}

TEST(Any, AnObjectComesBackAsWhatItIsAndAsNothingElse) {
  const auto thing = std::make_shared<Thing>();
  const Any value(thing);
  EXPECT_TRUE(value.IsObject());
  EXPECT_EQ(value.ToObject<Thing>(), thing);
  EXPECT_EQ(value.ToObject<OtherThing>(), nullptr);
  EXPECT_EQ(Any(1).ToObject<Thing>(), nullptr);
  EXPECT_EQ(value.ToInt32(), std::nullopt);
}

}  // namespace
}  // namespace korvane
