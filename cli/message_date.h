// The dates of messages, as people and scripts read them.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

namespace korvane::cli {

/// "2025-03-14T08:15:00Z" for "14/03/2025 08:15:00"; "" when a field is unknown.
std::string IsoDate(std::string_view normalised);

/// In the machine's zone: the time for today ("08:15"), else the day and the time.
std::string ReadableDate(std::string_view normalised, std::time_t now);

}  // namespace korvane::cli
