#include "cli/message_date.h"

#include <cstdio>
#include <optional>

namespace korvane::cli {
namespace {

std::optional<std::tm> Parse(std::string_view text) {
  std::tm time{};
  char behind = 0;
  if (std::sscanf(std::string(text).c_str(), "%2d/%2d/%4d %2d:%2d:%2d%c", &time.tm_mday,
                  &time.tm_mon, &time.tm_year, &time.tm_hour, &time.tm_min, &time.tm_sec,
                  &behind) != 6) {
    return std::nullopt;
  }
  time.tm_mon -= 1;
  time.tm_year -= 1900;
  return time;
}

std::string Format(const char* format, const std::tm& time) {
  char text[64];
  return {text, std::strftime(text, sizeof text, format, &time)};
}

}  // namespace

std::string IsoDate(std::string_view normalised) {
  const auto time = Parse(normalised);
  return time ? Format("%Y-%m-%dT%H:%M:%SZ", *time) : std::string();
}

std::string ReadableDate(std::string_view normalised, std::time_t now) {
  auto parsed = Parse(normalised);
  if (!parsed) return "";
  const std::time_t moment = timegm(&*parsed);
  std::tm local{};
  std::tm today{};
  if (!localtime_r(&moment, &local) || !localtime_r(&now, &today)) return "";
  const bool same_day = local.tm_year == today.tm_year && local.tm_yday == today.tm_yday;
  return Format(same_day ? "%H:%M" : "%Y-%m-%d %H:%M", local);
}

}  // namespace korvane::cli
