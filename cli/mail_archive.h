// Messages outside the store: an mbox file, a folder of .eml files, or a Maildir.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "saved_file.h"

namespace korvane::cli {

enum class ArchiveFormat { kMbox, kEml, kMaildir };

struct ArchivedMessage {
  std::string text;  ///< its lines end with CR LF
  bool read = false;
};

/// Where messages are written to; what is there already is not touched. Throws Failure.
class ArchiveWriter {
 public:
  virtual ~ArchiveWriter() = default;
  /// `sender` and `date` (normalised, GMT) are for the line between the messages of an mbox.
  virtual void Begin(int32_t id, const std::string& sender, const std::string& date, bool read) = 0;
  /// The text of the message, in pieces; its lines end with CR LF.
  virtual void Write(std::string_view piece) = 0;
  virtual void End() = 0;
  /// Everything is written.
  virtual void Close() = 0;
};
std::unique_ptr<ArchiveWriter> NewArchive(ArchiveFormat format, const std::string& path);

/// Reads the messages of `path` one by one; the format is seen from what lies there. `done` and
/// `total` count bytes of an mbox, else files. Throws Failure when it cannot be read or is no
/// archive.
using TakeMessage = std::function<void(ArchivedMessage message, int64_t done, int64_t total)>;
void ReadArchive(const std::string& path, const TakeMessage& take);

/// As a server would send it: with transport dots.
std::string WithTransportDots(std::string_view text);

}  // namespace korvane::cli
