// Finds the delimiter lines of all multiparts that are open at a place, in one pass over the text.
// An enclosing multipart's boundary comes before an enclosed one's: what it delimits ends the inner
// one as well. A delimiter once found is remembered until it is used.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

class DelimiterScanner {
 public:
  explicit DelimiterScanner(std::string_view text) : text_(text) {}

  struct Match {
    static constexpr size_t kNone = std::string_view::npos;
    size_t at = kNone;  ///< of the CR LF before the line
    size_t level = 0;   ///< of the multipart whose delimiter it is; 0 is the outermost
    bool found() const { return at != kNone; }
  };

  /// Opens a multipart within the ones that are open; the search goes on at `from`. Returns its
  /// level.
  size_t Open(std::string boundary, size_t from);
  /// Closes the innermost. A remembered delimiter of it is dropped, the search goes on behind that.
  void Close();
  size_t Depth() const { return boundaries_.size(); }

  /// The next delimiter that begins before `limit`. It stays the next one until the search is told
  /// to go on elsewhere.
  const Match& Next(size_t limit);
  void GoOnAt(size_t position);

 private:
  std::string_view text_;
  std::vector<std::string> boundaries_;
  size_t position_ = 0;  ///< everything before it is searched
  Match next_;
  Match none_;
};

}  // namespace korvane
