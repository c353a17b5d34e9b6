// The messages that a selection took and that wait to be stored. The newest comes first from the
// server and the oldest is stored first, so this is a stack: what was added last is taken first.
//
// The texts of the first few MiB wait in memory, all others in a file beside the message file that
// no name leads to: a mailbox of any size costs no more memory, and nothing is left behind however
// the process ends. Nothing is lost with it: until QUIT the messages are on the server.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

class FileHandle;
class MailMessage;
class MailUser;

/// A message as the server gave it.
struct ServerMessage {
  int32_t number = 0;
  int32_t size = 0;  ///< as the server counts it
  std::string uidl;
  std::string text;  ///< whole, or the header alone; lines end with CR LF
};

class NewMessages {
 public:
  /// How many bytes wait in memory.
  static constexpr int64_t kInMemory = int64_t{8} << 20;

  /// `whole` tells what the texts are; `separator` is for whole messages. The file is made in
  /// `folder` when it is needed.
  NewMessages(std::shared_ptr<MailUser> account, bool whole, std::string_view separator,
              std::string folder, int64_t in_memory = kInMemory);
  ~NewMessages();
  NewMessages(const NewMessages&) = delete;
  NewMessages& operator=(const NewMessages&) = delete;

  /// Adds one that is older than all before it. False when it found no room on the disk; what was
  /// added before it still waits.
  bool Add(ServerMessage message);
  bool Whole() const { return whole_; }
  /// Those that wait.
  int32_t Count() const { return count_; }
  /// The bytes of the oldest one's text; only where there is one. -1 when it cannot be read.
  int64_t OldestBytes();
  /// Takes the oldest one, parsed; only where there is one. Nothing when it cannot be read: those
  /// newer than it can then not be reached either.
  std::shared_ptr<MailMessage> TakeOldest();

 private:
  /// What stands behind a text and its unique id in the file.
  struct Trailer {
    int64_t text_bytes;
    int64_t uidl_bytes;
    int32_t number;
    int32_t size;
  };

  bool Write(const ServerMessage& message);
  bool ReadTrailer();
  bool Read(ServerMessage& message);

  std::shared_ptr<MailUser> account_;
  bool whole_;
  std::string separator_;
  std::string folder_;
  int64_t in_memory_;
  int32_t count_ = 0;

  std::vector<ServerMessage> first_;  ///< the newest, in memory
  int64_t first_bytes_ = 0;
  std::unique_ptr<FileHandle> file_;  ///< once there is one
  int64_t end_ = 0;                   ///< of what waits in the file
  int64_t length_ = 0;                ///< of the file
  Trailer last_{};                    ///< of the last message in the file
  bool last_read_ = false;
};

}  // namespace korvane
