#include "pop3/received_time.h"

#include <charconv>
#include <chrono>

#include "mime/mail_date.h"

namespace korvane {
namespace {

constexpr int64_t kDay = 24 * 60 * 60;

bool IsAheadOfClock(std::string_view normalised) {
  const auto moment = MomentOf(normalised);
  const auto now = std::chrono::duration_cast<std::chrono::seconds>(
      std::chrono::system_clock::now().time_since_epoch());
  return moment && *moment > now.count() + kDay;
}

ScanTime FromReceived(std::string_view received, bool first_moment) {
  bool guessed = false;
  ScanTime time{ParseMailDate(received, first_moment, true, guessed), true};
  // A day that no calendar has cannot be kept as the time of the last download.
  time.readable = !guessed && IsInCalendar(time.text);
  // A filled year is ahead as well, and becomes what it was filled with.
  if (IsAheadOfClock(time.text)) {
    time = {std::string(first_moment ? kFirstMoment : kLastMoment), false};
  }
  return time;
}

}  // namespace

ScanTime MessageTime(std::string_view received) { return FromReceived(received, false); }

ScanTime WantedTime(std::string_view received) { return FromReceived(received, true); }

ScanTime LastDownloadTime(std::string_view date) {
  ScanTime time{PadDate(date), true};
  for (size_t i = 0; i < time.text.size() && i < kFirstMoment.size(); ++i) {
    if (time.text[i] != '?') continue;
    time.text[i] = kFirstMoment[i];
    time.readable = false;
  }
  if (IsAheadOfClock(time.text)) time = {std::string(kFirstMoment), false};
  return time;
}

std::optional<int64_t> MomentOf(std::string_view normalised) {
  if (normalised.size() != kFirstMoment.size()) return std::nullopt;
  const auto field = [&](size_t at, size_t length) {
    int value = -1;
    const char* begin = normalised.data() + at;
    const auto [end, fault] = std::from_chars(begin, begin + length, value);
    return fault == std::errc() && end == begin + length ? value : -1;
  };
  const int day = field(0, 2), month = field(3, 2), year = field(6, 4);
  const int hour = field(11, 2), minute = field(14, 2), second = field(17, 2);
  if (day < 1 || month < 1 || month > 12 || year < 0 || hour < 0 || minute < 0 || second < 0) {
    return std::nullopt;
  }
  // A day beyond the month's end, as the 29th of February 1900, runs on into the next month.
  const std::chrono::sys_days first{std::chrono::year{year} / month / 1};
  return (first.time_since_epoch().count() + day - 1) * kDay + hour * 3600 + minute * 60 + second;
}

}  // namespace korvane
