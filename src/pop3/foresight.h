// What a selection will ask the server next, announced so that the replies are on their way when it
// asks. How far ahead follows what the line gives: more while the session still has to wait for
// replies, less where it no longer does, where messages are large, and where a message turned out
// otherwise than foreseen. Where nothing can stop the selection, large messages go further ahead as
// long as the line has pauses between them. The first announcement is of one message's header
// alone: often nothing is new.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "server_link.h"

namespace korvane {

class Foresight {
 public:
  struct Plan {
    bool whole = false;    ///< a message that is taken is fetched
    bool all_new = false;  ///< nothing can stop the selection
    /// The number that is looked at after this one; 0 when there is none.
    std::function<int32_t(int32_t)> next;
  };
  Foresight(ServerLink& link, Plan plan);

  /// The session is about to ask for the header of this message.
  void AtHeader(int32_t number);
  /// The session is about to fetch this message.
  void AtMessage(int32_t number);
  void Took(int64_t bytes);
  void Skipped() { expect_taken_ = false; }

 private:
  bool Comes(const std::string& line);
  void Announce(std::vector<ServerLink::Command> commands);
  bool MayAdd(int64_t outstanding) const;
  void WidenWhereIdle();

  ServerLink& link_;
  Plan plan_;
  int64_t window_;  ///< messages
  int64_t easy_ = 0;
  bool expect_taken_;
  int32_t next_ = 0;  ///< the message to announce next
  int64_t estimate_;  ///< bytes of one message
  int64_t taken_ = 0;
  int64_t most_bytes_;  ///< may be on their way
  std::chrono::steady_clock::time_point last_taken_;
};

}  // namespace korvane
