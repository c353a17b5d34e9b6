#include "frame/settings_file.h"

#include <algorithm>

#include "frame/code_page.h"
#include "frame/settings_text.h"

namespace korvane {

namespace {

using namespace settings_text;

constexpr std::string_view kOldHead = "REGEDIT4";

// A carriage return counts: an editor may have left two before a line feed.
bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

void SkipBlanks(std::string_view text, size_t& i) {
  while (i < text.size() && IsBlank(text[i])) ++i;
}

// One past the line break that ends the line at `i`.
size_t LineAfter(std::string_view text, size_t i) {
  const size_t end = text.find('\n', i);
  return end == std::string_view::npos ? text.size() : end + 1;
}

std::string_view WithoutLineEnd(std::string_view line) {
  if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
  while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool StartsWith(std::string_view text, size_t i, std::string_view folded) {
  return text.size() - i >= folded.size() && Folded(text.substr(i, folded.size())) == folded;
}

// A quoted text at `i`, which then stands behind the closing quote. The editor writes line breaks
// in a text as they are; `lines` says whether they may occur.
bool ParseQuoted(std::string_view text, size_t& i, bool lines, std::string& value) {
  size_t at = i + 1;
  while (at < text.size() && text[at] != '"') {
    if (text[at] == '\n' && !lines) return false;
    if (text[at] == '\\' && at + 1 < text.size() && (text[at + 1] == '\\' || text[at + 1] == '"')) {
      ++at;
    }
    value += text[at++];
  }
  if (at >= text.size()) return false;
  i = at + 1;
  return true;
}

}  // namespace

SettingsFile::SettingsFile(std::string_view bytes) {
  std::string text;
  if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF")) {
    const bool big_endian = bytes.starts_with("\xFE\xFF");
    encoding_ = big_endian ? Encoding::kUtf16Big : Encoding::kUtf16Little;
    text = Utf16ToText(bytes.substr(2), big_endian);
  } else if (bytes.starts_with("\xEF\xBB\xBF")) {
    encoding_ = Encoding::kUtf8WithMark;
    text = bytes.substr(3);
  } else {
    text = bytes;
  }
  Parse(text);
  Apply();
}

std::string SettingsFile::Bytes() const {
  std::string text;
  for (const Item& item : items_) text += item.raw;
  switch (encoding_) {
    case Encoding::kUtf8:
      return text;
    case Encoding::kUtf8WithMark:
      return "\xEF\xBB\xBF" + text;
    case Encoding::kUtf16Little:
      return "\xFF\xFE" + TextToUtf16(text, false);
    case Encoding::kUtf16Big:
      return "\xFE\xFF" + TextToUtf16(text, true);
  }
  return text;
}

void SettingsFile::Parse(std::string_view text) {
  const std::string_view first = text.substr(0, LineAfter(text, 0));
  code_page_format_ = WithoutLineEnd(first) == kOldHead;
  if (first.ends_with('\n') && !first.ends_with("\r\n")) line_end_ = "\n";
  for (size_t i = 0; i < text.size();) {
    const size_t from = i;
    Item item = ParseItem(text, i);
    item.raw = text.substr(from, i - from);
    if (item.kind == Item::Kind::kOther && !items_.empty() &&
        items_.back().kind == Item::Kind::kOther) {
      items_.back().raw += item.raw;
    } else {
      items_.push_back(std::move(item));
    }
  }
}

SettingsFile::Item SettingsFile::ParseItem(std::string_view text, size_t& position) const {
  Item item;
  size_t i = position;
  const size_t next = LineAfter(text, position);
  const std::string_view line = WithoutLineEnd(text.substr(0, next));
  position = next;
  SkipBlanks(line, i);
  if (i >= line.size()) return item;
  if (line[i] == '[') {
    const size_t close = line.rfind(']');
    if (close == std::string_view::npos || close < i) return item;
    std::string_view key = line.substr(i + 1, close - i - 1);
    const bool deleted = key.starts_with('-');
    if (deleted) key.remove_prefix(1);
    item.name = FoldedKey(ToUtf8(std::string(key)));
    if (!item.name.empty()) item.kind = deleted ? Item::Kind::kKeyDeleted : Item::Kind::kKey;
    return item;
  }
  std::string name;
  if (line[i] == '"') {
    if (!ParseQuoted(line, i, false, name)) return item;
  } else if (line[i] == '@') {
    ++i;
  } else {
    return item;
  }
  SkipBlanks(line, i);
  if (i >= line.size() || line[i] != '=') return item;
  ++i;
  SkipBlanks(line, i);
  Item value;
  value.name = Folded(ToUtf8(std::move(name)));
  if (!ParseValue(text, i, value)) return item;
  SkipBlanks(text, i);
  const size_t end = LineAfter(text, i);
  const std::string_view rest = WithoutLineEnd(text.substr(i, end - i));
  if (!rest.empty() && rest.front() != ';') return item;
  position = end;
  return value;
}

bool SettingsFile::ParseValue(std::string_view text, size_t& position, Item& item) const {
  item.kind = Item::Kind::kValue;
  if (position >= text.size()) return false;
  if (text[position] == '-') {
    item.kind = Item::Kind::kValueDeleted;
    ++position;
    return true;
  }
  if (text[position] == '"') {
    std::string value;
    if (!ParseQuoted(text, position, true, value)) return false;
    item.value = Text(ToUtf8(std::move(value)));
    return true;
  }
  if (StartsWith(text, position, "dword:")) {
    position += 6;
    uint32_t number = 0;
    size_t digits = 0;
    for (; position < text.size() && HexDigit(text[position]) >= 0 && digits < 8; ++position) {
      number = number << 4 | static_cast<uint32_t>(HexDigit(text[position]));
      ++digits;
    }
    // The editor writes eight digits; fewer at the very end of a file are what a cut left over.
    if (digits == 0 || (digits < 8 && position == text.size())) return false;
    item.value = Number(static_cast<int32_t>(number));
    return true;
  }
  return StartsWith(text, position, "hex") && ParseHex(text, position, item.value);
}

bool SettingsFile::ParseHex(std::string_view text, size_t& position, Value& value) const {
  size_t i = position + 3;
  value.type = kBinary;
  if (i < text.size() && text[i] == '(') {
    uint32_t type = 0;
    size_t digits = 0;
    for (++i; i < text.size() && HexDigit(text[i]) >= 0 && digits < 8; ++i, ++digits) {
      type = type << 4 | static_cast<uint32_t>(HexDigit(text[i]));
    }
    if (digits == 0 || i >= text.size() || text[i] != ')') return false;
    ++i;
    value.type = type;
  }
  if (i >= text.size() || text[i] != ':') return false;
  std::string bytes;
  for (++i;;) {
    SkipBlanks(text, i);
    if (i < text.size() && text[i] == '\\') {  // goes on in the next line
      const size_t next = LineAfter(text, i);
      const std::string_view rest = WithoutLineEnd(text.substr(i + 1, next - i - 1));
      if (rest.find_first_not_of(" \t") != std::string_view::npos) return false;
      i = next;
      continue;
    }
    if (i >= text.size()) return false;  // cut off
    const int high = HexDigit(text[i]);
    if (high < 0) break;
    ++i;
    int byte = high;
    if (i < text.size() && HexDigit(text[i]) >= 0) byte = byte << 4 | HexDigit(text[i++]);
    bytes += static_cast<char>(byte);
    SkipBlanks(text, i);
    if (i < text.size() && text[i] == ',') ++i;
  }
  const bool is_text = value.type == kText || value.type == kExpandText || value.type == kMultiText;
  if (is_text && !code_page_format_) bytes = Utf16ToText(bytes, false);
  value.data = is_text ? ToUtf8(std::move(bytes)) : std::move(bytes);
  position = i;
  return true;
}

void SettingsFile::Apply() {
  keys_.clear();
  Values* current = nullptr;
  for (const Item& item : items_) {
    switch (item.kind) {
      case Item::Kind::kOther:
        break;
      case Item::Kind::kKey:
        current = &keys_[item.name];
        break;
      case Item::Kind::kKeyDeleted: {
        current = nullptr;
        keys_.erase(item.name);
        const std::string below = item.name + '\\';
        auto first = keys_.lower_bound(below);
        auto last = first;
        while (last != keys_.end() && last->first.starts_with(below)) ++last;
        keys_.erase(first, last);
        break;
      }
      case Item::Kind::kValue:
        if (current) (*current)[item.name] = item.value;
        break;
      case Item::Kind::kValueDeleted:
        if (current) current->erase(item.name);
        break;
    }
  }
}

bool SettingsFile::HasSubKeys(std::string_view key) const {
  const std::string below = FoldedKey(key) + '\\';
  const auto found = keys_.lower_bound(below);
  return found != keys_.end() && found->first.starts_with(below);
}

bool SettingsFile::HasKey(std::string_view key) const {
  return keys_.contains(FoldedKey(key)) || HasSubKeys(key);
}

const SettingsFile::Value* SettingsFile::Find(std::string_view key, std::string_view name) const {
  const auto values = keys_.find(FoldedKey(key));
  if (values == keys_.end()) return nullptr;
  const auto found = values->second.find(Folded(name));
  return found == values->second.end() ? nullptr : &found->second;
}

}  // namespace korvane
