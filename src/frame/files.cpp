// What is the same on every platform: a file that a crash must not lose is written under another
// name, synced and renamed; BinaryFile gathers small reads and writes and passes large ones through
// uncopied.
#include "frame/files.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>

#include "frame/file_handle.h"

namespace korvane {

namespace {

/// Writes are gathered up to this size; longer ones, and longer reads, pass by the buffers.
constexpr size_t kBuffer = 65'536;
/// How much is read ahead: first, and at most.
constexpr size_t kFirstReadAhead = 4'096;
constexpr size_t kLastReadAhead = 262'144;
/// Ranges are copied in blocks of this size; longer ones are left to the system where it can.
constexpr int64_t kCopyBlock = 262'144;

constexpr std::string_view kTemporaryStart = ".korvane_";
constexpr std::string_view kTemporaryEnd = ".tmp";

// A name in the same directory that no other writer uses. It does not grow with the file's own
// name, which may already be as long as a name can be.
std::string TemporaryName(const std::string& directory) {
  static std::atomic<unsigned> counter{0};
  std::string name(kTemporaryStart);
  name.append(std::to_string(ProcessId())).append("_");
  name.append(std::to_string(counter.fetch_add(1))).append(kTemporaryEnd);
  return JoinPath(directory, name);
}

/// A file of its own under a name that nobody else has; not open where none can be made.
FileHandle OpenTemporary(const std::string& directory, FileHandle::How how, std::string& path) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    path = TemporaryName(directory);
    FileHandle file = FileHandle::Open(path, how);
    if (file.IsOpen() || !FileHandle::LastOpenFoundOne()) return file;
  }
  return {};
}

}  // namespace

bool IsTemporaryName(std::string_view name) {
  return name.starts_with(kTemporaryStart) && name.ends_with(kTemporaryEnd);
}

FileHandle FileHandle::OpenUnnamed(const std::string& directory) {
  std::string path;
  return OpenTemporary(directory, How::kUnnamed, path);
}

bool WriteWholeFile(const std::string& path, std::string_view data, bool sync) {
  std::string temporary;
  FileHandle file = OpenTemporary(DirectoryOf(path), FileHandle::How::kNew, temporary);
  if (!file.IsOpen()) return false;
  file.TakeOverRights(path);
  bool ok = file.WriteAll(data.data(), data.size(), 0);
  if (ok && sync) ok = file.Sync();
  // Who syncs many files at the end waits for one after the other.
  if (ok && !sync) file.BeginSync();
  ok = file.Close() && ok;
  ok = ok && RenameFile(temporary, path);
  if (!ok) RemoveFile(temporary);
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

struct BinaryFile::State {
  FileHandle file;
  int64_t position = 0;  // counted from 0 here
  bool failed = false;
  std::string out;  // bytes not yet written, and where they belong
  int64_t out_at = 0;
  std::unique_ptr<char[]> in;  // bytes read ahead, how many, and where they came from
  size_t in_capacity = 0;
  size_t in_size = 0;
  int64_t in_at = 0;
  size_t ahead = 0;  // the size of the last reading ahead

  ~State() { Close(); }

  void Close() {
    if (!file.IsOpen()) return;
    Flush();
    file.Close();
    in_size = 0;
  }

  bool Flush() {
    if (!out.empty() && !failed && !file.WriteAll(out.data(), out.size(), out_at)) failed = true;
    out.clear();
    return !failed;
  }

  /// The bytes at `at` that were read ahead.
  std::string_view Buffered(int64_t at, size_t most) const {
    if (at < in_at || at >= in_at + static_cast<int64_t>(in_size)) return {};
    const auto from = static_cast<size_t>(at - in_at);
    return {in.get() + from, std::min(most, in_size - from)};
  }

  /// Reads ahead at the position; how many bytes, -1 on failure.
  int64_t ReadAhead() {
    const int64_t end = in_at + static_cast<int64_t>(in_size);
    const bool reads_on = ahead > 0 && position >= in_at && position <= end;
    ahead = reads_on ? std::min(2 * ahead, kLastReadAhead) : kFirstReadAhead;
    if (in_capacity < ahead) {
      in = std::make_unique_for_overwrite<char[]>(ahead);
      in_capacity = ahead;
    }
    const int64_t n = file.ReadUpTo(in.get(), ahead, position);
    in_size = n > 0 ? static_cast<size_t>(n) : 0;
    in_at = position;
    return n;
  }
};

BinaryFile::BinaryFile() : state_(std::make_unique<State>()) {}
BinaryFile::~BinaryFile() = default;
BinaryFile::BinaryFile(BinaryFile&&) noexcept = default;
BinaryFile& BinaryFile::operator=(BinaryFile&&) noexcept = default;

bool BinaryFile::Open(const std::string& path, Mode mode) {
  state_ = std::make_unique<State>();
  FileHandle file = FileHandle::Open(
      path, mode == Mode::kRead ? FileHandle::How::kRead : FileHandle::How::kReadWrite);
  if (!file.IsOpen() || !file.IsRegular()) return false;
  state_->file = std::move(file);
  return true;
}

bool BinaryFile::IsOpen() const { return state_->file.IsOpen(); }

void BinaryFile::Close() { state_->Close(); }

int64_t BinaryFile::Length() const {
  if (!IsOpen()) return -1;
  int64_t length = state_->file.Length();
  if (length >= 0 && !state_->out.empty()) {
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
  s.in_size = 0;
  if (!s.out.empty() && s.out_at + static_cast<int64_t>(s.out.size()) != s.position) s.Flush();
  if (s.out.size() + bytes.size() > kBuffer) s.Flush();
  if (s.failed) return false;
  if (bytes.size() > kBuffer) {
    if (!s.file.WriteAll(bytes.data(), bytes.size(), s.position)) s.failed = true;
  } else {
    if (s.out.empty()) s.out_at = s.position;
    s.out += bytes;
  }
  s.position += static_cast<int64_t>(bytes.size());
  return !s.failed;
}

bool BinaryFile::Flush() { return IsOpen() && state_->Flush(); }

bool BinaryFile::Sync() { return Flush() && state_->file.Sync(); }

bool BinaryFile::Truncate(int64_t length) {
  State& s = *state_;
  if (!IsOpen() || length < 0) return false;
  // What is gathered lies below `length` or is about to be cut off; in both cases the file is then
  // as if nothing had failed.
  if (!s.out.empty() && s.out_at < length) s.Flush();
  s.out.clear();
  s.in_size = 0;
  s.failed = !s.file.Resize(length);
  s.position = std::min(s.position, length);
  return !s.failed;
}

bool BinaryFile::Read(char* buffer, size_t size) {
  return ReadSome(buffer, size) == static_cast<int64_t>(size);
}

int64_t BinaryFile::ReadSome(char* buffer, size_t size) {
  State& s = *state_;
  // Fields of a few bytes are read by the million; nearly all of them were read ahead.
  if (size > 0 && s.out.empty() && s.position >= s.in_at &&
      s.position + static_cast<int64_t>(size) <= s.in_at + static_cast<int64_t>(s.in_size)) {
    std::memcpy(buffer, s.in.get() + (s.position - s.in_at), size);
    s.position += static_cast<int64_t>(size);
    return static_cast<int64_t>(size);
  }
  if (!Flush()) return -1;
  size_t done = 0;
  while (done < size) {
    if (const std::string_view there = s.Buffered(s.position, size - done); !there.empty()) {
      there.copy(buffer + done, there.size());
      done += there.size();
      s.position += static_cast<int64_t>(there.size());
      continue;
    }
    int64_t n;
    if (size - done >= kBuffer) {
      n = s.file.ReadUpTo(buffer + done, size - done, s.position);
      if (n > 0) {
        done += static_cast<size_t>(n);
        s.position += n;
      }
    } else {
      n = s.ReadAhead();
    }
    if (n < 0) return -1;
    if (n == 0) break;
  }
  return static_cast<int64_t>(done);
}

bool BinaryFile::CopyFrom(BinaryFile& source, int64_t position, int64_t length) {
  State& s = *state_;
  State& from = *source.state_;
  if (!IsOpen() || !source.Flush() || position < 1 || length < 0) return false;
  --position;
  std::unique_ptr<char[]> block;
  while (length > 0) {
    const auto size = static_cast<size_t>(std::min(length, kCopyBlock));
    std::string_view bytes = from.Buffered(position, size);
    if (bytes.empty() && length > kCopyBlock) {
      if (!Flush()) return false;
      const int64_t n = s.file.CopyInSystem(s.position, from.file, position, length);
      s.in_size = 0;
      s.position += n;
      position += n;
      length -= n;
      if (n > 0) continue;
    }
    if (bytes.empty()) {
      if (!block) block = std::make_unique_for_overwrite<char[]>(size);
      const int64_t n = from.file.ReadUpTo(block.get(), size, position);
      if (n <= 0) return false;
      bytes = {block.get(), static_cast<size_t>(n)};
    }
    if (!Write(bytes)) return false;
    position += static_cast<int64_t>(bytes.size());
    length -= static_cast<int64_t>(bytes.size());
  }
  return true;
}

// Each UserLock has a handle of its own, so threads exclude each other as processes do, and a
// holder that dies gives it up. The lock file is never removed, because whoever waits for it would
// then hold a lock that nobody else sees.
//
// No system waits for a lock with an end in sight, so it is asked for again and again, at first at
// once: what is done under it mostly takes a few milliseconds.
UserLock::UserLock(const std::string& message_file, std::chrono::milliseconds patience)
    : file_(std::make_unique<FileHandle>()) {
  if (message_file.empty()) return;  // there is no such file to lock
  *file_ = FileHandle::Open(message_file + ".lock", FileHandle::How::kReadWrite);
  if (!file_->IsOpen()) return;
  constexpr std::chrono::microseconds kLongestPause{20'000};
  std::chrono::microseconds pause{250};
  const auto end = std::chrono::steady_clock::now() + patience;
  FileHandle::Locked locked;
  while ((locked = file_->TryLock()) == FileHandle::Locked::kTaken) {
    if (std::chrono::steady_clock::now() >= end) break;
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, kLongestPause);
  }
  held_ = locked == FileHandle::Locked::kHeld;
  refused_ = !held_;
  if (held_) RefreshKnowledge(message_file);
}

UserLock::~UserLock() = default;

FileLock::FileLock(const std::string& path)
    : file_(std::make_unique<FileHandle>(FileHandle::Open(path, FileHandle::How::kReadWrite))) {
  if (!file_->IsOpen()) return;
  switch (file_->TryLock()) {
    case FileHandle::Locked::kHeld:
      state_ = State::kHeld;
      break;
    case FileHandle::Locked::kTaken:
      state_ = State::kTaken;
      break;
    case FileHandle::Locked::kFailed:
      break;
  }
}

FileLock::~FileLock() = default;

}  // namespace korvane
