// The debug log: with the setting DebugMode on, the causes behind the bare error numbers go to a
// file in PathLog, one line each. Callers pass causes only, never a password or the text of a
// message.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace korvane {

/// The name of the log file in PathLog; a full one is kept beside it with ".1" behind the name.
inline constexpr std::string_view kDebugLogName = "korvane_debug.log";
/// A log of this many bytes is full.
inline constexpr int64_t kDebugLogLimit = 8 * 1024 * 1024;

/// Appends "time, process, place, cause" to the log when `debug_mode` is not 0 and `path_log` is
/// not empty. `place` is the class and operation. A log that cannot be written is no error.
void WriteDebugLog(int32_t debug_mode, const std::string& path_log, std::string_view place,
                   std::string_view cause);

}  // namespace korvane
