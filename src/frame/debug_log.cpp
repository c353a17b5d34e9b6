#include "frame/debug_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "frame/files.h"

namespace korvane {

void WriteDebugLog(int32_t debug_mode, const std::string& path_log, std::string_view place,
                   std::string_view cause) {
  if (debug_mode == 0 || path_log.empty()) return;
  constexpr size_t kLongestCause = 2'000;

  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  ::gmtime_r(&now, &utc);
  char time[32];
  std::strftime(time, sizeof time, "%Y-%m-%dT%H:%M:%SZ", &utc);

  std::string line = time;
  line += " [" + std::to_string(::getpid()) + "] ";
  line += place;
  line += ": ";
  line += cause.substr(0, kLongestCause);
  // One entry is one line, whatever a server or a driver put into its text.
  for (char& c : line) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  line += '\n';

  const std::string path = JoinPath(path_log, kDebugLogName);
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0600);
  if (fd < 0) return;
  struct stat status {};
  if (::fstat(fd, &status) == 0 && status.st_size >= kDebugLogLimit) {
    (void)RenameFile(path, path + ".1");
  }
  // A single write to a file opened for appending: lines of several processes do not mix.
  [[maybe_unused]] const ssize_t written = ::write(fd, line.data(), line.size());
  ::close(fd);
}

}  // namespace korvane
