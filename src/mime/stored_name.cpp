#include "mime/stored_name.h"

#include <algorithm>
#include <array>

#include "frame/code_page.h"
#include "mime/header_fields.h"

namespace korvane {

namespace {

constexpr size_t kLongestName = 255;      // what common file systems take
constexpr size_t kLongestExtension = 32;  // beyond it the tail of a name is no extension

#ifdef _WIN32
constexpr std::string_view kRefused = "/\\<>:\"|?*";
#else
constexpr std::string_view kRefused = "/\\";
#endif

// Sorted. Servers are commonly set up to run each of these by its extension alone.
constexpr std::array kRunnable = std::to_array<std::string_view>(
    {"asa",  "asax",  "ascx", "ashx",   "asmx",  "asp",   "aspx",   "axd",   "cer", "cfc",
     "cfm",  "cfml",  "cgi",  "cshtml", "do",    "fcgi",  "htr",    "jhtml", "jsp", "jspf",
     "jspx", "lua",   "phar", "pht",    "phtm",  "phtml", "pl",     "plx",   "py",  "pyc",
     "rb",   "rhtml", "sh",   "shtm",   "shtml", "stm",   "vbhtml", "wsgi"});

bool IsRunnable(std::string_view extension) {
  const std::string lower = LowerCase(TrimBlanks(extension));
  if (lower.starts_with("php")) {  // php, php5, php74, phps
    const std::string_view kind = std::string_view(lower).substr(3);
    return kind.size() <= 1 || kind.find_first_not_of("0123456789") == kind.npos;
  }
  return std::binary_search(kRunnable.begin(), kRunnable.end(), lower);
}

std::string WithoutRefused(std::string_view name) {
  std::string safe = ToUtf8(std::string(name));
  for (char& c : safe) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F || kRefused.find(c) != kRefused.npos) {
      c = '_';
    }
  }
#ifdef _WIN32
  // Blanks and full stops at the end would silently vanish, and bring another extension to light.
  for (size_t i = safe.size(); i-- > 0 && (safe[i] == '.' || safe[i] == ' ');) safe[i] = '_';
#endif
  return safe;
}

// Some servers look at every extension of a name, not at the last alone.
std::string WithHarmlessExtensions(std::string_view name) {
  std::string safe;
  safe.reserve(name.size() + 1);
  size_t from = 0;
  for (size_t dot = name.find('.'); dot != name.npos;) {
    const size_t next = name.find('.', dot + 1);
    const std::string_view extension =
        name.substr(dot + 1, next == name.npos ? next : next - dot - 1);
    if (IsRunnable(extension)) {
      safe += name.substr(from, dot + 1 + extension.size() - from);
      safe += '_';
      from = dot + 1 + extension.size();
    }
    dot = next;
  }
  safe += name.substr(from);
  return safe;
}

// The first `size` bytes, less what would be half a character.
std::string_view CutBytes(std::string_view text, size_t size) {
  if (text.size() <= size) return text;
  while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80) --size;
  return text.substr(0, size);
}

// The cut is marked, so that no two ends meet to form an extension.
std::string Shortened(std::string_view name, size_t size) {
  if (name.size() <= size) return std::string(name);
  const size_t dot = name.rfind('.');
  std::string_view extension;
  if (dot != name.npos && name.size() - dot <= kLongestExtension) extension = name.substr(dot);
  std::string shortened(CutBytes(name, size - 1 - extension.size()));
  shortened += '_';
  shortened += extension;
  return shortened;
}

}  // namespace

std::string StoredFileName(int32_t user_id, int32_t message_id, int32_t number,
                           std::string_view name) {
  std::string stored = std::to_string(user_id) + "_" + std::to_string(message_id) + "_" +
                       std::to_string(number) + "_";
  stored += Shortened(WithHarmlessExtensions(WithoutRefused(name)), kLongestName - stored.size());
  return stored;
}

}  // namespace korvane
