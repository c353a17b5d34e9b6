// What passes the border, and how.
#include "automation/com/values.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "automation/arguments.h"
#include "windows/com/server_under_test.h"

namespace korvane::test {
namespace {

using automation::ArgumentError;
using model::Type;

VARIANT Of(VARTYPE type) {
  VARIANT value = {};
  value.vt = type;
  return value;
}

Any In(const VARIANT& value) { return com::FromVariant(value, Type::kAny); }

TEST(Values, NumbersOfEveryWidthAreNumbers) {
  VARIANT value = Of(VT_I1);
  value.cVal = -5;
  EXPECT_EQ(In(value), Any(int64_t{-5}));
  value = Of(VT_UI1);
  value.bVal = 200;
  EXPECT_EQ(In(value), Any(int64_t{200}));
  value = Of(VT_I2);
  value.iVal = -300;
  EXPECT_EQ(In(value), Any(int64_t{-300}));
  value = Of(VT_UI2);
  value.uiVal = 60000;
  EXPECT_EQ(In(value), Any(int64_t{60000}));
  value = Of(VT_UI4);
  value.ulVal = 4000000000u;
  EXPECT_EQ(In(value), Any(int64_t{4000000000}));
  value = Of(VT_I8);
  value.llVal = std::numeric_limits<LONGLONG>::min();
  EXPECT_EQ(In(value), Any(std::numeric_limits<int64_t>::min()));
  value = Of(VT_UI8);
  value.ullVal = std::numeric_limits<ULONGLONG>::max();
  EXPECT_EQ(In(value), Any(18446744073709551615.0));
  value = Of(VT_R4);
  value.fltVal = 1.5f;
  EXPECT_EQ(In(value), Any(1.5));
}

TEST(Values, AWholeDoubleIsAWholeNumber) {
  EXPECT_EQ(In(Real(8.0)), Any(int64_t{8}));
  EXPECT_EQ(In(Real(8.25)), Any(8.25));
  EXPECT_EQ(In(Real(1e300)), Any(1e300));
}

TEST(Values, CurrencyAndDecimalAreNumbers) {
  VARIANT value = Of(VT_CY);
  value.cyVal.int64 = 120000;
  EXPECT_EQ(In(value), Any(int64_t{12}));
  value.cyVal.int64 = 125000;
  EXPECT_EQ(In(value), Any(12.5));
  Variant decimal;
  ASSERT_EQ(VarDecFromR8(-2.25, &decimal.decVal), S_OK);
  decimal.vt = VT_DECIMAL;
  EXPECT_EQ(In(decimal), Any(-2.25));
  ASSERT_EQ(VarDecFromI4(42, &decimal.decVal), S_OK);
  decimal.vt = VT_DECIMAL;
  EXPECT_EQ(In(decimal), Any(int64_t{42}));
  DECIMAL elsewhere = decimal.decVal;
  VARIANT reference = Of(VT_BYREF | VT_DECIMAL);
  reference.pdecVal = &elsewhere;
  EXPECT_EQ(In(reference), Any(int64_t{42}));
}

TEST(Values, ADateIsATextDayFirst) {
  VARIANT value = Of(VT_DATE);
  value.date = 37350.5;  // 4 April 2002, noon
  EXPECT_EQ(In(value), Any("04/04/2002 12:00:00"));
  value.date = 1e300;
  EXPECT_THROW(In(value), ArgumentError);
  EXPECT_EQ(com::DateOf("04/05/2002", false), com::DateOf("05/04/2002", true));
  EXPECT_EQ(com::DateText(*com::DateOf("04/05/2002 01:02:03", false), true), "05/04/2002 01:02:03");
  EXPECT_EQ(com::DateOf("01/01/0001 00:00:00", false), std::nullopt);
  EXPECT_EQ(com::DateOf("31/02/2002", false), std::nullopt);
}

TEST(Values, TextsKeepTheirNulsAndLoseLoneSurrogatesOnly) {
  const std::u16string units = {u'a', u'\0', 0xD83D, 0xDE00, u'b', 0xD83D, u'c', 0xDE00};
  VARIANT value = Of(VT_BSTR);
  value.bstrVal = SysAllocStringLen(reinterpret_cast<const OLECHAR*>(units.data()),
                                    static_cast<UINT>(units.size()));
  EXPECT_EQ(In(value), Any(std::string("a\0😀b\uFFFDc\uFFFD", 14)));
  SysFreeString(value.bstrVal);
  value.bstrVal = nullptr;
  EXPECT_EQ(In(value), Any(""));
  const Variant back = com::ToVariant(Any(std::string("x\0😀", 6)), nullptr);
  ASSERT_EQ(back.vt, VT_BSTR);
  EXPECT_EQ(SysStringLen(back.bstrVal), 4u);
  EXPECT_EQ(com::TextOf(back.bstrVal), std::string("x\0😀", 6));
}

TEST(Values, EmptyNullAndMissingAreToldApart) {
  EXPECT_TRUE(In(Of(VT_EMPTY)).IsEmpty());
  EXPECT_TRUE(In(Null()).IsNull());
  EXPECT_TRUE(com::IsMissing(Missing()));
  VARIANT missing = Missing();
  EXPECT_TRUE(com::IsMissing(ByReference(missing)));
  EXPECT_FALSE(com::IsMissing(Null()));
  VARIANT other = Of(VT_ERROR);
  other.scode = E_FAIL;
  EXPECT_FALSE(com::IsMissing(other));
  EXPECT_THROW(In(other), ArgumentError);
}

TEST(Values, VariablesInVariablesAreFollowedButNotForEver) {
  VARIANT inner = Int(5);
  VARIANT middle = ByReference(inner);
  VARIANT outer = ByReference(middle);
  EXPECT_EQ(In(outer), Any(int64_t{5}));
  VARIANT self = Of(VT_BYREF | VT_VARIANT);
  self.pvarVal = &self;
  EXPECT_THROW(In(self), ArgumentError);
  EXPECT_FALSE(com::IsMissing(self));
  EXPECT_EQ(com::PutBack(self, Any(1)), DISP_E_TYPEMISMATCH);
}

TEST(Values, AReferenceToNowhereIsAMistake) {
  for (const VARTYPE type : {VT_VARIANT, VT_I4, VT_BSTR, VT_DISPATCH, VT_DECIMAL}) {
    const VARIANT value = Of(static_cast<VARTYPE>(VT_BYREF | type));
    EXPECT_THROW(In(value), ArgumentError) << type;
    EXPECT_EQ(com::PutBack(value, Any(1)), DISP_E_TYPEMISMATCH) << type;
  }
}

TEST(Values, KindsThatNobodyKnowsAreAMistake) {
  for (const int type :
       {int{VT_RECORD}, int{VT_VARIANT}, int{VT_VOID}, int{VT_LPSTR}, int{VT_CLSID}, 0x0FFF}) {
    EXPECT_THROW(In(Of(static_cast<VARTYPE>(type))), ArgumentError) << type;
  }
  EXPECT_THROW(In(Of(VT_ARRAY | VT_VARIANT)), ArgumentError);
  EXPECT_THROW(In(Of(VT_ARRAY | VT_UI1)), ArgumentError) << "no array there";
}

TEST(Values, AnArrayOfBytesIsTheTextThatTheyAre) {
  Variant value;
  value.vt = VT_ARRAY | VT_UI1;
  value.parray = SafeArrayCreateVector(VT_UI1, 3, 6);
  std::memcpy(value.parray->pvData, "citt\xc3\xa0", 6);
  EXPECT_EQ(In(value), Any("città"));
  std::memcpy(value.parray->pvData, "citt\xe0!", 6);
  EXPECT_EQ(In(value), Any("città!")) << "the code page";
  Variant square;
  SAFEARRAYBOUND bounds[] = {{2, 0}, {2, 0}};
  square.vt = VT_ARRAY | VT_UI1;
  square.parray = SafeArrayCreate(VT_UI1, 2, bounds);
  EXPECT_THROW(In(square), ArgumentError);
  Variant empty;
  empty.vt = VT_ARRAY | VT_UI1;
  empty.parray = SafeArrayCreateVector(VT_UI1, 0, 0);
  EXPECT_EQ(In(empty), Any(""));
}

TEST(Values, AResultGoesIntoAVariableOfAnyType) {
  LONG number = 0;
  VARIANT value = Of(VT_BYREF | VT_I4);
  value.plVal = &number;
  EXPECT_EQ(com::PutBack(value, Any(70000)), S_OK);
  EXPECT_EQ(number, 70000);
  SHORT narrow = 3;
  value = Of(VT_BYREF | VT_I2);
  value.piVal = &narrow;
  EXPECT_EQ(com::PutBack(value, Any(70000)), DISP_E_OVERFLOW);
  EXPECT_EQ(narrow, 3);
  EXPECT_EQ(com::PutBack(value, Any(7)), S_OK);
  EXPECT_EQ(narrow, 7);
  double real = 0;
  value = Of(VT_BYREF | VT_R8);
  value.pdblVal = &real;
  EXPECT_EQ(com::PutBack(value, Any(7)), S_OK);
  EXPECT_EQ(real, 7.0);
  VARIANT_BOOL truth = VARIANT_FALSE;
  value = Of(VT_BYREF | VT_BOOL);
  value.pboolVal = &truth;
  EXPECT_EQ(com::PutBack(value, Any(7)), S_OK);
  EXPECT_EQ(truth, VARIANT_TRUE);
  BSTR text = com::NewText("old");
  value = Of(VT_BYREF | VT_BSTR);
  value.pbstrVal = &text;
  EXPECT_EQ(com::PutBack(value, Any("new €")), S_OK);
  EXPECT_EQ(com::TextOf(text), "new €");
  EXPECT_EQ(com::PutBack(value, Any(12)), S_OK);
  EXPECT_EQ(com::TextOf(text), "12");
  SysFreeString(text);
  value = Of(VT_BYREF | VT_I4);
  value.plVal = &number;
  EXPECT_EQ(com::PutBack(value, Any("no number")), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(number, 70000);
  LONGLONG wide = 0;
  value = Of(VT_BYREF | VT_I8);
  value.pllVal = &wide;
  EXPECT_EQ(com::PutBack(value, Any(9)), S_OK);
  EXPECT_EQ(wide, 9);
  BYTE byte = 0;
  value = Of(VT_BYREF | VT_UI1);
  value.pbVal = &byte;
  EXPECT_EQ(com::PutBack(value, Any(200)), S_OK);
  EXPECT_EQ(byte, 200);
  EXPECT_EQ(com::PutBack(value, Any(-1)), DISP_E_OVERFLOW);
  DECIMAL decimal = {};
  value = Of(VT_BYREF | VT_DECIMAL);
  value.pdecVal = &decimal;
  EXPECT_EQ(com::PutBack(value, Any(9)), S_OK);
  EXPECT_EQ(decimal.Lo64, 9u);
}

TEST(Values, AVariableOfEveryTypeGivesItsOldValueUp) {
  Variant variable = Variant::Text("old");
  EXPECT_EQ(com::PutBack(ByReference(variable), Any(5)), S_OK);
  EXPECT_EQ(variable.vt, VT_I4);
  EXPECT_EQ(variable.lVal, 5);
  VARIANT outer = ByReference(variable);
  EXPECT_EQ(com::PutBack(ByReference(outer), Any("t")), S_OK);
  EXPECT_EQ(variable.vt, VT_BSTR);
  // A variable that refers to a number of the caller's.
  LONG number = 0;
  VARIANT inner = Of(VT_BYREF | VT_I4);
  inner.plVal = &number;
  EXPECT_EQ(com::PutBack(ByReference(inner), Any(6)), S_OK);
  EXPECT_EQ(number, 6);
  EXPECT_EQ(com::PutBack(Int(1), Any(6)), S_OK) << "a value takes nothing back";
}

TEST(Values, WhatGoesOutIsOfFewKinds) {
  EXPECT_EQ(com::ToVariant(Any(), nullptr).vt, VT_EMPTY);
  EXPECT_EQ(com::ToVariant(Any(nullptr), nullptr).vt, VT_NULL);
  EXPECT_EQ(com::ToVariant(Any(true), nullptr).boolVal, VARIANT_TRUE);
  EXPECT_EQ(com::ToVariant(Any(int64_t{5}), nullptr).vt, VT_I4);
  EXPECT_EQ(com::ToVariant(Any(int64_t{1} << 40), nullptr).vt, VT_R8);
  EXPECT_EQ(com::ToVariant(Any((int64_t{1} << 60) + 1), nullptr).vt, VT_BSTR);
  EXPECT_EQ(com::ToVariant(Any(0.5), nullptr).dblVal, 0.5);
}

}  // namespace
}  // namespace korvane::test
