// A mailbox made of folders: every file in them is a message, in the order of the folders as given
// and of the names in each. Files are read as they are asked for and never changed.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::sample {

struct StoredMessage {
  std::string path;
  std::string unique_id;
  int64_t size = 0;  ///< in bytes, as they go over the line
};

/// What a session sees: the messages as they were when it began. `gone` are the unique ids of those
/// deleted in earlier sessions.
std::vector<StoredMessage> ListMailbox(const std::vector<std::string>& folders,
                                       const std::set<std::string, std::less<>>& gone);

/// The message with CR LF line ends, as POP3 counts it; empty when the file is gone.
std::string ReadMessage(const std::string& path);

/// The reply's lines: a dot in front of a line is doubled, the last line ended, then the dot alone.
/// Of the body at most `body_lines`; -1 is all of it.
std::string AsReplyLines(std::string_view message, int64_t body_lines);

}  // namespace korvane::sample
