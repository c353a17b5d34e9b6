#include "frame/odbc_values.h"

#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "frame/database_values.h"
#include "frame/dialect_sql.h"
#include "frame/utf16.h"

namespace korvane {

namespace {

static_assert(sizeof(SQLBIGINT) == sizeof(int64_t) && sizeof(SQLLEN) == sizeof(std::intptr_t));

ColumnKind KindOfColumn(SQLHSTMT statement, SQLUSMALLINT number, std::string_view name,
                        SQLSMALLINT type, Dialect dialect) {
  std::array<char, 128> type_name{};
  SQLSMALLINT length = 0;
  SQLColAttribute(statement, number, SQL_DESC_TYPE_NAME, type_name.data(),
                  static_cast<SQLSMALLINT>(type_name.size()), &length, nullptr);
  if (dialect == Dialect::kSqlite) return SqliteColumnKind(name, type_name.data());
  if (SameName(type_name.data(), "bool")) return ColumnKind::kBoolean;
  switch (type) {
    case SQL_BIT:
    case SQL_TINYINT:
      return ColumnKind::kBoolean;
    case SQL_SMALLINT:
    case SQL_INTEGER:
    case SQL_BIGINT:
      return ColumnKind::kInteger;
    case SQL_REAL:
    case SQL_FLOAT:
    case SQL_DOUBLE:
    case SQL_NUMERIC:
    case SQL_DECIMAL:
      return ColumnKind::kReal;
    case SQL_TYPE_DATE:
    case SQL_TYPE_TIMESTAMP:
      return ColumnKind::kDate;
    default:
      return ColumnKind::kText;
  }
}

/// A number, a boolean or a date.
bool ReadShort(SQLHSTMT statement, SQLUSMALLINT number, ColumnKind kind, Cell& cell) {
  std::array<char, 128> text{};
  SQLLEN length = 0;
  const SQLRETURN code = SQLGetData(statement, number, SQL_C_CHAR, text.data(),
                                    static_cast<SQLLEN>(text.size()), &length);
  if (!SQL_SUCCEEDED(code)) return false;
  if (length == SQL_NULL_DATA) return true;
  cell = text.data();
  if (kind == ColumnKind::kBoolean) cell = *cell == "0" || *cell == "f" ? "0" : "-1";
  return true;
}

}  // namespace

bool OdbcParameters::Bind(void* statement, size_t index, const Parameter& parameter,
                          Dialect dialect) {
  SQLSMALLINT c_type = SQL_C_WCHAR;
  SQLSMALLINT type = SQL_WVARCHAR;
  SQLULEN size = 1;
  SQLPOINTER value = nullptr;
  std::intptr_t& length = lengths_[index];
  const std::string* text = parameter.value ? &*parameter.value : nullptr;
  switch (parameter.kind) {
    case ColumnKind::kInteger:
    case ColumnKind::kBoolean:
      c_type = SQL_C_SBIGINT;
      type = SQL_BIGINT;
      if (text) std::from_chars(text->data(), text->data() + text->size(), numbers_[index]);
      if (dialect == Dialect::kPostgresql && parameter.kind == ColumnKind::kBoolean) {
        // A boolean of its own there, which is no number.
        c_type = SQL_C_CHAR;
        type = SQL_VARCHAR;
        bytes_[index] = numbers_[index] == 0 ? "f" : "t";
        value = bytes_[index].data();
        length = 1;
      } else {
        value = &numbers_[index];
        length = 0;
      }
      break;
    case ColumnKind::kDate:
    case ColumnKind::kReal:
      c_type = SQL_C_CHAR;
      type = SQL_VARCHAR;
      if (text) bytes_[index] = *text;
      size = std::max<SQLULEN>(bytes_[index].size(), 1);
      value = bytes_[index].data();
      length = static_cast<std::intptr_t>(bytes_[index].size());
      break;
    case ColumnKind::kText: {
      std::u16string& wide = texts_[index];
      if (text) wide = ToUtf16(*text);
      // Behind the longest that a variable text may be it is a long one.
      constexpr size_t kLongestVariable = 4000;
      if (wide.size() > kLongestVariable) type = SQL_WLONGVARCHAR;
      size = std::max<SQLULEN>(wide.size(), 1);
      value = wide.data();
      length = static_cast<std::intptr_t>(wide.size() * sizeof(char16_t));
      break;
    }
  }
  if (!text) length = SQL_NULL_DATA;
  return SQL_SUCCEEDED(SQLBindParameter(statement, static_cast<SQLUSMALLINT>(index + 1),
                                        SQL_PARAM_INPUT, c_type, type, size, 0, value, 0,
                                        reinterpret_cast<SQLLEN*>(&length)));
}

bool OdbcRowReader::Take(void* statement, int16_t columns, Dialect dialect, Rows& rows) {
  for (SQLUSMALLINT i = 1; i <= columns; ++i) {
    std::array<char, 256> name{};
    SQLSMALLINT length = 0;
    SQLSMALLINT type = 0;
    SQLSMALLINT digits = 0;
    SQLSMALLINT nullable = 0;
    SQLULEN size = 0;
    if (!SQL_SUCCEEDED(SQLDescribeCol(statement, i, reinterpret_cast<SQLCHAR*>(name.data()),
                                      static_cast<SQLSMALLINT>(name.size()), &length, &type, &size,
                                      &digits, &nullable))) {
      return false;
    }
    Column column;
    column.name = name.data();
    column.kind = KindOfColumn(statement, i, column.name, type, dialect);
    rows.columns.push_back(std::move(column));
  }
  while (true) {
    const SQLRETURN code = SQLFetch(statement);
    if (code == SQL_NO_DATA) return true;
    if (!SQL_SUCCEEDED(code)) return false;
    for (SQLUSMALLINT i = 1; i <= columns; ++i) {
      const ColumnKind kind = rows.columns[i - 1u].kind;
      Cell& cell = rows.cells.emplace_back();
      if (!(kind == ColumnKind::kText ? ReadText(statement, i, cell)
                                      : ReadShort(statement, i, kind, cell))) {
        return false;
      }
    }
  }
}

bool OdbcRowReader::ReadText(void* statement, uint16_t number, Cell& cell) {
  std::u16string text;
  while (true) {
    SQLLEN length = 0;
    const SQLRETURN code =
        SQLGetData(statement, number, SQL_C_WCHAR, buffer_.data(),
                   static_cast<SQLLEN>(buffer_.size() * sizeof(char16_t)), &length);
    if (code == SQL_NO_DATA) break;
    if (!SQL_SUCCEEDED(code)) return false;
    if (length == SQL_NULL_DATA) return true;
    // What is left, or that it is not known; the buffer holds that or is full.
    const size_t room = buffer_.size() - 1;
    const bool all = code == SQL_SUCCESS;
    const size_t count = all ? static_cast<size_t>(length) / sizeof(char16_t) : room;
    text.append(buffer_.data(), std::min(count, room));
    if (all) break;
  }
  cell = FromUtf16(text);
  return true;
}

}  // namespace korvane
