// The time zone of this process, by the variable that names it, until the end of the scope.
#pragma once

#include <cstdlib>
#include <ctime>

namespace korvane::test {

class TimeZoneInUse {
 public:
  explicit TimeZoneInUse(const char* name) { Set(name); }
  ~TimeZoneInUse() { Set(nullptr); }
  TimeZoneInUse(const TimeZoneInUse&) = delete;
  TimeZoneInUse& operator=(const TimeZoneInUse&) = delete;

 private:
  static void Set(const char* name) {
#ifdef _WIN32
    _putenv_s("TZ", name ? name : "");
    _tzset();
#else
    name ? setenv("TZ", name, 1) : unsetenv("TZ");
    tzset();
#endif
  }
};

}  // namespace korvane::test
