#include "mime/html_addresses.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace korvane {

namespace {

constexpr auto kNone = std::string_view::npos;

constexpr std::array<std::string_view, 17> kAddressAttributes = {
    "href",     "src",    "background", "action", "cite",       "classid",
    "codebase", "data",   "dynsrc",     "icon",   "formaction", "longdesc",
    "lowsrc",   "poster", "profile",    "usemap", "xlink:href"};

char LowerOf(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f'; }

bool IsLetter(char c) { return LowerOf(c) >= 'a' && LowerOf(c) <= 'z'; }

bool EqualsWord(std::string_view text, std::string_view lower) {
  return text.size() == lower.size() && std::equal(text.begin(), text.end(), lower.begin(),
                                                   [](char a, char b) { return LowerOf(a) == b; });
}

// Finds a word (lower case, beginning with a character that has no case) from `from` on.
size_t FindWord(std::string_view text, std::string_view lower, size_t from) {
  for (size_t at = text.find(lower[0], from); at != kNone; at = text.find(lower[0], at + 1)) {
    if (EqualsWord(text.substr(at, lower.size()), lower)) return at;
  }
  return kNone;
}

class HtmlScan {
 public:
  explicit HtmlScan(std::string_view html) : html_(html) {}

  std::vector<HtmlAddress> Run() {
    size_t at = 0;
    while ((at = html_.find('<', at)) != kNone) {
      ++at;
      if (at < html_.size() && IsLetter(html_[at])) at = Tag(at);
    }
    return std::move(found_);
  }

 private:
  // From the tag's name to behind its ">", or behind the raw text that it opens.
  size_t Tag(size_t at) {
    const size_t name = at;
    while (at < html_.size() && !IsSpace(html_[at]) && html_[at] != '/' && html_[at] != '>') ++at;
    const std::string_view tag = html_.substr(name, at - name);
    at = Attributes(at);
    if (EqualsWord(tag, "style")) {
      const size_t end = std::min(FindWord(html_, "</style", at), html_.size());
      Style(at, end);
      return end;
    }
    if (EqualsWord(tag, "script")) return std::min(FindWord(html_, "</script", at), html_.size());
    return at;
  }

  size_t Attributes(size_t at) {
    while (at < html_.size()) {
      if (html_[at] == '>') return at + 1;
      if (IsSpace(html_[at]) || html_[at] == '/') {
        ++at;
      } else {
        at = Attribute(at);
      }
    }
    return at;
  }

  size_t Attribute(size_t at) {
    const size_t name_begin = at++;  // an attribute may begin with "="
    while (at < html_.size() && !IsSpace(html_[at]) && html_[at] != '/' && html_[at] != '>' &&
           html_[at] != '=') {
      ++at;
    }
    const std::string_view name = html_.substr(name_begin, at - name_begin);
    size_t value = at;
    while (value < html_.size() && IsSpace(html_[value])) ++value;
    if (value >= html_.size() || html_[value] != '=') return at;
    ++value;
    while (value < html_.size() && IsSpace(html_[value])) ++value;
    if (value >= html_.size()) return value;

    size_t end;
    const bool quoted = html_[value] == '"' || html_[value] == '\'';
    if (quoted) {
      end = html_.find(html_[value], value + 1);
      ++value;
      if (end == kNone) end = html_.size();
    } else {
      end = value;
      while (end < html_.size() && !IsSpace(html_[end]) && html_[end] != '>') ++end;
    }
    if (EqualsWord(name, "style")) {
      Style(value, end);
    } else if (end > value && HoldsAddress(name)) {
      found_.push_back({value, end, !quoted});
    }
    return quoted ? std::min(end + 1, html_.size()) : end;
  }

  static bool HoldsAddress(std::string_view name) {
    return std::any_of(kAddressAttributes.begin(), kAddressAttributes.end(),
                       [name](std::string_view known) { return EqualsWord(name, known); });
  }

  // url(...) in a style; quotes within the parentheses may be references.
  void Style(size_t at, size_t end) {
    const std::string_view style = html_.substr(0, end);
    while ((at = style.find('(', at)) != kNone) {
      ++at;
      if (at < 4 || !EqualsWord(style.substr(at - 4, 3), "url")) continue;
      const size_t close = style.find(')', at);
      if (close == kNone) return;
      size_t begin = at;
      size_t stop = close;
      at = close;
      Trim(begin, stop);
      for (const std::string_view quote : {"\"", "'", "&quot;", "&#34;", "&#39;", "&apos;"}) {
        const std::string_view value = style.substr(begin, stop - begin);
        if (value.size() >= 2 * quote.size() && value.starts_with(quote) &&
            value.ends_with(quote)) {
          begin += quote.size();
          stop -= quote.size();
          break;
        }
      }
      if (begin < stop) found_.push_back({begin, stop, false});
    }
  }

  void Trim(size_t& begin, size_t& end) const {
    while (begin < end && IsSpace(html_[begin])) ++begin;
    while (end > begin && IsSpace(html_[end - 1])) --end;
  }

  std::string_view html_;
  std::vector<HtmlAddress> found_;
};

void AppendUtf8(std::string& text, uint32_t character) {
  if (character < 0x80) {
    text += static_cast<char>(character);
    return;
  }
  if (character < 0x800) {
    text += static_cast<char>(0xC0 | (character >> 6));
  } else {
    if (character < 0x10000) {
      text += static_cast<char>(0xE0 | (character >> 12));
    } else {
      text += static_cast<char>(0xF0 | (character >> 18));
      text += static_cast<char>(0x80 | ((character >> 12) & 0x3F));
    }
    text += static_cast<char>(0x80 | ((character >> 6) & 0x3F));
  }
  text += static_cast<char>(0x80 | (character & 0x3F));
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (LowerOf(c) >= 'a' && LowerOf(c) <= 'f') return LowerOf(c) - 'a' + 10;
  return -1;
}

// The character of "amp" or "#38" or "#x26"; 0 when it is none that an address would hold.
uint32_t ReferredCharacter(std::string_view name) {
  if (EqualsWord(name, "amp")) return '&';
  if (EqualsWord(name, "lt")) return '<';
  if (EqualsWord(name, "gt")) return '>';
  if (EqualsWord(name, "quot")) return '"';
  if (EqualsWord(name, "apos")) return '\'';
  if (name.size() < 2 || name[0] != '#') return 0;
  const bool hex = LowerOf(name[1]) == 'x';
  uint32_t character = 0;
  for (const char c : name.substr(hex ? 2 : 1)) {
    const int digit = HexDigit(c);
    if (digit < 0 || (!hex && digit > 9)) return 0;
    character = character * (hex ? 16 : 10) + static_cast<uint32_t>(digit);
    if (character > 0x10FFFF) return 0;
  }
  return character >= 0xD800 && character < 0xE000 ? 0 : character;
}

}  // namespace

std::vector<HtmlAddress> FindHtmlAddresses(std::string_view html) { return HtmlScan(html).Run(); }

std::string WithoutReferences(std::string_view value) {
  constexpr size_t kLongestReference = 10;
  while (!value.empty() && IsSpace(value.front())) value.remove_prefix(1);
  while (!value.empty() && IsSpace(value.back())) value.remove_suffix(1);
  std::string text;
  text.reserve(value.size());
  for (size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '&') {
      const size_t end = value.substr(0, i + kLongestReference).find(';', i);
      const uint32_t character =
          end == kNone ? 0 : ReferredCharacter(value.substr(i + 1, end - i - 1));
      if (character != 0) {
        AppendUtf8(text, character);
        i = end;
        continue;
      }
    }
    text += value[i];
  }
  return text;
}

std::string WithoutPercentSigns(std::string_view value) {
  std::string text;
  text.reserve(value.size());
  for (size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '%' && i + 2 < value.size() && HexDigit(value[i + 1]) >= 0 &&
        HexDigit(value[i + 2]) >= 0) {
      text += static_cast<char>(HexDigit(value[i + 1]) * 16 + HexDigit(value[i + 2]));
      i += 2;
    } else {
      text += value[i];
    }
  }
  return text;
}

}  // namespace korvane
