// Archives of mail, as an mbox, an .eml file and a file of a Maildir: any bytes are read or refused
// without a fault, every line of what is read ends with CR LF, and a mbox that is written from the
// messages reads back as the same lines.
#include <sys/types.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "cli/failure.h"
#include "cli/mail_archive.h"

namespace fs = std::filesystem;
using namespace korvane::cli;

namespace {

void Require(bool ok) {
  if (!ok) std::abort();
}

/// A folder of this process, removed at its end.
class Folder {
 public:
  Folder() {
    const fs::path memory = "/dev/shm";
    const fs::path above = fs::is_directory(memory) ? memory : fs::temp_directory_path();
    std::string name = (above / "korvane_archive_XXXXXX").string();
    Require(mkdtemp(name.data()) != nullptr);
    path_ = name;
    fs::create_directory(path_ / "maildir");
    fs::create_directory(path_ / "maildir/cur");
  }
  ~Folder() {
    std::error_code error;
    if (getpid() == owner_) fs::remove_all(path_, error);
  }
  std::string operator/(const char* name) const { return (path_ / name).string(); }

 private:
  fs::path path_;
  pid_t owner_ = getpid();
};

std::vector<ArchivedMessage> Read(const std::string& path) {
  std::vector<ArchivedMessage> messages;
  int64_t before = 0;
  ReadArchive(path, [&](ArchivedMessage message, int64_t done, int64_t total) {
    Require(done >= before && done <= total);
    before = done;
    messages.push_back(std::move(message));
  });
  return messages;
}

void CheckText(std::string_view text) {
  for (size_t at = text.find('\n'); at != std::string_view::npos; at = text.find('\n', at + 1)) {
    Require(at > 0 && text[at - 1] == '\r');
  }
  const std::string dotted = WithTransportDots(text);
  Require(!dotted.starts_with(".\r\n") && dotted.find("\n.\r\n") == std::string::npos);
}

/// What an mbox keeps of a text: its lines, each with an end; a lone CR may be taken for part of
/// one.
std::string Lines(std::string text) {
  if (!text.empty() && !text.ends_with('\n')) text += '\n';
  std::erase(text, '\r');
  return text;
}

void Write(const std::string& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<long>(bytes.size()));
}

void ReadAsMbox(const Folder& folder, std::string_view bytes) {
  const std::string path = folder / "mbox";
  Write(path, bytes);
  std::vector<ArchivedMessage> messages;
  try {
    messages = Read(path);
  } catch (const Failure&) {
    return;  // no mbox
  }
  size_t length = 0;
  for (const ArchivedMessage& message : messages) {
    CheckText(message.text);
    length += message.text.size();
  }
  Require(length <= 2 * bytes.size() + 2);

  const std::string copy = folder / "copy";
  fs::remove(copy);
  const auto archive = NewArchive(ArchiveFormat::kMbox, copy);
  for (const ArchivedMessage& message : messages) {
    archive->Begin(1, "a@example.org", "05/03/2002 10:20:30", message.read);
    archive->Write(message.text);
    archive->End();
  }
  archive->Close();
  const auto again = Read(copy);
  Require(again.size() == messages.size());
  for (size_t i = 0; i < again.size(); ++i) {
    Require(Lines(again[i].text) == Lines(messages[i].text));
    Require(again[i].read == messages[i].read);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Folder folder;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  ReadAsMbox(folder, bytes);

  Write(folder / "maildir/cur/1.host:2,S", bytes);
  const auto kept = Read(folder / "maildir");
  Require(kept.size() == 1 && kept[0].read);
  CheckText(kept[0].text);

  Write(folder / "one.eml", bytes);
  try {
    const auto single = Read(folder / "one.eml");
    // A file that begins with "From " is taken for an mbox, whatever its name.
    if (!bytes.empty() && !bytes.starts_with("From ")) {
      Require(single.size() == 1 && single[0].text == kept[0].text);
    }
  } catch (const Failure&) {
    return 0;
  }
  return 0;
}
