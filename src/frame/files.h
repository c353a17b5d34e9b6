// Files as the store needs them. Paths are the platform's; folders and files are made for the owner
// only. Every function reports failure by its result and throws nothing.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace korvane {

class FileHandle;

/// `directory`, the platform's separator and `name`.
std::string JoinPath(std::string_view directory, std::string_view name);
/// The directory of a path, "." where it names none.
std::string DirectoryOf(const std::string& path);

/// Replaces the file at `path` by `data`, through a temporary name and a rename; a file that exists
/// keeps its rights. With `sync` the bytes are on the disk when it returns (the name:
/// SyncDirectory).
bool WriteWholeFile(const std::string& path, std::string_view data, bool sync = false);

/// True of a name under which WriteWholeFile writes; a process that dies meanwhile leaves it
/// behind.
bool IsTemporaryName(std::string_view name);

/// Reads a whole file. `data` is empty when it returns false.
bool ReadWholeFile(const std::string& path, std::string& data);

bool FileExists(const std::string& path);
/// True when the file is gone afterwards.
bool RemoveFile(const std::string& path);
bool RenameFile(const std::string& from, const std::string& to);
/// Puts the bytes of a file on the disk.
bool SyncFile(const std::string& path);
/// Puts the names in a directory on the disk, where the platform has a way to say so.
bool SyncDirectory(const std::string& directory);
/// Asks a file server anew about a file and the names in its folder: another machine may have
/// changed both. A client otherwise answers from memory for seconds.
void RefreshKnowledge(const std::string& path);

/// A binary file with a position that counts from 1.
class BinaryFile {
 public:
  enum class Mode {
    kRead,
    kReadWrite,  ///< created when missing
  };
  BinaryFile();
  ~BinaryFile();
  BinaryFile(BinaryFile&&) noexcept;
  BinaryFile& operator=(BinaryFile&&) noexcept;

  bool Open(const std::string& path, Mode mode);
  bool IsOpen() const;
  void Close();

  int64_t Length() const;  ///< in bytes; -1 on failure
  int64_t Position() const;
  bool Seek(int64_t position);  ///< 1-based; one past the end is the place to append
  /// Writes are gathered in a buffer; Flush sends it. False once anything failed.
  bool Write(std::string_view bytes);
  /// Writes `length` bytes of `source` from `position` (1-based): a long range without taking it
  /// into this process where the system can, else in blocks of 262,144 bytes. The source's own
  /// position is left alone. False when it holds fewer bytes.
  bool CopyFrom(BinaryFile& source, int64_t position, int64_t length);
  bool Flush();
  /// Flush, then the bytes are on the disk.
  bool Sync();
  /// Cuts the file to `length` bytes and drops what was gathered beyond them; a failed write is
  /// then forgotten. The position moves to the new end when it was beyond it.
  bool Truncate(int64_t length);
  /// Reads exactly `size` bytes to `buffer`; false when there are fewer. Reading on from where the
  /// last reading ended reads ahead, ever more; after a jump it begins small again.
  bool Read(char* buffer, size_t size);
  /// Reads up to `size` bytes; how many, -1 on failure.
  int64_t ReadSome(char* buffer, size_t size);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// How long anybody waits for a user's lock. What is done under it ends within seconds, a
/// compaction of two gigabytes on a slow disk within about a minute; a holder that hangs must not
/// stop the pages of its user for ever.
inline constexpr std::chrono::milliseconds kLockPatience{60'000};

/// Advisory lock over one user's message file: held from construction to destruction, against other
/// threads, other processes and, where the file system carries locks between them, other machines.
/// A holder that dies gives it up. Take it before any transaction, and never across a POP3 command.
class UserLock {
 public:
  /// Waits for the lock on the user whose message file is `message_file`. What others did in the
  /// file's folder under the lock is seen from then on.
  explicit UserLock(const std::string& message_file,
                    std::chrono::milliseconds patience = kLockPatience);
  ~UserLock();
  UserLock(const UserLock&) = delete;
  UserLock& operator=(const UserLock&) = delete;
  /// False when the lock file could not be made, or the lock was refused.
  bool Held() const { return held_; }
  /// True when somebody else kept it all the while, or the file system has no locks.
  bool Refused() const { return refused_; }

 private:
  bool held_ = false;
  bool refused_ = false;
  std::unique_ptr<FileHandle> file_;
};

/// Advisory lock over a file of its own that nobody waits for. A holder that dies gives it up.
class FileLock {
 public:
  enum class State {
    kHeld,
    kTaken,   ///< somebody else holds it
    kFailed,  ///< the lock file could not be made
  };
  explicit FileLock(const std::string& path);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  State state() const { return state_; }

 private:
  State state_ = State::kFailed;
  std::unique_ptr<FileHandle> file_;
};

}  // namespace korvane
