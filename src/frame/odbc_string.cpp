#include "frame/odbc_string.h"

#include <algorithm>

#include "frame/database.h"
#include "frame/database_values.h"

namespace korvane {

namespace {

[[noreturn]] void Refuse(const char* what) {
  throw DatabaseError(DatabaseError::Kind::kOther, std::string("connection string: ") + what);
}

std::string_view WithoutBlanks(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

/// From behind an opening brace to behind its closing one, which a doubled one is not.
std::string InBraces(std::string_view& text) {
  std::string value;
  while (true) {
    const size_t end = text.find('}');
    if (end == std::string_view::npos) Refuse("} expected behind a value");
    value.append(text.substr(0, end));
    text.remove_prefix(end + 1);
    if (!text.starts_with('}')) return value;
    value += '}';
    text.remove_prefix(1);
  }
}

}  // namespace

OdbcString::OdbcString(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) Refuse("a NUL in it");
  while (!(text = WithoutBlanks(text)).empty()) {
    if (text.starts_with(';')) {
      text.remove_prefix(1);
      continue;
    }
    const size_t equals = text.find_first_of("=;");
    if (equals == std::string_view::npos || text[equals] != '=') Refuse("NAME=value expected");
    std::string name(WithoutBlanks(text.substr(0, equals)));
    text = WithoutBlanks(text.substr(equals + 1));
    if (text.starts_with('{')) {
      text.remove_prefix(1);
      values_.emplace_back(std::move(name), InBraces(text));
      text = WithoutBlanks(text);
      if (!text.empty() && !text.starts_with(';')) Refuse("; expected behind a value in braces");
    } else {
      const size_t end = std::min(text.find(';'), text.size());
      values_.emplace_back(std::move(name), std::string(WithoutBlanks(text.substr(0, end))));
      text.remove_prefix(end);
    }
  }
  if (values_.empty()) Refuse("the source is missing");
}

std::string OdbcString::Value(std::string_view name) const {
  const auto found =
      std::ranges::find_if(values_, [&](const auto& one) { return SameName(one.first, name); });
  return found == values_.end() ? std::string() : found->second;
}

size_t OdbcString::End(std::string_view text) {
  bool in_braces = false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '{') in_braces = true;
    if (text[i] == '}' && text.substr(i).starts_with("}}")) {
      ++i;
    } else if (text[i] == '}') {
      in_braces = false;
    }
    if (text[i] == '?' && !in_braces) return i;
  }
  return text.size();
}

}  // namespace korvane
