#include "engine/message_ids.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace korvane {

std::optional<std::vector<int32_t>> ReadMessageIds(const Any& value) {
  std::vector<int32_t> ids;
  // A script's arithmetic makes floating numbers of whole ones.
  const auto* real = std::get_if<double>(&value.value());
  if (std::holds_alternative<int64_t>(value.value()) || real) {
    const auto id = value.ToInt32();
    if (!id || (real && *real != *id)) return std::nullopt;
    ids.push_back(*id);
    return ids;
  }
  if (!value.IsText()) return std::nullopt;
  const std::string text = value.ToText();
  size_t at = 0;
  while (true) {
    const size_t comma = std::min(text.find(',', at), text.size());
    size_t end = comma;
    while (at < end && text[at] == ' ') ++at;
    while (end > at && text[end - 1] == ' ') --end;
    int32_t id = 0;
    const char* last = text.data() + end;
    const auto [stop, fault] = std::from_chars(text.data() + at, last, id);
    if (at == end || text[at] == '-' || fault != std::errc() || stop != last) return std::nullopt;
    ids.push_back(id);
    if (comma == text.size()) return ids;
    at = comma + 1;
  }
}

}  // namespace korvane
