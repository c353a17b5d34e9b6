#include "cli/json.h"

#include <cstdio>

#include "cli/terminal_text.h"

namespace korvane::cli {

std::string JsonText(std::string_view text) {
  std::string json = "\"";
  while (!text.empty()) {
    const Character character = TakeCharacter(text);
    const char32_t code = character.code;
    if (code == '"' || code == '\\') {
      json += '\\';
      json += static_cast<char>(code);
    } else if (code == '\n') {
      json += "\\n";
    } else if (code < 0x20 || code == 0x7F || code == 0x2028 || code == 0x2029) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(code));
      json += escape;
    } else {
      json += character.bytes;
    }
  }
  return json + "\"";
}

std::string JsonArray(const std::vector<std::string>& items) {
  std::string json = "[";
  for (const std::string& item : items) {
    if (json.size() > 1) json += ",";
    json += item;
  }
  return json + "]";
}

JsonObject& JsonObject::Raw(std::string_view name, std::string_view json) {
  if (text_.size() > 1) text_ += ",";
  text_ += JsonText(name);
  text_ += ":";
  text_ += json;
  return *this;
}

}  // namespace korvane::cli
