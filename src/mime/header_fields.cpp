// Lines, tokens and quotes of header fields. Encoded words, parameters and transfer encodings have
// files of their own.
#include "mime/header_fields.h"

#include <algorithm>
#include <cstring>

#include "mime/quote_pairs.h"

namespace korvane {

namespace {

constexpr auto kNone = std::string_view::npos;

char LowerOf(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

bool IsWhiteSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// The position of the first CR LF at or after `from`. A search for the LF alone is the quick way:
// in a mail nearly every one of them has its CR.
size_t FindLineEnd(std::string_view text, size_t from) {
  for (size_t lf = text.find('\n', from); lf != kNone; lf = text.find('\n', lf + 1)) {
    if (lf > from && text[lf - 1] == '\r') return lf - 1;
  }
  return kNone;
}

bool IsFold(std::string_view text, size_t line_end) {
  return line_end + 2 < text.size() && (text[line_end + 2] == ' ' || text[line_end + 2] == '\t');
}

// Makes blanks of every line end and the character behind it; for text that holds nothing but
// folds.
void Unfold(std::string& text) {
  for (size_t at = FindLineEnd(text, 0); at != kNone; at = FindLineEnd(text, at + 2)) {
    std::memset(text.data() + at, ' ', std::min<size_t>(3, text.size() - at));
  }
}

std::string_view WithoutLeadingLineEnds(std::string_view header) {
  while (header.starts_with("\r\n")) header.remove_prefix(2);
  return header;
}

}  // namespace

std::vector<std::string_view> UnfoldHeader(std::string& header) {
  std::vector<std::string_view> lines;
  header.erase(0, header.size() - WithoutLeadingLineEnds(header).size());
  if (header.empty()) return lines;
  if (header.ends_with("\r\n")) header.resize(header.size() - 2);
  const std::string_view text = header;
  size_t begin = 0;
  for (size_t at = FindLineEnd(text, 0); at != kNone; at = FindLineEnd(text, at + 2)) {
    if (IsFold(text, at)) {
      std::memset(header.data() + at, ' ', 3);
    } else {
      lines.push_back(text.substr(begin, at - begin));
      begin = at + 2;
    }
  }
  lines.push_back(text.substr(begin));
  return lines;
}

HeaderReader::HeaderReader(std::string_view header) : rest_(WithoutLeadingLineEnds(header)) {}

bool HeaderReader::Next() {
  while (!rest_.empty()) {
    folded_ = false;
    size_t end = FindLineEnd(rest_, 0);
    while (end != kNone && IsFold(rest_, end)) {
      folded_ = true;
      end = FindLineEnd(rest_, end + 2);
    }
    line_ = rest_.substr(0, end);
    rest_.remove_prefix(end == kNone ? rest_.size() : end + 2);
    colon_ = line_.find(':');
    if (colon_ == kNone || colon_ == 0) continue;
    TakeName(line_.substr(0, colon_));
    return true;
  }
  return false;
}

// A fold in a name counts as the three blanks that it becomes.
void HeaderReader::TakeName(std::string_view text) {
  name_size_ = 0;
  if (folded_ && text.find('\n') != kNone) {
    unfolded_ = text;
    Unfold(unfolded_);
    text = unfolded_;
  }
  text = TrimBlanks(text);
  if (text.size() > name_.size()) return;
  for (const char c : text) name_[name_size_++] = LowerOf(c);
}

std::string_view HeaderReader::Value() {
  std::string_view value = line_.substr(colon_ + 1);
  if (folded_) {
    unfolded_ = value;
    Unfold(unfolded_);
    value = unfolded_;
  }
  return TrimBlanks(value);
}

std::string MediaType(std::string_view value) {
  const size_t semicolon = value.find(';');
  return LowerCase(semicolon == kNone ? value : TrimBlanks(value.substr(0, semicolon)));
}

std::string_view NthToken(std::string_view text, char separator, int32_t n) {
  if (n < 1) return {};
  for (; n > 1; --n) {
    const size_t at = text.find(separator);
    if (at == kNone) return {};
    text.remove_prefix(at + 1);
  }
  return TrimBlanks(text.substr(0, text.find(separator)));
}

bool IsInsideQuotes(std::string_view text, size_t position) {
  return QuotePairs(text).Inside(position);
}

std::string_view Unquote(std::string_view text) {
  const size_t first = text.find('"');
  if (first == kNone) return TrimBlanks(text);
  const size_t last = text.rfind('"');
  return first == last ? text.substr(first + 1) : text.substr(first + 1, last - first - 1);
}

std::string_view WithoutAngleBrackets(std::string_view text) {
  const size_t bracket = text.find('<');
  size_t begin = bracket == kNone ? 0 : bracket + 1;
  while (begin < text.size() && IsWhiteSpace(text[begin])) ++begin;
  if (begin == text.size()) return {};
  size_t end = begin;
  // The first character counts whatever it is, a ">" excepted.
  if (text[end] != '>') {
    ++end;
    while (end < text.size() && text[end] != '>' && !IsWhiteSpace(text[end])) ++end;
  }
  return text.substr(begin, end - begin);
}

std::string_view TrimBlanks(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

std::string LowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = LowerOf(c);
  return lower;
}

std::string FileNameFromPath(std::string_view path) {
  if (path.ends_with('\\') || path.ends_with('/')) path.remove_suffix(1);
  size_t cut = path.rfind('/');
  if (cut == kNone) cut = path.rfind('\\');
  if (cut != kNone) path.remove_prefix(cut + 1);
  cut = path.rfind(':');
  if (cut != kNone) path.remove_prefix(cut + 1);
  return std::string(TrimBlanks(path));
}

}  // namespace korvane
