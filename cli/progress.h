// One line on the terminal that tells how far a download is; nothing where there is no terminal.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace korvane::cli {

class ProgressLine {
 public:
  /// `quiet`: never show anything.
  ProgressLine(std::string title, bool quiet);
  ~ProgressLine() { Clear(); }
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  void Show(int32_t done, int32_t total, const std::string& words);
  void Clear();

 private:
  std::string title_;
  bool enabled_;
  size_t shown_ = 0;  ///< columns of what stands on the line now
  std::chrono::steady_clock::time_point last_;
};

}  // namespace korvane::cli
