#include "mime/delimiter_scanner.h"

#include <algorithm>
#include <utility>

#include "mime/line_search.h"

namespace korvane {

size_t DelimiterScanner::Open(std::string boundary, size_t from) {
  boundaries_.push_back(std::move(boundary));
  GoOnAt(from);
  return boundaries_.size() - 1;
}

void DelimiterScanner::Close() {
  boundaries_.pop_back();
  if (next_.found() && next_.level >= boundaries_.size()) GoOnAt(next_.at + 2);
}

const DelimiterScanner::Match& DelimiterScanner::Next(size_t limit) {
  if (next_.found()) return next_.at < limit ? next_ : none_;
  if (boundaries_.empty()) return none_;
  while (position_ < limit) {
    const size_t at = FindLineEndBefore(text_, position_, limit, "--");
    if (at == Match::kNone) {
      position_ = limit;
      break;
    }
    position_ = at + 2;
    const std::string_view line = text_.substr(at + 4);
    for (size_t level = 0; level < boundaries_.size(); ++level) {
      if (line.starts_with(boundaries_[level])) {
        next_ = {at, level};
        return next_;
      }
    }
  }
  return none_;
}

void DelimiterScanner::GoOnAt(size_t position) {
  next_ = {};
  position_ = position;
}

}  // namespace korvane
