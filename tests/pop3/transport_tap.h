// Stands between the client and the real sockets: hands received bytes on in pieces of a chosen
// size and lets sends fail, so that a test decides where a block ends. The program's own MPsend and
// MPrecv come before those of the companion library, which they call.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>

namespace korvane::test {

struct TransportTap {
  /// The most bytes that one receive hands on.
  static inline int32_t piece = std::numeric_limits<int32_t>::max();
  /// So many lines go through, then sending fails; below 0 all go through.
  static inline int32_t sends_left = -1;
  /// How much of this may be sent.
  static size_t Through(std::string_view bytes) {
    if (sends_left < 0) return bytes.size();
    size_t through = 0;
    for (; sends_left > 0 && through < bytes.size(); --sends_left) {
      const size_t end = bytes.find('\n', through);
      through = end == std::string_view::npos ? bytes.size() : end + 1;
    }
    return through;
  }
  /// The last capacity that the client offered, and the longest block it was given.
  static inline int32_t capacity = 0;
  static inline int32_t longest_block = 0;
  /// Everything sent, as it went out.
  static inline std::string sent;

  /// When set, called in the place of the next receive, which then fails.
  static inline std::function<void()> instead_of_receive;

  static void Reset() {
    instead_of_receive = nullptr;
    piece = std::numeric_limits<int32_t>::max();
    sends_left = -1;
    capacity = longest_block = 0;
    sent.clear();
  }
};

}  // namespace korvane::test
