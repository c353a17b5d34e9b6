#include "frame/debug_log.h"

#include <array>
#include <chrono>
#include <cstdio>

#include "frame/file_handle.h"
#include "frame/files.h"

namespace korvane {

namespace {

std::string Now() {
  using std::chrono::floor;
  const auto now = floor<std::chrono::seconds>(std::chrono::system_clock::now());
  const auto midnight = floor<std::chrono::days>(now);
  const std::chrono::year_month_day date(midnight);
  const std::chrono::hh_mm_ss time(now - midnight);
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
  return text.data();
}

}  // namespace

void WriteDebugLog(int32_t debug_mode, const std::string& path_log, std::string_view place,
                   std::string_view cause) {
  if (debug_mode == 0 || path_log.empty()) return;
  constexpr size_t kLongestCause = 2'000;

  std::string line = Now();
  line += " [" + std::to_string(ProcessId()) + "] ";
  line += place;
  line += ": ";
  line += cause.substr(0, kLongestCause);
  // One entry is one line, whatever a server or a driver put into its text.
  for (char& c : line) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  line += '\n';

  const std::string path = JoinPath(path_log, kDebugLogName);
  const FileHandle file = FileHandle::Open(path, FileHandle::How::kAppend);
  if (!file.IsOpen()) return;
  if (file.Length() >= kDebugLogLimit) (void)RenameFile(path, path + ".1");
  // In one piece: lines of several processes do not mix.
  (void)file.Append(line.data(), line.size());
}

}  // namespace korvane
