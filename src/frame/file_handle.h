// An open file as the platform has it: bytes at positions counted from 0, nothing gathered. Here
// the platforms meet; files.h is made of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace korvane {

class FileHandle {
 public:
  enum class How {
    kRead,
    kReadWrite,  ///< created when missing
    kNew,        ///< for writing; it must not exist
    kUnnamed,    ///< it must not exist, and at once no name leads to it: see OpenUnnamed
    kAppend,     ///< created when missing; each Append goes to the end as one piece
  };
  enum class Locked { kHeld, kTaken, kFailed };

  FileHandle() = default;
  FileHandle(FileHandle&& other) noexcept : handle_(std::exchange(other.handle_, kNone)) {}
  FileHandle& operator=(FileHandle&& other) noexcept {
    if (this != &other) {
      Close();
      handle_ = std::exchange(other.handle_, kNone);
    }
    return *this;
  }
  ~FileHandle() { Close(); }

  /// What is created is for the owner only. Not open where it failed; LastOpenFoundOne then tells
  /// whether kNew found a file in its way. Waits for nothing, whatever lies under the name.
  static FileHandle Open(const std::string& path, How how);
  static bool LastOpenFoundOne();
  /// A new file in this directory, to read and to write, that is gone when it is closed or its
  /// process ends, however that ends.
  static FileHandle OpenUnnamed(const std::string& directory);

  bool IsOpen() const { return handle_ != kNone; }
  bool Close();

  /// False for a folder, a pipe, a device.
  bool IsRegular() const;
  int64_t Length() const;  ///< -1 on failure
  bool WriteAll(const char* data, size_t size, int64_t position) const;
  bool Append(const char* data, size_t size) const;
  /// Fewer only at the end of the file; -1 on failure.
  int64_t ReadUpTo(char* buffer, size_t size, int64_t position) const;
  /// Lets the system copy bytes of another file to `position` of this one; how many it took. Fewer
  /// than asked for is no fault: not every system and every pair of files can do it.
  int64_t CopyInSystem(int64_t position, const FileHandle& from, int64_t from_position,
                       int64_t length) const;
  bool Resize(int64_t length) const;
  bool Sync() const;
  /// The system begins to put the bytes on the disk, where it has a way to say so; a Sync that
  /// comes later, of another handle too, then has less to wait for, and tells what failed.
  void BeginSync() const;

  /// Tries once for a lock that every other handle of the file meets, of this process too, until
  /// this one is closed or its process ends.
  Locked TryLock() const;

  /// Gives the file the rights of the one at `path`, and its owner where that is allowed.
  void TakeOverRights(const std::string& path) const;

 private:
  static constexpr std::intptr_t kNone = -1;  // of a descriptor and of a HANDLE alike
  explicit FileHandle(std::intptr_t handle) : handle_(handle) {}
  std::intptr_t handle_ = kNone;
};

/// Tells this process from every other one that runs.
uint32_t ProcessId();

}  // namespace korvane
