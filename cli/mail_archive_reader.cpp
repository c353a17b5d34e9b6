// Reading archives. A line "From " begins a message of an mbox only at its start and behind an
// empty line: what other programs wrote may hold such lines unquoted.
#include <algorithm>
#include <filesystem>
#include <vector>

#include "cli/failure.h"
#include "cli/mail_archive.h"
#include "frame/files.h"

namespace korvane::cli {
namespace {

namespace fs = std::filesystem;

constexpr size_t kBlock = 1 << 18;
/// No mail is as large; what is larger is no mail, and must not fill the memory.
constexpr size_t kLargestMessage = 1 << 29;

std::string WithCrLf(std::string_view text) {
  std::string lines;
  lines.reserve(text.size() + text.size() / 32);
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) lines += '\r';
    lines += text[i];
  }
  return lines;
}

[[noreturn]] void CannotRead(const std::string& path) {
  throw Failure(Exit::kFiles, path + ": cannot be read");
}

/// The lines of a file, one after the other.
class Lines {
 public:
  explicit Lines(const std::string& path) : path_(path) {
    if (!file_.Open(path, BinaryFile::Mode::kRead)) CannotRead(path);
  }
  int64_t Length() const { return file_.Length(); }
  int64_t Done() const { return done_; }

  /// With its line end; false at the end of the file.
  bool Next(std::string& line) {
    line.clear();
    for (;;) {
      const size_t end = buffer_.find('\n', from_);
      if (end != std::string::npos) {
        Move(line, end + 1);
        return true;
      }
      Move(line, buffer_.size());
      if (line.size() > kLargestMessage) {
        throw Failure(Exit::kFiles, path_ + ": a line of more than 512 MB; this is no mail");
      }
      buffer_.resize(kBlock);
      from_ = 0;
      const int64_t size = file_.ReadSome(buffer_.data(), buffer_.size());
      if (size < 0) CannotRead(path_);
      buffer_.resize(static_cast<size_t>(size));
      if (size == 0) return !line.empty();
    }
  }

 private:
  void Move(std::string& line, size_t end) {
    line.append(buffer_, from_, end - from_);
    done_ += static_cast<int64_t>(end - from_);
    from_ = end;
  }

  std::string path_;
  BinaryFile file_;
  std::string buffer_;
  size_t from_ = 0;
  int64_t done_ = 0;
};

bool IsEmptyLine(std::string_view line) { return line == "\n" || line == "\r\n"; }

// The field in which an mbox keeps what was read; it is no part of the message.
bool TakeStatus(std::string_view line, bool& read) {
  if (!line.starts_with("Status: ")) return false;
  read = line.find('R') != std::string_view::npos;
  return true;
}

void ReadMbox(const std::string& path, const TakeMessage& take) {
  Lines lines(path);
  const int64_t total = lines.Length();
  std::string line;
  std::string text;
  bool read = false;
  bool open = false;
  bool in_header = false;
  bool behind_empty = true;
  const auto finish = [&] {
    if (!open) return;
    // The empty line in front of the next message is not part of this one.
    if (text.ends_with("\r\n")) {
      text.resize(text.size() - 2);
    } else if (text.ends_with('\n')) {
      text.pop_back();
    }
    take({WithCrLf(text), read}, lines.Done(), total);
    text.clear();
    read = false;
  };
  while (lines.Next(line)) {
    if (behind_empty && line.starts_with("From ")) {
      finish();
      open = true;
      in_header = true;
      behind_empty = false;
      continue;
    }
    if (!open) {
      if (IsEmptyLine(line)) continue;
      throw Failure(Exit::kFiles, path + ": no mbox: it does not begin with a line \"From \"");
    }
    behind_empty = IsEmptyLine(line);
    if (behind_empty) in_header = false;
    if (in_header && TakeStatus(line, read)) continue;
    const size_t from = line.find_first_not_of('>');
    const bool quoted = from > 0 && from != std::string::npos &&
                        std::string_view(line).substr(from).starts_with("From ");
    text.append(line, quoted ? 1 : 0);
    if (text.size() > kLargestMessage) {
      throw Failure(Exit::kFiles, path + ": a message of more than 512 MB; this is no mail");
    }
  }
  if (open && !behind_empty) text += '\n';
  finish();
}

std::string ReadMessageFile(const std::string& path) {
  std::string text;
  std::error_code error;
  if (fs::file_size(path, error) > kLargestMessage && !error) {
    throw Failure(Exit::kFiles, path + ": more than 512 MB; this is no mail");
  }
  if (!ReadWholeFile(path, text)) CannotRead(path);
  return WithCrLf(text);
}

void ReadFiles(std::vector<fs::path> files, const TakeMessage& take) {
  std::sort(files.begin(), files.end());
  int64_t done = 0;
  for (const fs::path& file : files) {
    const std::string name = file.filename().string();
    const size_t flags = name.rfind(":2,");
    const bool read = flags != std::string::npos && name.find('S', flags) != std::string::npos;
    take({ReadMessageFile(file.string()), read}, ++done, static_cast<int64_t>(files.size()));
  }
}

std::vector<fs::path> FilesIn(const fs::path& folder, const std::string& extension) {
  std::vector<fs::path> files;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with('.') || !entry.is_regular_file()) continue;
    if (extension.empty() || entry.path().extension() == extension) files.push_back(entry.path());
  }
  if (error) throw Failure(Exit::kFiles, folder.string() + ": " + error.message());
  return files;
}

bool IsMbox(const std::string& path) {
  BinaryFile file;
  if (!file.Open(path, BinaryFile::Mode::kRead)) CannotRead(path);
  char begin[5] = {};
  return file.Length() == 0 ||
         (file.Read(begin, sizeof begin) && std::string_view(begin, sizeof begin) == "From ");
}

}  // namespace

void ReadArchive(const std::string& path, const TakeMessage& take) {
  const fs::path place(path);
  std::error_code error;
  if (fs::is_directory(place / "cur", error) || fs::is_directory(place / "new", error)) {
    std::vector<fs::path> files;
    for (const char* leaf : {"cur", "new"}) {
      if (!fs::is_directory(place / leaf)) continue;
      const auto more = FilesIn(place / leaf, "");
      files.insert(files.end(), more.begin(), more.end());
    }
    ReadFiles(std::move(files), take);
  } else if (fs::is_directory(place, error)) {
    auto files = FilesIn(place, ".eml");
    if (files.empty()) {
      throw Failure(Exit::kNotFound, path + ": neither a Maildir nor a folder of .eml files");
    }
    ReadFiles(std::move(files), take);
  } else if (!fs::exists(place, error)) {
    throw Failure(Exit::kNotFound, path + ": there is no such file or folder");
  } else if (place.extension() != ".eml" || IsMbox(path)) {
    ReadMbox(path, take);
  } else {
    take({ReadMessageFile(path), false}, 1, 1);
  }
}

std::string WithTransportDots(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 16);
  size_t from = 0;
  for (size_t at = 0; at < text.size();) {
    if (text[at] == '.') {
      out += text.substr(from, at - from);
      out += '.';
      from = at;
    }
    const size_t lf = text.find('\n', at);
    at = lf == std::string_view::npos ? text.size() : lf + 1;
  }
  out += text.substr(from);
  return out;
}

}  // namespace korvane::cli
