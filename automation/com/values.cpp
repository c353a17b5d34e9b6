#include "values.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>

#include "../arguments.h"
#include "ado_connection.h"
#include "frame/code_page.h"
#include "frame/database_values.h"
#include "held_object.h"
#include "late_bound.h"

namespace korvane::com {

namespace {

using automation::ArgumentError;

/// A variable may refer to itself.
constexpr int kDeepest = 8;

constexpr int64_t kLargestWholeDouble = int64_t{1} << 53;

[[noreturn]] void Refuse() { throw ArgumentError("a value of this kind is no argument"); }

/// The value itself where it is given by reference, else null.
const void* Pointed(const VARIANT& value) { return (value.vt & VT_BYREF) ? value.byref : nullptr; }

/// A plain value of type T, itself or behind a reference.
template <class T>
T Plain(const VARIANT& value, const T& own) {
  return (value.vt & VT_BYREF) ? *static_cast<const T*>(Pointed(value)) : own;
}

Any Currency(const CY& amount) {
  if (amount.int64 % 10000 == 0) return amount.int64 / 10000;
  return static_cast<double>(amount.int64) / 10000;
}

/// Scripts make doubles of whole numbers without asking.
Any Real(double number) {
  const bool whole =
      std::abs(number) <= static_cast<double>(kLargestWholeDouble) && number == std::floor(number);
  return whole ? Any(static_cast<int64_t>(number)) : Any(number);
}

Any Decimal(DECIMAL number) {
  LONG64 whole = 0;
  if (number.scale == 0 && SUCCEEDED(VarI8FromDec(&number, &whole))) return int64_t{whole};
  double real = 0;
  if (FAILED(VarR8FromDec(&number, &real))) Refuse();
  return real;
}

Any Unsigned(uint64_t number) {
  if (number <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
    return static_cast<int64_t>(number);
  }
  return static_cast<double>(number);
}

Any Date(DATE date) {
  auto text = DateText(date, false);
  if (!text) Refuse();
  return *std::move(text);
}

Any Bytes(SAFEARRAY* array) {
  if (!array || SafeArrayGetDim(array) != 1) Refuse();
  LONG low = 0;
  LONG high = -1;
  void* data = nullptr;
  if (FAILED(SafeArrayGetLBound(array, 1, &low)) || FAILED(SafeArrayGetUBound(array, 1, &high)) ||
      FAILED(SafeArrayAccessData(array, &data))) {
    Refuse();
  }
  const auto size = static_cast<size_t>(int64_t{high} - low + 1);
  std::string bytes(static_cast<const char*>(data), size);
  SafeArrayUnaccessData(array);
  return ToUtf8(std::move(bytes));
}

Any FromObject(IUnknown* object, model::Type wanted) {
  if (!object) return std::shared_ptr<Object>();
  if (auto own = HeldObject::Unwrap(object)) return own;
  Reference<IDispatch> other;
  if (FAILED(object->QueryInterface(IID_IDispatch, other.OutVoid()))) Refuse();
  if (wanted == model::Type::kObject) Refuse();
  if (wanted == model::Type::kAny && LateBound(other).Has("Execute")) {
    return std::make_shared<AdoConnection>(std::move(other));
  }
  Variant value;
  if (!LateBound(other).DefaultValue(value)) Refuse();
  const VARIANT* plain = Behind(value);
  const VARTYPE kind = plain ? plain->vt & VT_TYPEMASK : VT_EMPTY;
  if (!plain || kind == VT_DISPATCH || kind == VT_UNKNOWN) Refuse();
  return FromVariant(*plain, wanted);
}

bool Fits(double number) {
  return number >= std::numeric_limits<LONG>::min() && number <= std::numeric_limits<LONG>::max();
}

}  // namespace

const VARIANT* Behind(const VARIANT& value) {
  const VARIANT* at = &value;
  for (int depth = 0; at->vt == (VT_BYREF | VT_VARIANT); ++depth) {
    if (depth == kDeepest || !at->pvarVal) return nullptr;
    at = at->pvarVal;
  }
  return at;
}

bool IsMissing(const VARIANT& value) {
  const VARIANT* at = Behind(value);
  if (!at) return false;
  if (at->vt == VT_ERROR) return at->scode == DISP_E_PARAMNOTFOUND;
  return at->vt == (VT_BYREF | VT_ERROR) && at->pscode && *at->pscode == DISP_E_PARAMNOTFOUND;
}

Any FromVariant(const VARIANT& given, model::Type wanted) {
  const VARIANT* reached = Behind(given);
  if (!reached) Refuse();
  const VARIANT& value = *reached;
  if ((value.vt & VT_BYREF) && !value.byref) Refuse();
  if (value.vt & VT_ARRAY) {
    if ((value.vt & ~VT_BYREF) != (VT_ARRAY | VT_UI1)) Refuse();
    return Bytes(Plain<SAFEARRAY*>(value, value.parray));
  }
  switch (value.vt & ~VT_BYREF) {
    case VT_EMPTY:
      return {};
    case VT_NULL:
      return nullptr;
    case VT_BOOL:
      return Plain(value, value.boolVal) != VARIANT_FALSE;
    case VT_I1:
      return int32_t{Plain(value, static_cast<signed char>(value.cVal))};
    case VT_UI1:
      return int32_t{Plain(value, value.bVal)};
    case VT_I2:
      return int32_t{Plain(value, value.iVal)};
    case VT_UI2:
      return int32_t{Plain(value, value.uiVal)};
    case VT_I4:
    case VT_INT:
      return int64_t{Plain(value, value.lVal)};
    case VT_UI4:
    case VT_UINT:
      return int64_t{Plain(value, value.ulVal)};
    case VT_I8:
      return int64_t{Plain(value, value.llVal)};
    case VT_UI8:
      return Unsigned(Plain(value, value.ullVal));
    case VT_R4:
      return Real(double{Plain(value, value.fltVal)});
    case VT_R8:
      return Real(Plain(value, value.dblVal));
    case VT_CY:
      return Currency(Plain(value, value.cyVal));
    case VT_DECIMAL:
      return Decimal(Plain(value, value.decVal));
    case VT_DATE:
      return Date(Plain(value, value.date));
    case VT_BSTR:
      return TextOf(Plain(value, value.bstrVal));
    case VT_DISPATCH:
      return FromObject(Plain(value, value.pdispVal), wanted);
    case VT_UNKNOWN:
      return FromObject(Plain(value, value.punkVal), wanted);
    default:
      Refuse();
  }
}

Variant ToVariant(const Any& from, const model::Class* of) {
  Variant to;
  std::visit(
      [&](const auto& held) {
        using T = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<T, Any::Null>) {
          to.vt = VT_NULL;
        } else if constexpr (std::is_same_v<T, bool>) {
          to.vt = VT_BOOL;
          to.boolVal = held ? VARIANT_TRUE : VARIANT_FALSE;
        } else if constexpr (std::is_same_v<T, int64_t>) {
          if (held == static_cast<LONG>(held)) {
            to = Variant::Number(static_cast<LONG>(held));
          } else if (held >= -kLargestWholeDouble && held <= kLargestWholeDouble) {
            // A script knows no wider whole numbers.
            to.vt = VT_R8;
            to.dblVal = static_cast<double>(held);
          } else {
            to = Variant::Text(std::to_string(held));
          }
        } else if constexpr (std::is_same_v<T, double>) {
          to.vt = VT_R8;
          to.dblVal = held;
        } else if constexpr (std::is_same_v<T, std::string>) {
          to = Variant::Text(held);
        } else if constexpr (std::is_same_v<T, std::shared_ptr<Object>>) {
          to.pdispVal = held && of ? HeldObject::Wrap(held, *of) : nullptr;
          to.vt = VT_DISPATCH;
        }
      },
      from.value());
  return to;
}

HRESULT PutBack(const VARIANT& argument, const Any& value) {
  if (!(argument.vt & VT_BYREF)) return S_OK;
  VARIANT* variable = nullptr;
  const VARIANT* at = &argument;
  for (int depth = 0; at->vt == (VT_BYREF | VT_VARIANT); ++depth) {
    if (depth == kDeepest || !at->pvarVal) return DISP_E_TYPEMISMATCH;
    variable = at->pvarVal;
    at = variable;
  }
  Variant converted = ToVariant(value, nullptr);
  if (!(at->vt & VT_BYREF)) {
    // A variable that takes every type.
    Variant old;
    std::swap(static_cast<VARIANT&>(old), *variable);
    converted.MoveTo(variable);
    return S_OK;
  }
  if (!at->byref || (at->vt & VT_ARRAY)) return DISP_E_TYPEMISMATCH;
  const VARTYPE type = at->vt & static_cast<VARTYPE>(~VT_BYREF);
  if (const auto* real = std::get_if<double>(&value.value());
      real && (type == VT_I4 || type == VT_INT) && !Fits(*real)) {
    return DISP_E_OVERFLOW;
  }
  Variant stored;
  const HRESULT status =
      VariantChangeTypeEx(&stored, &converted, LOCALE_INVARIANT, VARIANT_ALPHABOOL, type);
  if (FAILED(status)) return status;
  switch (type) {
    case VT_I1:
    case VT_UI1:
      *at->pbVal = stored.bVal;
      return S_OK;
    case VT_I2:
    case VT_UI2:
    case VT_BOOL:
      *at->piVal = stored.iVal;
      return S_OK;
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
    case VT_R4:
    case VT_ERROR:
      *at->plVal = stored.lVal;
      return S_OK;
    case VT_I8:
    case VT_UI8:
    case VT_R8:
    case VT_DATE:
    case VT_CY:
      *at->pllVal = stored.llVal;
      return S_OK;
    case VT_DECIMAL: {
      // The first half word of a decimal is where a variant has its type.
      const VARTYPE kept = at->pdecVal->wReserved;
      *at->pdecVal = stored.decVal;
      at->pdecVal->wReserved = kept;
      return S_OK;
    }
    case VT_BSTR:
      std::swap(*at->pbstrVal, stored.bstrVal);
      return S_OK;
    default:
      return DISP_E_TYPEMISMATCH;
  }
}

std::optional<std::string> DateText(DATE date, bool month_first) {
  SYSTEMTIME time = {};
  if (!std::isfinite(date) || !VariantTimeToSystemTime(date, &time)) return std::nullopt;
  std::array<char, 40> text;
  std::snprintf(text.data(), text.size(), "%02u/%02u/%04u %02u:%02u:%02u",
                month_first ? time.wMonth : time.wDay, month_first ? time.wDay : time.wMonth,
                time.wYear, time.wHour, time.wMinute, time.wSecond);
  return std::string(text.data());
}

std::optional<DATE> DateOf(const std::string& text, bool month_first) {
  // Stored dates are "yyyy-mm-dd hh:mm:ss".
  const auto stored = StoredDate(text, month_first);
  if (!stored) return std::nullopt;
  const auto number = [&](size_t at, size_t digits) {
    return static_cast<WORD>(std::stoi(stored->substr(at, digits)));
  };
  SYSTEMTIME time = {};
  time.wYear = number(0, 4);
  time.wMonth = number(5, 2);
  time.wDay = number(8, 2);
  time.wHour = number(11, 2);
  time.wMinute = number(14, 2);
  time.wSecond = number(17, 2);
  DATE date = 0;
  if (time.wYear < 100 || !SystemTimeToVariantTime(&time, &date)) return std::nullopt;
  return date;
}

}  // namespace korvane::com
