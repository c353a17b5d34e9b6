// How far a selection of new messages is, and how long the rest may take.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

namespace korvane {

struct SelectionProgress {
  int32_t looked_at = 0;  ///< messages, over all selections of the session
  int32_t total = 0;      ///< on the server
  int32_t taken = 0;      ///< new ones among those looked at, in this selection
  int64_t bytes = 0;      ///< of the messages looked at, as the server counts them
  int64_t all_bytes = 0;  ///< on the server
  bool whole = false;     ///< new messages are fetched, not their headers alone
  /// True when every message on the server will be looked at; else the rest is the most that there
  /// can be, for the selection ends at the first message that is known with all older ones.
  bool to_the_end = false;

  /// What is done of the work, from 0 to 1. It never goes back: a server whose messages are larger
  /// than it said altogether stays at 1 for the rest.
  double Done() const {
    if (looked_at >= total) return 1;
    if (whole && all_bytes > 0) {
      return std::min(1.0, static_cast<double>(bytes) / static_cast<double>(all_bytes));
    }
    return static_cast<double>(looked_at) / total;
  }
  /// The seconds left, judged by those that it took so far; nothing while that says nothing.
  std::optional<double> SecondsLeft(double elapsed) const {
    const double done = Done();
    if (looked_at < 2 || done <= 0 || (done >= 1 && looked_at < total)) return std::nullopt;
    return elapsed * (1 - done) / done;
  }
};

}  // namespace korvane
