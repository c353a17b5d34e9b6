#include "cli/saved_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "cli/failure.h"
#include "cli/terminal_text.h"
#include "frame/files.h"

namespace korvane::cli {
namespace {

constexpr size_t kLongestName = 200;
constexpr int kMostNames = 10'000;
constexpr size_t kBlock = 1 << 18;

std::string Reason() { return std::strerror(errno); }

}  // namespace

std::string SafeFileName(std::string_view name) {
  std::string safe;
  const std::string printable = Printable(name);
  for (std::string_view text = printable; !text.empty();) {
    const Character character = TakeCharacter(text);
    const bool refused = character.code == '/' || character.code == '\\' || character.code == ':';
    if (safe.size() + character.bytes.size() > kLongestName) break;
    safe += refused ? std::string_view("_") : character.bytes;
  }
  while (safe.ends_with(' ') || safe.ends_with('.')) safe.pop_back();
  if (safe.starts_with('.') || safe.starts_with('-')) safe.front() = '_';
  return safe.empty() ? "attachment" : safe;
}

NewFile::NewFile(const std::string& folder, const std::string& name) {
  const size_t dot = name.rfind('.');
  const std::string stem = name.substr(0, dot);
  const std::string extension = dot == std::string::npos ? "" : name.substr(dot);
  for (int number = 1; number < kMostNames; ++number) {
    std::string tried = stem;
    if (number > 1) tried.append(" (").append(std::to_string(number)).append(")");
    path_ = JoinPath(folder, tried.append(extension));
    descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (descriptor_ >= 0) return;
    if (errno != EEXIST) break;
  }
  throw Failure(Exit::kFiles, path_ + ": " + Reason());
}

NewFile::NewFile(const std::string& path) : path_(path) {
  descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (descriptor_ < 0) Fail();
}

NewFile::~NewFile() {
  if (descriptor_ < 0) return;
  ::close(descriptor_);
  ::unlink(path_.c_str());
}

void NewFile::Fail() {
  const std::string reason = Reason();
  throw Failure(Exit::kFiles, path_ + ": " + reason);
}

void NewFile::Write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t done = ::write(descriptor_, bytes.data(), bytes.size());
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) Fail();
    bytes.remove_prefix(static_cast<size_t>(done));
  }
}

void NewFile::Close() {
  if (::fsync(descriptor_) != 0 && errno != EINVAL) Fail();
  if (::close(descriptor_) != 0) {
    descriptor_ = -1;
    Fail();
  }
  descriptor_ = -1;
}

void CopyInto(NewFile& to, const std::string& from) {
  BinaryFile file;
  if (from.empty() || !file.Open(from, BinaryFile::Mode::kRead)) {
    throw Failure(Exit::kFiles, from + ": cannot be read");
  }
  std::string block(kBlock, '\0');
  for (;;) {
    const int64_t size = file.ReadSome(block.data(), block.size());
    if (size < 0) throw Failure(Exit::kFiles, from + ": cannot be read");
    if (size == 0) return;
    to.Write(std::string_view(block).substr(0, static_cast<size_t>(size)));
  }
}

void NeedFolder(const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (std::filesystem::is_directory(folder)) return;
  const bool there = FileExists(folder);
  throw Failure(Exit::kFiles, folder + ": " + (there ? "is no folder" : error.message()));
}

}  // namespace korvane::cli
