// The text of a reply to CAPA. A plain reader of lines must find the same, and neither the case nor
// what stands behind the dot may change it.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "pop3/capabilities.h"

namespace {

/// One line after the other, each by itself.
bool Plain(const std::string& text) {
  std::string name;
  bool in_name = true;
  for (size_t at = 0;; ++at) {
    const bool end = at == text.size() || text[at] == '\n';
    if (!end) {
      const char c = text[at];
      in_name = in_name && c != ' ' && c != '\t' && c != '\r';
      if (in_name) name += c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
      continue;
    }
    if (name == "PIPELINING") return true;
    if (name == "." || at == text.size()) return false;
    name.clear();
    in_name = true;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto found = korvane::ReadCapabilities(text);
  if (!found.known || found.pipelining != Plain(text)) std::abort();
  std::string lower = text;
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  if (korvane::ReadCapabilities(lower).pipelining != found.pipelining) std::abort();
  if (korvane::ReadCapabilities(text + "\n.\r\nPIPELINING\r\n").pipelining != found.pipelining) {
    std::abort();
  }
  if (!korvane::ReadCapabilities("PIPELINING\r\n" + text).pipelining) std::abort();
  return 0;
}
