// Changing a settings file: the lines that a change makes go where a reader of the file would look
// for them, and everything else stays as it is.
#include "frame/settings_file.h"

#include <algorithm>

#include "frame/code_page.h"
#include "frame/settings_text.h"

namespace korvane {

using namespace settings_text;

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
