#include "cell_value.h"

#include <windows.h>

#include <sql.h>
#include <sqlext.h>

#include <cstdio>

#include "ado_errors.h"
#include "frame/database_values.h"

namespace korvane::test {

namespace {

bool MonthFirst() {
  wchar_t order[4] = {};
  GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_IDATE, order, 4);
  return order[0] == L'0';
}

bool IsDate(short type) { return type == SQL_TYPE_TIMESTAMP || type == SQL_TYPE_DATE; }

Variant DateOf(const std::wstring& stored) {
  SYSTEMTIME time = {};
  if (std::swscanf(stored.c_str(), L"%4hu-%2hu-%2hu %2hu:%2hu:%2hu", &time.wYear, &time.wMonth,
                   &time.wDay, &time.wHour, &time.wMinute, &time.wSecond) < 3) {
    throw Fault{kErrorsOccurred, L"The column holds no date."};
  }
  Variant date;
  if (time.wYear >= 100 && SystemTimeToVariantTime(&time, &date.date)) {
    date.vt = VT_DATE;
    return date;
  }
  return Variant::Text(ToWide(DateText(ToUtf8(stored), MonthFirst())));
}

std::wstring StoredDateOf(const Variant& value) {
  if (value.vt == VT_BSTR) {
    if (const auto stored = StoredDate(ToUtf8(value.ToText()), MonthFirst())) {
      return ToWide(*stored);
    }
  } else if (value.vt != VT_DATE) {
    throw Fault{kErrorsOccurred, L"The value is no date."};
  }
  const auto date = value.As(VT_DATE);
  SYSTEMTIME time = {};
  if (!date || !VariantTimeToSystemTime(date->date, &time)) {
    throw Fault{kErrorsOccurred, L"The text is no date."};
  }
  wchar_t stored[32];
  std::swprintf(stored, 32, L"%04u-%02u-%02u %02u:%02u:%02u", time.wYear, time.wMonth, time.wDay,
                time.wHour, time.wMinute, time.wSecond);
  return stored;
}

Variant Read(const std::wstring& text, VARTYPE type) {
  std::optional<Variant> value = Variant::Text(text).As(type, LOCALE_INVARIANT);
  if (!value) throw Fault{kErrorsOccurred, L"The column holds another type: " + text};
  return *std::move(value);
}

}  // namespace

Variant ValueOf(const WideCell& cell, short type) {
  if (!cell) return Variant::Null();
  if (IsDate(type)) return DateOf(*cell);
  switch (type) {
    case SQL_BIT:
      return Variant::Boolean(*cell != L"0" && *cell != L"f");
    case SQL_TINYINT:
    case SQL_SMALLINT:
      return Read(*cell, VT_I2);
    case SQL_INTEGER:
      return Read(*cell, VT_I4);
    case SQL_BIGINT:
      return Read(*cell, VT_I8);
    case SQL_REAL:
    case SQL_FLOAT:
    case SQL_DOUBLE:
      return Read(*cell, VT_R8);
    case SQL_NUMERIC:
    case SQL_DECIMAL:
      return Read(*cell, VT_DECIMAL);
    default:
      return Variant::Text(*cell);
  }
}

WideCell CellOf(const Variant& value, short type, Dialect dialect) {
  if (value.vt == VT_NULL || value.vt == VT_EMPTY) return std::nullopt;
  if (IsDate(type)) return StoredDateOf(value);
  try {
    switch (type) {
      case SQL_BIT:
        if (!value.ToBoolean()) return L"0";
        return dialect == Dialect::kPostgresql ? L"1" : L"-1";
      case SQL_TINYINT:
      case SQL_SMALLINT:
      case SQL_INTEGER:
      case SQL_BIGINT: {
        const auto number = value.As(VT_I8);
        if (!number) throw Fault{kErrorsOccurred, L"The value is no whole number."};
        return std::to_wstring(number->llVal);
      }
      default:
        return value.ToText();
    }
  } catch (const Fault& fault) {
    throw Fault{kErrorsOccurred, fault.description};
  }
}

}  // namespace korvane::test
