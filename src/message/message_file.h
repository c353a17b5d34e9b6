// The user's message file: its name, the lock over it, and the length of a record in it. The record
// layout is docs/message_file.md.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "../facade/mail_user.h"
#include "../frame/files.h"

namespace korvane {

/// PathMessages, separator, user id, "_Messaggi.dat". Empty when PathMessages is: nothing can then
/// be opened, locked or made.
std::string MessageFilePath(const std::string& path_messages, int32_t user_id);
std::string MessageFilePath(const MailUser& account);

/// Names of the two further files of a compaction, beside the message file.
std::string CompactedFilePath(const std::string& path_messages, int32_t user_id);
std::string BackupFilePath(const std::string& path_messages, int32_t user_id);

/// The version that new records carry.
inline constexpr int32_t kRecordVersion = 3;

/// The last position that a row can point at.
inline constexpr int64_t kLastPosition = 2'147'483'647;

/// What a record says about itself without being read whole.
struct RecordOutline {
  int64_t length = 0;
  int32_t size = 0;  ///< the message's Size
};

/// Walks the record at `position` (from 1) without taking its texts into memory. Nothing when there
/// is no whole, well-formed record there. Who walks many records of a file says how long it is.
std::optional<RecordOutline> OutlineRecord(BinaryFile& file, int64_t position, int64_t file_length);
std::optional<RecordOutline> OutlineRecord(BinaryFile& file, int64_t position);

/// Takes back a stored record: cuts the message file to the bytes before `position` and removes the
/// attachment files that were written for it.
void UndoStoredRecord(BinaryFile& file, int64_t position, std::vector<std::string>& written);

/// Finishes or undoes a compaction of this user that was interrupted, by looking which of the two
/// files the rows point into; false when nothing had to be done. The user's lock must be held.
/// Throws DatabaseError, and std::runtime_error when a file cannot be renamed.
bool RecoverMessageFile(Connection& connection, const std::string& path_messages, int32_t user_id);

/// The user's lock was refused: nothing may be read or written without it.
struct MessageFileBusy : std::runtime_error {
  explicit MessageFileBusy(const std::string& message_file)
      : std::runtime_error("no lock on " + message_file +
                           ": somebody else kept it, or its file system has no locks") {}
};

/// The user's lock, and a message file that no interrupted compaction has left half way: what every
/// operation takes before it reads the rows that point into the file.
class MessageFileLock {
 public:
  /// Throws MessageFileBusy, and what RecoverMessageFile throws.
  MessageFileLock(Connection& connection, const std::string& path_messages, int32_t user_id,
                  std::chrono::milliseconds patience = kLockPatience)
      : lock_(MessageFilePath(path_messages, user_id), patience) {
    if (lock_.Refused()) throw MessageFileBusy(MessageFilePath(path_messages, user_id));
    if (lock_.Held()) RecoverMessageFile(connection, path_messages, user_id);
  }
  MessageFileLock(Connection& connection, const MailUser& account)
      : MessageFileLock(connection, account.PathMessages(), account.UserId()) {}
  bool Held() const { return lock_.Held(); }

 private:
  UserLock lock_;
};

}  // namespace korvane
