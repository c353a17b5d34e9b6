// Files on POSIX systems. A file that a crash must not lose is written under another name, synced
// and renamed; BinaryFile gathers small reads and writes and passes large ones through uncopied.
#include "frame/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>

namespace korvane {

namespace {

constexpr mode_t kOwnerOnly = 0600;
constexpr size_t kBuffer = 65'536;

int OpenRetrying(const char* path, int flags, mode_t mode = 0) {
  int fd;
  do {
    fd = ::open(path, flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

bool WriteAll(int fd, const char* data, size_t size, int64_t offset) {
  while (size > 0) {
    const ssize_t n = ::pwrite(fd, data, size, offset);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
    offset += n;
  }
  return true;
}

int64_t ReadUpTo(int fd, char* buffer, size_t size, int64_t offset) {
  size_t done = 0;
  while (done < size) {
    const ssize_t n = ::pread(fd, buffer + done, size - done, offset + static_cast<int64_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return -1;
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<int64_t>(done);
}

bool SyncDescriptor(int fd) {
  int result;
  do {
    result = ::fsync(fd);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// A name in the same directory that no other writer uses. It does not grow with the file's own
// name, which may already be as long as a name can be.
std::string TemporaryName(const std::string& path) {
  static std::atomic<unsigned> counter{0};
  return JoinPath(DirectoryOf(path), ".korvane_" + std::to_string(::getpid()) + "_" +
                                         std::to_string(counter.fetch_add(1)) + ".tmp");
}

// A replaced file keeps its rights, and its owner where we may say so: a settings file stays
// readable for whoever could read it.
void TakeOverRights(int fd, const std::string& path) {
  struct stat old {};
  if (::stat(path.c_str(), &old) != 0) return;
  if (::fchown(fd, old.st_uid, old.st_gid) == 0) {
    (void)::fchmod(fd, old.st_mode & 07777);
  } else {
    (void)::fchmod(fd, old.st_mode & 0700);
  }
}

}  // namespace

std::string JoinPath(std::string_view directory, std::string_view name) {
  std::string path(directory);
  path += '/';
  path += name;
  return path;
}

bool WriteWholeFile(const std::string& path, std::string_view data, bool sync) {
  std::string temporary;
  int fd = -1;
  for (int attempt = 0; fd < 0 && attempt < 100; ++attempt) {
    temporary = TemporaryName(path);
    fd = OpenRetrying(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL, kOwnerOnly);
    if (fd < 0 && errno != EEXIST) return false;
  }
  if (fd < 0) return false;
  TakeOverRights(fd, path);
  bool ok = WriteAll(fd, data.data(), data.size(), 0);
  if (ok && sync) ok = SyncDescriptor(fd);
  ok = ::close(fd) == 0 && ok;
  ok = ok && RenameFile(temporary, path);
  if (!ok) ::unlink(temporary.c_str());
  return ok;
}

bool ReadWholeFile(const std::string& path, std::string& data) {
  data.clear();
  BinaryFile file;
  if (!file.Open(path, BinaryFile::Mode::kRead)) return false;
  const int64_t length = file.Length();
  if (length < 0) return false;
  data.resize(static_cast<size_t>(length));
  if (file.Read(data.data(), data.size())) return true;
  data.clear();
  return false;
}

bool FileExists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

bool RemoveFile(const std::string& path) {
  return ::unlink(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR;
}

bool RenameFile(const std::string& from, const std::string& to) {
  return std::rename(from.c_str(), to.c_str()) == 0;
}

bool SyncFile(const std::string& path) {
  const int fd = OpenRetrying(path.c_str(), O_RDONLY);
  if (fd < 0) return false;
  const bool ok = SyncDescriptor(fd);
  ::close(fd);
  return ok;
}

bool SyncDirectory(const std::string& directory) {
  const int fd = OpenRetrying(directory.c_str(), O_RDONLY | O_DIRECTORY);
  if (fd < 0) return false;
  // Some network file systems sync no directories and say so; there is nothing more to be done.
  const bool ok = SyncDescriptor(fd) || errno == EINVAL;
  ::close(fd);
  return ok;
}

struct BinaryFile::State {
  int fd = -1;
  int64_t position = 0;  // counted from 0 here
  bool failed = false;
  std::string out;  // bytes not yet written, and where they belong
  int64_t out_at = 0;
  std::string in;  // bytes read ahead, and where they came from
  int64_t in_at = 0;

  ~State() { Close(); }

  void Close() {
    if (fd < 0) return;
    Flush();
    ::close(fd);
    fd = -1;
  }

  bool Flush() {
    if (!out.empty() && !failed && !WriteAll(fd, out.data(), out.size(), out_at)) failed = true;
    out.clear();
    return !failed;
  }
};

BinaryFile::BinaryFile() : state_(std::make_unique<State>()) {}
BinaryFile::~BinaryFile() = default;
BinaryFile::BinaryFile(BinaryFile&&) noexcept = default;
BinaryFile& BinaryFile::operator=(BinaryFile&&) noexcept = default;

bool BinaryFile::Open(const std::string& path, Mode mode) {
  state_ = std::make_unique<State>();
  const int flags = mode == Mode::kRead ? O_RDONLY : O_RDWR | O_CREAT;
  // O_NONBLOCK: a pipe under this name must not stop the caller. It means nothing for a file.
  const int fd = OpenRetrying(path.c_str(), flags | O_NONBLOCK, kOwnerOnly);
  if (fd < 0) return false;
  struct stat status {};
  if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(fd);
    return false;
  }
  state_->fd = fd;
  return true;
}

bool BinaryFile::IsOpen() const { return state_->fd >= 0; }

void BinaryFile::Close() { state_->Close(); }

int64_t BinaryFile::Length() const {
  struct stat status {};
  if (!IsOpen() || ::fstat(state_->fd, &status) != 0) return -1;
  int64_t length = status.st_size;
  if (!state_->out.empty()) {
    length = std::max(length, state_->out_at + static_cast<int64_t>(state_->out.size()));
  }
  return length;
}

int64_t BinaryFile::Position() const { return IsOpen() ? state_->position + 1 : -1; }

bool BinaryFile::Seek(int64_t position) {
  if (!IsOpen() || position < 1) return false;
  state_->position = position - 1;
  return true;
}

bool BinaryFile::Write(std::string_view bytes) {
  State& s = *state_;
  if (!IsOpen() || s.failed) return false;
  s.in.clear();
  if (!s.out.empty() && s.out_at + static_cast<int64_t>(s.out.size()) != s.position) s.Flush();
  if (s.out.size() + bytes.size() > kBuffer) s.Flush();
  if (s.failed) return false;
  if (bytes.size() > kBuffer) {
    if (!WriteAll(s.fd, bytes.data(), bytes.size(), s.position)) s.failed = true;
  } else {
    if (s.out.empty()) s.out_at = s.position;
    s.out += bytes;
  }
  s.position += static_cast<int64_t>(bytes.size());
  return !s.failed;
}

bool BinaryFile::Flush() { return IsOpen() && state_->Flush(); }

bool BinaryFile::Sync() { return Flush() && SyncDescriptor(state_->fd); }

bool BinaryFile::Truncate(int64_t length) {
  State& s = *state_;
  if (!IsOpen() || length < 0) return false;
  // What is gathered lies below `length` or is about to be cut off; in both cases the file is then
  // as if nothing had failed.
  if (!s.out.empty() && s.out_at < length) s.Flush();
  s.out.clear();
  s.in.clear();
  int result;
  do {
    result = ::ftruncate(s.fd, length);
  } while (result != 0 && errno == EINTR);
  s.failed = result != 0;
  s.position = std::min(s.position, length);
  return !s.failed;
}

bool BinaryFile::Read(char* buffer, size_t size) {
  return ReadSome(buffer, size) == static_cast<int64_t>(size);
}

int64_t BinaryFile::ReadSome(char* buffer, size_t size) {
  State& s = *state_;
  if (!Flush()) return -1;
  size_t done = 0;
  while (done < size) {
    if (s.position >= s.in_at && s.position < s.in_at + static_cast<int64_t>(s.in.size())) {
      const auto from = static_cast<size_t>(s.position - s.in_at);
      const size_t n = std::min(size - done, s.in.size() - from);
      std::copy_n(s.in.data() + from, n, buffer + done);
      done += n;
      s.position += static_cast<int64_t>(n);
      continue;
    }
    int64_t n;
    if (size - done >= kBuffer) {
      n = ReadUpTo(s.fd, buffer + done, size - done, s.position);
      if (n > 0) {
        done += static_cast<size_t>(n);
        s.position += n;
      }
    } else {
      s.in.resize(kBuffer);
      n = ReadUpTo(s.fd, s.in.data(), kBuffer, s.position);
      s.in.resize(n > 0 ? static_cast<size_t>(n) : 0);
      s.in_at = s.position;
    }
    if (n < 0) return -1;
    if (n == 0) break;
  }
  return static_cast<int64_t>(done);
}

struct UserLock::State {
  int fd = -1;
  ~State() {
    if (fd >= 0) ::close(fd);  // gives the lock up
  }
};

// A lock on an open file description: each UserLock has its own, so threads exclude each other as
// processes do, and a holder that dies gives it up. The lock file is never removed, because whoever
// waits for it would then hold a lock that nobody else sees.
UserLock::UserLock(const std::string& message_file) : state_(std::make_unique<State>()) {
  if (message_file.empty()) return;  // there is no such file to lock
  const int fd =
      OpenRetrying((message_file + ".lock").c_str(), O_RDWR | O_CREAT | O_NONBLOCK, kOwnerOnly);
  if (fd < 0) return;
  int result;
  do {
    result = ::flock(fd, LOCK_EX);
  } while (result != 0 && errno == EINTR);
  if (result == 0) {
    state_->fd = fd;
  } else {
    ::close(fd);
  }
}

UserLock::~UserLock() = default;

bool UserLock::Held() const { return state_->fd >= 0; }

FileLock::FileLock(const std::string& path)
    : descriptor_(OpenRetrying(path.c_str(), O_RDWR | O_CREAT | O_NONBLOCK, kOwnerOnly)) {
  if (descriptor_ < 0) return;
  int result;
  do {
    result = ::flock(descriptor_, LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  if (result == 0) {
    state_ = State::kHeld;
  } else if (errno == EWOULDBLOCK) {
    state_ = State::kTaken;
  }
}

FileLock::~FileLock() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

}  // namespace korvane
