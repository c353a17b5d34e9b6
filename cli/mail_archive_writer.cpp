// Writing archives. An mbox is quoted as "mboxrd": every line that begins with "From ", or with
// that behind any number of ">", gets one more ">", which reading takes off again.
#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "cli/failure.h"
#include "cli/mail_archive.h"
#include "frame/files.h"

namespace korvane::cli {
namespace {

constexpr size_t kBuffer = 1 << 18;

/// Turns CR LF into LF, line by line.
class UnixLines {
 public:
  explicit UnixLines(bool quote_from) : quote_from_(quote_from) {}

  /// Appends the lines that are whole to `out`.
  void Take(std::string_view piece, std::string& out) {
    while (!piece.empty()) {
      const size_t end = piece.find('\n');
      if (end == std::string_view::npos) {
        line_ += piece;
        return;
      }
      if (line_.empty()) {
        Line(piece.substr(0, end), out);
      } else {
        line_ += piece.substr(0, end);
        Line(line_, out);
        line_.clear();
      }
      piece.remove_prefix(end + 1);
    }
  }
  void End(std::string& out) {
    if (!line_.empty()) Line(line_, out);
    line_.clear();
  }

 private:
  void Line(std::string_view line, std::string& out) const {
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (quote_from_) {
      const size_t text = line.find_first_not_of('>');
      if (text != std::string_view::npos && line.substr(text).starts_with("From ")) out += '>';
    }
    out += line;
    out += '\n';
  }

  bool quote_from_;
  std::string line_;
};

std::string AscTime(const std::string& date) {
  std::tm time{};
  if (std::sscanf(date.c_str(), "%2d/%2d/%4d %2d:%2d:%2d", &time.tm_mday, &time.tm_mon,
                  &time.tm_year, &time.tm_hour, &time.tm_min, &time.tm_sec) != 6) {
    time.tm_mday = time.tm_mon = 1;
    time.tm_year = 1970;
  }
  time.tm_mon -= 1;
  time.tm_year -= 1900;
  const std::time_t moment = timegm(&time);
  gmtime_r(&moment, &time);
  char text[64];
  return {text, std::strftime(text, sizeof text, "%a %b %e %H:%M:%S %Y", &time)};
}

class MboxWriter : public ArchiveWriter {
 public:
  explicit MboxWriter(const std::string& path) : file_(path) {}
  void Begin(int32_t, const std::string& sender, const std::string& date, bool read) override {
    std::string who;
    for (const char c : sender) {
      if (c == ',') break;
      if (c > ' ' && c < 0x7F) who += c;
    }
    buffer_ += "From " + (who.empty() ? std::string("MAILER-DAEMON") : who) + " " + AscTime(date);
    buffer_ += '\n';
    // What mail programs keep in an mbox in the place of a flag.
    if (read) buffer_ += "Status: RO\n";
  }
  void Write(std::string_view piece) override {
    lines_.Take(piece, buffer_);
    if (buffer_.size() > kBuffer) Flush();
  }
  void End() override {
    lines_.End(buffer_);
    buffer_ += '\n';
  }
  void Close() override {
    Flush();
    file_.Close();
  }

 private:
  void Flush() {
    file_.Write(buffer_);
    buffer_.clear();
  }
  NewFile file_;
  UnixLines lines_{true};
  std::string buffer_;
};

class EmlWriter : public ArchiveWriter {
 public:
  explicit EmlWriter(std::string folder) : folder_(std::move(folder)) { NeedFolder(folder_); }
  void Begin(int32_t id, const std::string&, const std::string&, bool) override {
    file_ = std::make_unique<NewFile>(folder_, std::to_string(id) + ".eml");
  }
  void Write(std::string_view piece) override { file_->Write(piece); }
  void End() override {
    file_->Close();
    file_.reset();
  }
  void Close() override { SyncDirectory(folder_); }

 private:
  std::string folder_;
  std::unique_ptr<NewFile> file_;
};

class MaildirWriter : public ArchiveWriter {
 public:
  explicit MaildirWriter(std::string folder) : folder_(std::move(folder)) {
    for (const char* leaf : {"tmp", "new", "cur"}) NeedFolder(JoinPath(folder_, leaf));
  }
  void Begin(int32_t id, const std::string&, const std::string&, bool read) override {
    name_ = std::to_string(std::time(nullptr)) + ".P" + std::to_string(getpid()) + "Q" +
            std::to_string(id) + ".korvane";
    read_ = read;
    file_ = std::make_unique<NewFile>(JoinPath(folder_, "tmp"), name_);
  }
  void Write(std::string_view piece) override {
    lines_.Take(piece, buffer_);
    if (buffer_.size() > kBuffer) Flush();
  }
  void End() override {
    lines_.End(buffer_);
    Flush();
    file_->Close();
    const std::string to = read_ ? JoinPath(JoinPath(folder_, "cur"), name_ + ":2,S")
                                 : JoinPath(JoinPath(folder_, "new"), name_);
    if (!RenameFile(file_->path(), to)) throw Failure(Exit::kFiles, to + ": cannot be written");
    file_.reset();
  }
  void Close() override {
    SyncDirectory(JoinPath(folder_, "new"));
    SyncDirectory(JoinPath(folder_, "cur"));
  }

 private:
  void Flush() {
    file_->Write(buffer_);
    buffer_.clear();
  }
  std::string folder_;
  std::string name_;
  bool read_ = false;
  std::unique_ptr<NewFile> file_;
  UnixLines lines_{false};
  std::string buffer_;
};

}  // namespace

std::unique_ptr<ArchiveWriter> NewArchive(ArchiveFormat format, const std::string& path) {
  switch (format) {
    case ArchiveFormat::kMbox:
      return std::make_unique<MboxWriter>(path);
    case ArchiveFormat::kEml:
      return std::make_unique<EmlWriter>(path);
    case ArchiveFormat::kMaildir:
      break;
  }
  return std::make_unique<MaildirWriter>(path);
}

}  // namespace korvane::cli
