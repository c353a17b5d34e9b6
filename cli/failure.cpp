#include "cli/failure.h"

#include <string_view>

#include "cli/json.h"
#include "cli/terminal_text.h"
#include "frame/error_numbers.h"

namespace korvane::cli {

std::string Failure::Said() const {
  const std::string_view text = what();
  return text == "XXX" ? std::string() : Printable(text);
}

std::string Failure::Text() const {
  if (number_ == 0) return Said();
  const ErrorEntry* entry = FindError(number_);
  std::string text = "error " + std::to_string(number_);
  if (entry) text += ": " + std::string(entry->meaning);
  if (const std::string said = Said(); !said.empty()) text += "\n  the server said: " + said;
  if (entry) text += "\n  " + std::string(entry->advice);
  return text;
}

std::string Failure::Json() const {
  JsonObject json;
  json.Number("status", static_cast<int>(status_));
  if (number_ == 0) return json.Text("meaning", Said()).Str();
  json.Number("number", number_);
  if (const ErrorEntry* entry = FindError(number_)) {
    json.Text("name", entry->name).Text("meaning", entry->meaning).Text("advice", entry->advice);
  }
  if (const std::string said = Said(); !said.empty()) json.Text("server", said);
  return json.Str();
}

}  // namespace korvane::cli
