#include "frame/any.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace korvane {

namespace {

std::string_view Trim(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

bool EqualsIgnoringCase(std::string_view text, std::string_view lower) {
  if (text.size() != lower.size()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if ((c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c) != lower[i]) return false;
  }
  return true;
}

std::optional<int64_t> Rounded(double value) {
  // 2^63 is exact as a double, INT64_MAX is not.
  constexpr double kLimit = 9223372036854775808.0;
  if (!(value >= -kLimit && value < kLimit)) return std::nullopt;
  double whole = std::floor(value);
  const double rest = value - whole;
  if (rest > 0.5 || (rest == 0.5 && std::fmod(whole, 2.0) != 0.0)) whole += 1.0;
  if (whole >= kLimit) return std::nullopt;
  return static_cast<int64_t>(whole);
}

std::optional<int64_t> NumberFromText(std::string_view text) {
  text = Trim(text);
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') return std::nullopt;
  }
  if (text.empty()) return std::nullopt;
  const char* const end = text.data() + text.size();
  int64_t whole = 0;
  const auto integer = std::from_chars(text.data(), end, whole);
  if (integer.ec == std::errc() && integer.ptr == end) return whole;
  double value = 0;
  const auto real = std::from_chars(text.data(), end, value);
  if (real.ec != std::errc() || real.ptr != end) return std::nullopt;
  return Rounded(value);
}

template <class T>
std::string Decimal(T value) {
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return {buffer, result.ptr};
}

}  // namespace

std::optional<int64_t> Any::ToInt64() const {
  if (IsEmpty()) return 0;
  if (const auto* flag = std::get_if<bool>(&value_)) return *flag ? -1 : 0;
  if (const auto* whole = std::get_if<int64_t>(&value_)) return *whole;
  if (const auto* real = std::get_if<double>(&value_)) return Rounded(*real);
  if (const auto* text = std::get_if<std::string>(&value_)) return NumberFromText(*text);
  return std::nullopt;
}

std::optional<int32_t> Any::ToInt32() const {
  const auto value = ToInt64();
  if (!value || *value < std::numeric_limits<int32_t>::min() ||
      *value > std::numeric_limits<int32_t>::max()) {
    return std::nullopt;
  }
  return static_cast<int32_t>(*value);
}

std::optional<bool> Any::ToBool() const {
  if (const auto* text = std::get_if<std::string>(&value_)) {
    const std::string_view word = Trim(*text);
    if (EqualsIgnoringCase(word, "true")) return true;
    if (EqualsIgnoringCase(word, "false")) return false;
  }
  if (const auto* real = std::get_if<double>(&value_)) return *real != 0;
  const auto number = ToInt64();
  if (!number) return std::nullopt;
  return *number != 0;
}

std::string Any::ToText() const {
  if (const auto* text = std::get_if<std::string>(&value_)) return *text;
  if (const auto* flag = std::get_if<bool>(&value_)) return *flag ? "True" : "False";
  if (const auto* whole = std::get_if<int64_t>(&value_)) return Decimal(*whole);
  if (const auto* real = std::get_if<double>(&value_)) return Decimal(*real);
  return {};
}

}  // namespace korvane
