// A moment up to which something may wait.
#pragma once

#include <algorithm>
#include <chrono>

namespace korvane::sockets {

class Deadline {
 public:
  explicit Deadline(std::chrono::milliseconds from_now) : moment_(Clock::now() + from_now) {}

  bool Passed() const { return Clock::now() >= moment_; }

  /// What is left, rounded up, so that waiting for it does not end early; 0 once it has passed.
  std::chrono::milliseconds Left() const {
    return std::max(std::chrono::milliseconds(0),
                    std::chrono::ceil<std::chrono::milliseconds>(moment_ - Clock::now()));
  }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point moment_;
};

}  // namespace korvane::sockets
