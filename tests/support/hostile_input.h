// Long texts made of one piece, and the time that a routine takes for them. A routine that is not
// linear needs minutes for what these tests give it; the limit is generous, because the build may
// be a slow one.
#pragma once

#include <chrono>
#include <ctime>
#include <string>
#include <string_view>

namespace korvane::test {

inline std::string Repeated(std::string_view piece, size_t bytes) {
  std::string text;
  text.reserve(bytes + piece.size());
  while (text.size() < bytes) text += piece;
  return text;
}

constexpr double kGenerousSeconds = 5.0;

inline double ThreadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// What the routine costs this thread: a busy machine does not count.
template <class Routine>
double CpuSecondsOf(Routine routine) {
  const double begin = ThreadSeconds();
  routine();
  return ThreadSeconds() - begin;
}

/// How long the routine takes, waiting included.
template <class Routine>
double SecondsOf(Routine routine) {
  const auto begin = std::chrono::steady_clock::now();
  routine();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace korvane::test
