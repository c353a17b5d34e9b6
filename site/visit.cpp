#include "visit.h"

#include <charconv>

#include "frame/files.h"

namespace korvane::site {

std::optional<int32_t> ParseNumber(std::string_view text) {
  int32_t number = 0;
  const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (fault != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::string Visit::Field(const std::string& name) const {
  std::string value;
  if (request.is_multipart_form_data()) {
    if (request.has_file(name)) value = request.get_file_value(name).content;
  } else if (request.has_param(name)) {
    value = request.get_param_value(name);
  }
  if (value.size() > kLargestField) throw PageFault(413, "That text is too long.");
  return value;
}

std::vector<std::string> Visit::Fields(const std::string& name) const {
  std::vector<std::string> values;
  if (request.is_multipart_form_data()) {
    const auto [first, last] = request.files.equal_range(name);
    for (auto one = first; one != last; ++one) values.push_back(one->second.content);
    return values;
  }
  const auto [first, last] = request.params.equal_range(name);
  for (auto one = first; one != last; ++one) values.push_back(one->second);
  return values;
}

int32_t Visit::Number(const std::string& name, int32_t otherwise, int32_t least,
                      int32_t most) const {
  const auto number = ParseNumber(Field(name));
  return number && *number >= least && *number <= most ? *number : otherwise;
}

std::string Visit::StoredPath(const std::string& name_on_server) const {
  return JoinPath(site.mail.settings().PathAtcmts(),
                  name_on_server.substr(name_on_server.find_last_of("/\\") + 1));
}

void Visit::GoTo(const std::string& path) const { response.set_redirect(path, 303); }

}  // namespace korvane::site
