// Long texts made of one piece, and the time that a routine takes for them. A routine that is not
// linear needs minutes for what these tests give it; the limit is generous, because the machine may
// be busy and the build a slow one.
#pragma once

#include <chrono>
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

template <class Routine>
double SecondsOf(Routine routine) {
  const auto begin = std::chrono::steady_clock::now();
  routine();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace korvane::test
