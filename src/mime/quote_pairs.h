// Pairs the double quotes of a text from its start: first with second, third with fourth. An
// unpaired last quote opens nothing, and a backslash means nothing. Positions are asked for in
// rising order, so that a whole text costs one pass.
#pragma once

#include <string_view>

namespace korvane {

class QuotePairs {
 public:
  explicit QuotePairs(std::string_view text) : text_(text) { Pair(0); }

  /// True when `position` lies strictly between the quotes of a pair. Never below the last one
  /// asked.
  bool Inside(size_t position) {
    while (close_ != std::string_view::npos && close_ <= position) Pair(close_ + 1);
    return close_ != std::string_view::npos && open_ < position;
  }

 private:
  void Pair(size_t from) {
    open_ = text_.find('"', from);
    close_ = open_ == std::string_view::npos ? open_ : text_.find('"', open_ + 1);
  }

  std::string_view text_;
  size_t open_ = 0;
  size_t close_ = 0;
};

}  // namespace korvane
