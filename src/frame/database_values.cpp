#include "frame/database_values.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

#include "frame/code_page.h"

namespace korvane {

namespace {

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

[[noreturn]] void Refuse(const Column& column, const char* what) {
  throw DatabaseError(DatabaseError::Kind::kOther,
                      "column " + column.name + ": the value is no " + what);
}

/// Reads one to `most` digits.
std::optional<int> ReadNumber(std::string_view& text, size_t least, size_t most) {
  size_t digits = 0;
  int number = 0;
  while (digits < text.size() && digits <= most && IsDigit(text[digits])) {
    number = number * 10 + (text[digits++] - '0');
  }
  if (digits < least || digits > most) return std::nullopt;
  text.remove_prefix(digits);
  return number;
}

bool Skip(std::string_view& text, char separator) {
  if (!text.starts_with(separator)) return false;
  text.remove_prefix(1);
  return true;
}

std::string_view Trimmed(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

/// At most kLongestText bytes, never half a character.
std::string_view CutBytes(std::string_view text) {
  if (text.size() <= kLongestText) return text;
  size_t end = kLongestText;
  const auto continues = [&](size_t at) { return (static_cast<uint8_t>(text[at]) & 0xC0) == 0x80; };
  while (end > kLongestText - 3 && continues(end)) --end;
  return text.substr(0, end);
}

int DaysOf(int month, int year) {
  static constexpr std::array<int, 12> kDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : kDays[static_cast<size_t>(month - 1)];
}

}  // namespace

bool SameName(std::string_view left, std::string_view right) {
  return std::ranges::equal(left, right, {}, Lower, Lower);
}

std::string LowerName(std::string_view name) {
  std::string lower(name);
  std::ranges::transform(lower, lower.begin(), Lower);
  return lower;
}

std::string StorableText(std::string_view text) {
  // Cut before and after: a huge text is not converted for nothing, and a converted one is longer.
  std::string stored = ToUtf8(std::string(CutBytes(text)));
  stored.resize(CutBytes(stored).size());
  std::ranges::replace(stored, '\0', ' ');
  return stored;
}

std::optional<std::string> StoredDate(std::string_view text, bool month_first) {
  text = Trimmed(text);
  auto day = ReadNumber(text, 1, 2);
  if (!day || !Skip(text, '/')) return std::nullopt;
  auto month = ReadNumber(text, 1, 2);
  if (!month || !Skip(text, '/')) return std::nullopt;
  const auto year = ReadNumber(text, 4, 4);
  if (!year) return std::nullopt;
  if (month_first) std::swap(day, month);
  int hour = 0;
  int minute = 0;
  int second = 0;
  if (!text.empty()) {
    if (!Skip(text, ' ')) return std::nullopt;
    text = Trimmed(text);
    const auto read_hour = ReadNumber(text, 1, 2);
    if (!read_hour || !Skip(text, ':')) return std::nullopt;
    const auto read_minute = ReadNumber(text, 1, 2);
    if (!read_minute) return std::nullopt;
    hour = *read_hour;
    minute = *read_minute;
    if (Skip(text, ':')) {
      const auto read_second = ReadNumber(text, 1, 2);
      if (!read_second) return std::nullopt;
      second = *read_second;
    }
    if (!text.empty()) return std::nullopt;
  }
  if (*year < 1 || *month < 1 || *month > 12 || *day < 1 || *day > DaysOf(*month, *year) ||
      hour > 23 || minute > 59 || second > 59) {
    return std::nullopt;
  }
  std::array<char, 72> stored;
  std::snprintf(stored.data(), stored.size(), "%04d-%02d-%02d %02d:%02d:%02d", *year, *month, *day,
                hour, minute, second);
  return std::string(stored.data());
}

std::string DateText(std::string_view stored, bool month_first) {
  // An engine that was filled by somebody else may hold less than a date and a time.
  static constexpr std::string_view kMidnight = " 00:00:00";
  const bool date = stored.size() >= 10 && stored[4] == '-' && stored[7] == '-';
  if (!date) return std::string(stored);
  const std::string_view year = stored.substr(0, 4);
  const std::string_view month = stored.substr(5, 2);
  const std::string_view day = stored.substr(8, 2);
  std::string text;
  text.reserve(19);
  text.append(month_first ? month : day).append("/").append(month_first ? day : month);
  text.append("/").append(year);
  text.append(stored.size() >= 19 ? stored.substr(10, 9) : kMidnight);
  return text;
}

Any CellValue(const Cell& cell, ColumnKind kind, bool month_first) {
  if (!cell) return nullptr;
  switch (kind) {
    case ColumnKind::kInteger: {
      int64_t number = 0;
      const char* end = cell->data() + cell->size();
      const auto read = std::from_chars(cell->data(), end, number);
      if (read.ec == std::errc() && read.ptr == end) return number;
      return *cell;
    }
    case ColumnKind::kReal: {
      double number = 0;
      const char* end = cell->data() + cell->size();
      const auto read = std::from_chars(cell->data(), end, number);
      if (read.ec == std::errc() && read.ptr == end) return number;
      return *cell;
    }
    case ColumnKind::kBoolean:
      return *cell != "0";
    case ColumnKind::kDate:
      return DateText(*cell, month_first);
    case ColumnKind::kText:
      break;
  }
  return *cell;
}

Cell StoredCell(const Any& value, const Column& column, bool month_first) {
  if (value.IsNull()) return std::nullopt;
  switch (column.kind) {
    case ColumnKind::kInteger: {
      const auto number = value.ToInt64();
      if (!number) Refuse(column, "whole number");
      return std::to_string(*number);
    }
    case ColumnKind::kBoolean: {
      const auto truth = value.ToBool();
      if (!truth) Refuse(column, "boolean");
      return *truth ? "-1" : "0";
    }
    case ColumnKind::kReal: {
      if (const auto* real = std::get_if<double>(&value.value())) {
        std::array<char, 40> text;
        const auto end = std::to_chars(text.data(), text.data() + text.size(), *real).ptr;
        return std::string(text.data(), end);
      }
      const auto number = value.ToInt64();
      if (!number) Refuse(column, "number");
      return std::to_string(*number);
    }
    case ColumnKind::kDate: {
      auto date = StoredDate(value.ToText(), month_first);
      if (!date) Refuse(column, "date");
      return date;
    }
    case ColumnKind::kText:
      break;
  }
  std::string text = StorableText(value.ToText());
  if (column.longest > 0 && text.size() > column.longest) {
    text.resize(CutCharacters(text, column.longest).size());
  }
  return text;
}

}  // namespace korvane
