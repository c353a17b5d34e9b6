// Records of a message file: any bytes are read without a fault, the outline agrees with the reader
// about them, and a message that was read is written and read again as the same.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "facade/mail_user.h"
#include "frame/files.h"
#include "message/mail_message.h"
#include "message/message_file.h"

using namespace korvane;

namespace {

// A row that keeps what is written into it.
class NoRow : public Recordset {
 public:
  bool Eof() const override { return true; }
  void MoveNext() override {}
  void MovePrevious() override {}
  void Move(int64_t) override {}
  void MoveLast() override {}
  Any Field(std::string_view) const override { return {}; }
  void SetField(std::string_view, const Any&) override {}
  void AddNew() override {}
  void Update() override {}
  void CancelUpdate() override {}
  void Close() override {}
  bool IsOpen() const override { return true; }
};

std::string ScratchFile(const char* name) {
  return "/tmp/korvane_record_fuzz_" + std::to_string(::getpid()) + "_" + name;
}

void Require(bool ok) {
  if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string first = ScratchFile("first");
  static const std::string second = ScratchFile("second");
  static const auto account = std::make_shared<MailUser>();

  BinaryFile file;
  Require(file.Open(first, BinaryFile::Mode::kReadWrite) && file.Truncate(0));
  Require(file.Write({reinterpret_cast<const char*>(data), size}) && file.Flush());
  const auto outline = OutlineRecord(file, 1);
  MailMessage message;
  Require(file.Seek(1));
  const bool loaded = message.LoadRecord(account, 1, file);
  Require(loaded == (message.GetLastError() == 0));
  if (loaded) {
    Require(outline && outline->length == file.Position() - 1);
    Require(outline->size == message.Size());
    std::string text;
    message.MessageBody(text);
    message.GetAttachments();

    BinaryFile again;
    Require(again.Open(second, BinaryFile::Mode::kReadWrite) && again.Truncate(0));
    NoRow row;
    MailMessage::StoreOptions options;
    options.sync = false;
    Require(message.StoreRecordAndRow(row, again, options));
    MailMessage back;
    Require(again.Seek(1) && back.LoadRecord(account, 1, again));
    Require(back.From() == message.From() && back.BodyText() == message.BodyText());
    Require((back.Entity() == nullptr) == (message.Entity() == nullptr));
    Require(back.UUFiles().size() == message.UUFiles().size());
  }
  ::unlink(first.c_str());
  ::unlink(second.c_str());
  return 0;
}
