// Writing JSON, for the option --json.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::cli {

/// A text with its quotes. Bytes that are no UTF-8 become U+FFFD.
std::string JsonText(std::string_view text);
std::string JsonArray(const std::vector<std::string>& items);

class JsonObject {
 public:
  JsonObject& Text(std::string_view name, std::string_view value) {
    return Raw(name, JsonText(value));
  }
  JsonObject& Number(std::string_view name, int64_t value) {
    return Raw(name, std::to_string(value));
  }
  JsonObject& Flag(std::string_view name, bool value) {
    return Raw(name, value ? "true" : "false");
  }
  /// A value that is JSON already.
  JsonObject& Raw(std::string_view name, std::string_view json);
  std::string Str() const { return text_ + "}"; }

 private:
  std::string text_ = "{";
};

}  // namespace korvane::cli
