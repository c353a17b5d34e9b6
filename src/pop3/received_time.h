// Times as the scans over a mailbox compare them: normalised, in GMT, every field filled. Doubt
// never hides mail: what is unknown of a message's time is filled with the last moment, of the time
// that it is compared with, the first. A time more than a day ahead of the clock counts as
// unreadable, so that one bad clock does not stop all later mail.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvane {

inline constexpr std::string_view kFirstMoment = "01/01/0001 00:00:00";
inline constexpr std::string_view kLastMoment = "31/12/9999 23:59:59";

struct ScanTime {
  std::string text;
  bool readable = false;  ///< nothing had to be filled
};

/// The time of a message from its "received" value.
ScanTime MessageTime(std::string_view received);
/// The same of a message that is looked for.
ScanTime WantedTime(std::string_view received);
/// The time of the last download, day first.
ScanTime LastDownloadTime(std::string_view date);

/// Seconds since 1970 of a normalised date in GMT; nothing when it has unknown fields.
std::optional<int64_t> MomentOf(std::string_view normalised);

}  // namespace korvane
