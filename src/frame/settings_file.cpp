#include "frame/settings_file.h"

#include <algorithm>

#include "frame/code_page.h"

namespace korvane {

namespace {

constexpr std::string_view kHead = "Windows Registry Editor Version 5.00";
constexpr std::string_view kOldHead = "REGEDIT4";

// Names are compared in any case; letters beyond ASCII have to match.
std::string Folded(std::string_view text) {
  std::string folded(text);
  for (char& c : folded) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return folded;
}

std::string FoldedKey(std::string_view key) {
  while (!key.empty() && key.back() == '\\') key.remove_suffix(1);
  return Folded(key);
}

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

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '\\' || c == '"') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

// UTF-16 to UTF-8 and back. A surrogate that stands alone takes the three bytes that its number
// would have, so that a file is written back as it was.
std::string Utf16ToText(std::string_view bytes, bool big_endian) {
  std::string text;
  text.reserve(bytes.size());
  const auto unit_at = [&](size_t i) {
    const auto first = static_cast<unsigned char>(bytes[i]);
    const auto second = static_cast<unsigned char>(bytes[i + 1]);
    return static_cast<uint32_t>(big_endian ? first << 8 | second : second << 8 | first);
  };
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
    uint32_t c = unit_at(i);
    if (c >= 0xD800 && c < 0xDC00 && i + 3 < bytes.size()) {
      const uint32_t low = unit_at(i + 2);
      if (low >= 0xDC00 && low < 0xE000) {
        c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        i += 2;
      }
    }
    if (c < 0x80) {
      text += static_cast<char>(c);
    } else if (c < 0x800) {
      text += static_cast<char>(0xC0 | c >> 6);
      text += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      if (c < 0x10000) {
        text += static_cast<char>(0xE0 | c >> 12);
      } else {
        text += static_cast<char>(0xF0 | c >> 18);
        text += static_cast<char>(0x80 | (c >> 12 & 0x3F));
      }
      text += static_cast<char>(0x80 | (c >> 6 & 0x3F));
      text += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return text;
}

void AppendUnit(std::string& bytes, uint32_t unit, bool big_endian) {
  const char high = static_cast<char>(unit >> 8);
  const char low = static_cast<char>(unit);
  bytes += big_endian ? high : low;
  bytes += big_endian ? low : high;
}

// `text` is what Utf16ToText makes, or anything else: bytes that are no UTF-8 are of the code page.
std::string TextToUtf16(std::string_view text, bool big_endian) {
  std::string bytes;
  bytes.reserve(text.size() * 2);
  const auto at = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const auto continues = [&](size_t i, size_t n) {
    if (i + n >= text.size()) return false;
    for (size_t k = 1; k <= n; ++k) {
      if ((at(i + k) & 0xC0) != 0x80) return false;
    }
    return true;
  };
  for (size_t i = 0; i < text.size();) {
    const uint32_t lead = at(i);
    if (lead >= 0xF0 && lead < 0xF5 && continues(i, 3)) {
      const uint32_t c = (lead & 0x07) << 18 | (at(i + 1) & 0x3Fu) << 12 |
                         (at(i + 2) & 0x3Fu) << 6 | (at(i + 3) & 0x3Fu);
      AppendUnit(bytes, 0xD800 + ((c - 0x10000) >> 10), big_endian);
      AppendUnit(bytes, 0xDC00 + ((c - 0x10000) & 0x3FF), big_endian);
      i += 4;
    } else if (lead >= 0xE0 && lead < 0xF0 && continues(i, 2)) {
      AppendUnit(bytes, (lead & 0x0F) << 12 | (at(i + 1) & 0x3Fu) << 6 | (at(i + 2) & 0x3Fu),
                 big_endian);
      i += 3;
    } else if (lead >= 0xC2 && lead < 0xE0 && continues(i, 1)) {
      AppendUnit(bytes, (lead & 0x1F) << 6 | (at(i + 1) & 0x3Fu), big_endian);
      i += 2;
    } else {
      AppendUnit(bytes, lead, big_endian);
      ++i;
    }
  }
  return bytes;
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

void SettingsFile::Append(std::string_view text) {
  if (items_.empty()) {
    Item head;
    head.raw = std::string(kHead) + line_end_;
    items_.push_back(std::move(head));
  }
  if (!items_.back().raw.ends_with('\n')) items_.back().raw += line_end_;
  for (size_t i = 0; i < text.size();) {
    const size_t from = i;
    Item item = ParseItem(text, i);
    item.raw = text.substr(from, i - from);
    items_.push_back(std::move(item));
  }
}

std::string SettingsFile::ValueLine(std::string_view name, const Value& value) const {
  std::string line = name.empty() ? "@" : Quoted(name);
  line += '=';
  constexpr char kDigits[] = "0123456789abcdef";
  const auto append_hex = [&](unsigned char byte) {
    line += kDigits[byte >> 4];
    line += kDigits[byte & 15];
  };
  if (value.type == kNumber && value.data.size() == 4) {
    line += "dword:";
    for (size_t i = 4; i-- > 0;) append_hex(static_cast<unsigned char>(value.data[i]));
    return line + line_end_;
  }
  std::string_view text = value.data;
  if (text.ends_with('\0')) text.remove_suffix(1);
  const bool plain = std::ranges::none_of(
      text, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
  if (value.type == kText && plain) return line + Quoted(text) + line_end_;
  std::string bytes = value.data;
  const bool is_text = value.type == kText || value.type == kExpandText || value.type == kMultiText;
  if (is_text && !code_page_format_) bytes = TextToUtf16(bytes, false);
  line += "hex(";
  const std::string type = [&] {
    std::string digits;
    for (uint32_t rest = value.type; rest != 0 || digits.empty(); rest >>= 4) {
      digits.insert(digits.begin(), kDigits[rest & 15]);
    }
    return digits;
  }();
  line += type + "):";
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0) line += ',';
    append_hex(static_cast<unsigned char>(bytes[i]));
  }
  return line + line_end_;
}

void SettingsFile::Set(std::string_view key, std::string_view name, const Value& value) {
  CreateKey(key);
  const std::string folded_key = FoldedKey(key);
  const std::string folded_name = Folded(name);
  // The last place that has a say about this value, and the last one of its key: what stands there
  // wins over everything before it.
  std::string current;
  size_t of_value = 0;
  size_t of_key = 0;
  for (size_t i = 0; i < items_.size(); ++i) {
    const Item& item = items_[i];
    if (item.kind == Item::Kind::kKey) {
      current = item.name;
      if (current == folded_key) of_key = i + 1;
    } else if (item.kind == Item::Kind::kKeyDeleted) {
      current.clear();
      if (folded_key == item.name || folded_key.starts_with(item.name + '\\')) of_value = 0;
    } else if (item.kind != Item::Kind::kOther && current == folded_key) {
      of_key = i + 1;
      if (item.name == folded_name) of_value = i + 1;
    }
  }
  Item item;
  item.kind = Item::Kind::kValue;
  item.name = folded_name;
  item.value = value;
  item.raw = ValueLine(name, value);
  if (of_value != 0) {
    items_[of_value - 1] = std::move(item);
  } else {
    std::string& before = items_[of_key - 1].raw;
    if (!before.ends_with('\n')) before += line_end_;
    items_.insert(items_.begin() + static_cast<std::ptrdiff_t>(of_key), std::move(item));
  }
  Apply();
}

bool SettingsFile::Delete(std::string_view key, std::string_view name) {
  if (!Find(key, name)) return false;
  const std::string folded_key = FoldedKey(key);
  const std::string folded_name = Folded(name);
  std::string current;
  std::erase_if(items_, [&](const Item& item) {
    if (item.kind == Item::Kind::kKey) current = item.name;
    if (item.kind == Item::Kind::kKeyDeleted) current.clear();
    return item.kind == Item::Kind::kValue && current == folded_key && item.name == folded_name;
  });
  Apply();
  return true;
}

void SettingsFile::CreateKey(std::string_view key) {
  if (keys_.contains(FoldedKey(key))) return;
  while (!key.empty() && key.back() == '\\') key.remove_suffix(1);
  Append(line_end_ + "[" + std::string(key) + "]" + line_end_);
  Apply();
}

void SettingsFile::DeleteKey(std::string_view key) {
  const std::string folded = FoldedKey(key);
  const std::string below = folded + '\\';
  bool inside = false;
  std::erase_if(items_, [&](const Item& item) {
    if (item.kind == Item::Kind::kKey) {
      inside = item.name == folded || item.name.starts_with(below);
    } else if (item.kind == Item::Kind::kKeyDeleted) {
      inside = false;
    }
    return inside;
  });
  Apply();
  // Its parent was there through it alone, perhaps; it stays.
  const size_t cut = key.rfind('\\');
  if (cut != std::string_view::npos && !HasKey(key.substr(0, cut))) CreateKey(key.substr(0, cut));
}

SettingsFile::Value SettingsFile::Text(std::string_view text) {
  Value value;
  value.data = std::string(text.substr(0, text.find('\0'))) + '\0';
  return value;
}

SettingsFile::Value SettingsFile::Number(int32_t number) {
  const auto bits = static_cast<uint32_t>(number);
  Value value;
  value.type = kNumber;
  for (int shift = 0; shift < 32; shift += 8) value.data += static_cast<char>(bits >> shift);
  return value;
}

}  // namespace korvane
