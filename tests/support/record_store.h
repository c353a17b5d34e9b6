// Records without a database: a message is written to a message file in memory's stead and read
// back by its position, which is all that a test of parsing needs of a store.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "frame/database.h"
#include "frame/files.h"
#include "message/mail_message.h"
#include "support/attachment_account.h"
#include "support/temp_folder.h"

namespace korvane::test {

/// One new row that nobody keeps.
class RowInMemory : public Recordset {
 public:
  bool Eof() const override { return false; }
  void MoveNext() override {}
  void MovePrevious() override {}
  void Move(int64_t) override {}
  void MoveLast() override {}
  Any Field(std::string_view name) const override {
    const auto found = cells_.find(std::string(name));
    return found == cells_.end() ? Any(nullptr) : found->second;
  }
  void SetField(std::string_view name, const Any& value) override {
    cells_[std::string(name)] = value;
  }
  void AddNew() override {}
  void Update() override {}
  void CancelUpdate() override {}
  void Close() override {}
  bool IsOpen() const override { return true; }

 private:
  std::map<std::string, Any> cells_;
};

class RecordStore {
 public:
  /// With `with_attachments` off there is no folder for them.
  explicit RecordStore(bool with_attachments = true, int32_t user = 9)
      : account_(AccountWithAttachmentsIn(with_attachments ? attachments_.path() : "", user)) {
    file_.Open(records_ / "messages", BinaryFile::Mode::kReadWrite);
  }

  const std::shared_ptr<MailUser>& account() const { return account_; }
  std::string attachment(const std::string& name) const { return attachments_ / name; }
  const TempFolder& attachments() const { return attachments_; }

  std::shared_ptr<MailMessage> Parsed(std::string text) const {
    auto message = std::make_shared<MailMessage>();
    const auto size = static_cast<int32_t>(text.size());
    message->LoadWholeMessage(account_, 1, size, "uidl", "", std::move(text));
    return message;
  }
  /// Writes the record and the files; the position of the record, -1 when it was not written.
  int64_t Store(MailMessage& message, int32_t id = 57) {
    RowInMemory row;
    message.SetId(id);
    MailMessage::StoreOptions options;
    options.sync = false;
    if (!message.StoreRecordAndRow(row, file_, options)) return -1;
    return row.Field("body_scaricato").ToInt64().value_or(-1);
  }
  std::shared_ptr<MailMessage> ReadBack(int64_t position, int32_t id = 57) {
    auto message = std::make_shared<MailMessage>();
    if (!file_.Seek(position) || !message->LoadRecord(account_, id, file_)) return nullptr;
    return message;
  }
  std::shared_ptr<MailMessage> StoredAndReadBack(MailMessage& message, int32_t id = 57) {
    return ReadBack(Store(message, id), id);
  }

 private:
  TempFolder attachments_;
  TempFolder records_;
  std::shared_ptr<MailUser> account_;
  BinaryFile file_;
};

}  // namespace korvane::test
