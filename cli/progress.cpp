#include "cli/progress.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "cli/terminal_text.h"

namespace korvane::cli {
namespace {

constexpr int32_t kBarWidth = 30;
constexpr auto kBetween = std::chrono::milliseconds(60);

}  // namespace

ProgressLine::ProgressLine(std::string title, bool quiet)
    : title_(std::move(title)), enabled_(!quiet && isatty(STDERR_FILENO)) {}

void ProgressLine::Show(int32_t done, int32_t total, const std::string& words) {
  if (!enabled_) return;
  const auto now = std::chrono::steady_clock::now();
  if (shown_ > 0 && now - last_ < kBetween && done < total) return;
  last_ = now;
  const auto filled = total > 0 ? static_cast<size_t>(int64_t{kBarWidth} * done / total) : 0;
  const std::string bar = std::string(std::min<size_t>(filled, kBarWidth), '#') +
                          std::string(kBarWidth - std::min<size_t>(filled, kBarWidth), '.');
  const std::string line = title_ + "  [" + bar + "]  " + std::to_string(done) + "/" +
                           std::to_string(total) + "  " + words;
  const std::string fitted =
      Fit(line, std::max(shown_, std::min(DisplayWidth(line), TerminalWidth() - 1)));
  shown_ = DisplayWidth(fitted);
  std::cerr << "\r" << fitted << std::flush;
}

void ProgressLine::Clear() {
  if (shown_ > 0) std::cerr << "\r" << std::string(shown_, ' ') << "\r" << std::flush;
  shown_ = 0;
}

}  // namespace korvane::cli
