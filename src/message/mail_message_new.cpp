// A message composed on the site: preparing it, its write-only properties, and saving it into a
// box. Nothing is sent from here.
#include "facade/mail_user.h"
#include "frame/database.h"
#include "frame/debug_log.h"
#include "frame/error_numbers.h"
#include "frame/files.h"
#include "frame/retried_transaction.h"
#include "frame/sql_text.h"
#include "message/address_fields.h"
#include "message/mail_message.h"
#include "message/message_file.h"
#include "mime/mail_date.h"

namespace korvane {

void MailMessage::PrepareNew(std::shared_ptr<MailUser> account, std::string_view separator) {
  *this = MailMessage();
  account_ = std::move(account);
  separator_ = separator;
  mime_version_ = "1.0";
  fields_.content_type = "text/plain; charset=us-ascii";
  fields_.transfer_encoding = "7bit";
}

void MailMessage::NM_From(const std::string& value) { from_ = NormaliseFrom(value); }

void MailMessage::NM_MessageTo(const std::string& value) { message_to_ = NormaliseTo(value); }

void MailMessage::NM_SendDate(const std::string& value) {
  send_date_ = value;
  received_date_ = value;
}

std::shared_ptr<MailAttachment> MailMessage::NM_NewAttachment() {
  ClearError();
  if (!has_uu_list_) {
    exist_attachments_ = true;
    has_uu_list_ = true;
  }
  auto file = std::make_shared<UUAtcmt>();
  file->InitForNew(account_, ++last_uu_number_);
  uu_files_.push_back(file);
  attachments_.reset();  // the list of attachments is another one now
  auto attachment = std::make_shared<MailAttachment>();
  attachment->SetUUSource(std::move(file));
  return attachment;
}

bool MailMessage::NM_Save(const std::shared_ptr<Connection>& cnnDataBase, int32_t lIdBoxToSaveIn) {
  ClearError();
  int32_t fault = error::NewMessageNotStored;
  if (account_) account_->BoxId(lIdBoxToSaveIn);
  if (account_ && cnnDataBase) {
    try {
      cnnDataBase->MonthFirst(!account_->DayFirst());
      const MessageFileLock lock(*cnnDataBase, *account_);
      BinaryFile file;
      if (lock.Held() && file.Open(MessageFilePath(*account_), BinaryFile::Mode::kReadWrite)) {
        fault = SaveInto(*cnnDataBase, file);
      }
    } catch (const std::exception& cause) {
      fault = error::NewMessageNotStored;
      WriteDebugLog(account_->DebugMode(), account_->PathLog(), "MailMessage.NM_Save",
                    cause.what());
    }
  }
  ClearError();
  if (fault != error::None) {
    id_ = -1;
    SetError(fault);
  }
  return NoError();
}

/// Somebody else may take the number between the question for it and the row.
int32_t MailMessage::SaveInto(Connection& connection, BinaryFile& file) {
  int32_t fault = error::None;
  int64_t position = -1;
  std::vector<std::string> written;
  const auto take_back = [&] {
    if (position != -1) UndoStoredRecord(file, position, written);
    position = -1;
  };
  try {
    RetriedTransaction(
        connection, Transaction::Kind::kAllocating,
        [&] {
          take_back();
          fault = AddSaved(connection, file, position, written);
        },
        [&] { return position == -1 || HasMessageOf(connection, account_->UserId(), id_); });
  } catch (const CommitInDoubt&) {
    throw;  // the row may be there, so its record has to stay
  } catch (const DatabaseError&) {
    take_back();
    throw;
  }
  return fault;
}

/// Inside the transaction: the record and the row. `position` is where a record stands.
int32_t MailMessage::AddSaved(Connection& connection, BinaryFile& file, int64_t& position,
                              std::vector<std::string>& written) {
  id_ = NextIdentifier(connection, "SELECT MAX(id_mail) FROM mail");
  const auto row = connection.Open("mail");
  row->AddNew();
  row->SetField("Letto", Any(false));
  row->SetField("DwnldCorrettoFAQ", Any(false));
  StoreOptions options;
  options.local = true;
  if (!StoreRecordAndRow(*row, file, options, &written)) {
    row->CancelUpdate();
    row->Close();
    return error::NewMessageNotStored;
  }
  position = row->Field("body_scaricato").ToInt32().value_or(-1);
  if (position == -1) {
    row->CancelUpdate();
    row->Close();
    return error::NewMessageWithoutRecord;
  }
  row->Update();
  row->Close();
  return error::None;
}

}  // namespace korvane
