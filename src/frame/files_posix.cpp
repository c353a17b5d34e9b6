// Files on POSIX systems.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "frame/file_handle.h"
#include "frame/files.h"

namespace korvane {

namespace {

constexpr mode_t kOwnerOnly = 0600;

int OpenRetrying(const char* path, int flags) {
  int fd;
  do {
    // O_NONBLOCK: a pipe under this name must not stop the caller. It means nothing for a file.
    fd = ::open(path, flags | O_CLOEXEC | O_NONBLOCK, kOwnerOnly);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

int Flags(FileHandle::How how) {
  switch (how) {
    case FileHandle::How::kRead:
      return O_RDONLY;
    case FileHandle::How::kReadWrite:
      return O_RDWR | O_CREAT;
    case FileHandle::How::kNew:
      return O_WRONLY | O_CREAT | O_EXCL;
    case FileHandle::How::kUnnamed:
      return O_RDWR | O_CREAT | O_EXCL;
    case FileHandle::How::kAppend:
      break;
  }
  return O_WRONLY | O_CREAT | O_APPEND;
}

int Descriptor(std::intptr_t handle) { return static_cast<int>(handle); }

}  // namespace

FileHandle FileHandle::Open(const std::string& path, How how) {
#ifdef O_TMPFILE
  if (how == How::kUnnamed) {
    FileHandle file(OpenRetrying(DirectoryOf(path).c_str(), O_RDWR | O_TMPFILE));
    if (file.IsOpen()) return file;  // not every file system can
  }
#endif
  FileHandle file(OpenRetrying(path.c_str(), Flags(how)));
  if (how == How::kUnnamed && file.IsOpen() && ::unlink(path.c_str()) != 0) file.Close();
  return file;
}

bool FileHandle::LastOpenFoundOne() { return errno == EEXIST; }

bool FileHandle::Close() {
  return !IsOpen() || ::close(Descriptor(std::exchange(handle_, kNone))) == 0;
}

bool FileHandle::IsRegular() const {
  struct stat status {};
  return ::fstat(Descriptor(handle_), &status) == 0 && S_ISREG(status.st_mode);
}

int64_t FileHandle::Length() const {
  struct stat status {};
  return ::fstat(Descriptor(handle_), &status) == 0 ? status.st_size : -1;
}

bool FileHandle::WriteAll(const char* data, size_t size, int64_t position) const {
  while (size > 0) {
    const ssize_t n = ::pwrite(Descriptor(handle_), data, size, position);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
    position += n;
  }
  return true;
}

bool FileHandle::Append(const char* data, size_t size) const {
  return ::write(Descriptor(handle_), data, size) == static_cast<ssize_t>(size);
}

int64_t FileHandle::ReadUpTo(char* buffer, size_t size, int64_t position) const {
  size_t done = 0;
  while (done < size) {
    const ssize_t n = ::pread(Descriptor(handle_), buffer + done, size - done,
                              position + static_cast<int64_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return -1;
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<int64_t>(done);
}

int64_t FileHandle::CopyInSystem(int64_t position, const FileHandle& from, int64_t from_position,
                                 int64_t length) const {
  int64_t done = 0;
#ifdef __linux__
  constexpr int64_t kStep = int64_t{64} << 20;  // a signal never waits long
  while (done < length) {
    off64_t in = from_position + done;
    off64_t out = position + done;
    const ssize_t n = ::copy_file_range(Descriptor(from.handle_), &in, Descriptor(handle_), &out,
                                        static_cast<size_t>(std::min(length - done, kStep)), 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += n;
  }
#else
  (void)position, (void)from, (void)from_position, (void)length;
#endif
  return done;
}

bool FileHandle::Resize(int64_t length) const {
  int result;
  do {
    result = ::ftruncate(Descriptor(handle_), length);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

bool FileHandle::Sync() const {
  int result;
  do {
    result = ::fsync(Descriptor(handle_));
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

void FileHandle::BeginSync() const {
#ifdef __linux__
  (void)::sync_file_range(Descriptor(handle_), 0, 0, SYNC_FILE_RANGE_WRITE);
#endif
}

// A record lock that belongs to the handle: unlike one of fcntl's older kind it keeps threads apart
// too, and does not go with another handle's end; unlike one of flock's it is the kind that a file
// server gives its clients, so that a process on the server itself meets theirs. A file system
// without such locks may still have the other kind.
FileHandle::Locked FileHandle::TryLock() const {
#ifdef F_OFD_SETLK
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  if (::fcntl(Descriptor(handle_), F_OFD_SETLK, &whole) == 0) return Locked::kHeld;
  if (errno == EAGAIN || errno == EACCES) return Locked::kTaken;
  if (errno != EINVAL && errno != EOPNOTSUPP && errno != ENOSYS) return Locked::kFailed;
#endif
  if (::flock(Descriptor(handle_), LOCK_EX | LOCK_NB) == 0) return Locked::kHeld;
  return errno == EWOULDBLOCK ? Locked::kTaken : Locked::kFailed;
}

// A settings file stays readable for whoever could read it.
void FileHandle::TakeOverRights(const std::string& path) const {
  struct stat old {};
  if (::stat(path.c_str(), &old) != 0) return;
  if (::fchown(Descriptor(handle_), old.st_uid, old.st_gid) == 0) {
    (void)::fchmod(Descriptor(handle_), old.st_mode & 07777);
  } else {
    (void)::fchmod(Descriptor(handle_), old.st_mode & 0700);
  }
}

uint32_t ProcessId() { return static_cast<uint32_t>(::getpid()); }

std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string JoinPath(std::string_view directory, std::string_view name) {
  std::string path(directory);
  path += '/';
  path += name;
  return path;
}

// The kernel's client for NFS asks for what changed in a directory when that is opened. One behind
// FUSE asks for a name when it is to be made and must not be there, which fails; should the name
// be gone by then, what was made for it is an empty file.
void RefreshKnowledge(const std::string& path) {
  const int directory = OpenRetrying(DirectoryOf(path).c_str(), O_RDONLY | O_DIRECTORY);
  if (directory >= 0) ::close(directory);
  if (::access(path.c_str(), F_OK) == 0) {
    const int made = OpenRetrying(path.c_str(), O_WRONLY | O_CREAT | O_EXCL);
    if (made >= 0) {
      ::close(made);
      ::unlink(path.c_str());
    }
  }
#ifdef AT_STATX_FORCE_SYNC
  struct statx status {};
  (void)::statx(AT_FDCWD, path.c_str(), AT_STATX_FORCE_SYNC, STATX_SIZE, &status);
#endif
}

bool FileExists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

bool RemoveFile(const std::string& path) {
  return ::unlink(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR;
}

bool RenameFile(const std::string& from, const std::string& to) {
  return std::rename(from.c_str(), to.c_str()) == 0;
}

bool SyncFile(const std::string& path) {
  const FileHandle file = FileHandle::Open(path, FileHandle::How::kRead);
  return file.IsOpen() && file.Sync();
}

bool SyncDirectory(const std::string& directory) {
  const int fd = OpenRetrying(directory.c_str(), O_RDONLY | O_DIRECTORY);
  if (fd < 0) return false;
  int result;
  do {
    result = ::fsync(fd);
  } while (result != 0 && errno == EINTR);
  // Some network file systems sync no directories and say so; there is nothing more to be done.
  const bool ok = result == 0 || errno == EINVAL;
  ::close(fd);
  return ok;
}

}  // namespace korvane
