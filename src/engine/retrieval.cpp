// Opening a message: from its record, or from the server when only its header is here.
#include <memory>
#include <string>
#include <utility>

#include "engine/engine_session.h"
#include "frame/debug_log.h"
#include "frame/error_numbers.h"
#include "frame/files.h"
#include "frame/retried_transaction.h"
#include "message/message_file.h"
#include "pop3/message_traits.h"

namespace korvane {

/// What is needed to find a message on the server again.
struct MailEngine::FetchPlan {
  int32_t id_mail;
  int32_t account;
  int32_t number;
  std::string received;
  std::string message_id;
  MessageTraits traits;
};

std::shared_ptr<MailMessage> MailEngine::GetMessage(int32_t message_id, std::string_view separator,
                                                    bool delete_on_server) {
  if (!Ready()) return nullptr;
  try {
    return OpenMessage(message_id, separator, delete_on_server);
  } catch (const std::exception& fault) {
    TakeFault("MailEngine.GetMessage", fault);
    return nullptr;
  }
}

std::shared_ptr<Recordset> MailEngine::OpenRow(int32_t message_id) {
  return connection_->Open("SELECT * FROM mail WHERE id_mail=" + std::to_string(message_id) +
                           " AND id_utente=" + std::to_string(account_->UserId()));
}

std::shared_ptr<MailMessage> MailEngine::OpenMessage(int32_t message_id, std::string_view separator,
                                                     bool delete_on_server) {
  std::shared_ptr<MailMessage> message;
  std::unique_ptr<FetchPlan> plan;
  {
    // A compaction moves records: the position holds only as long as the lock is held.
    const MessageFileLock lock(*connection_, *account_);
    const auto row = OpenRow(message_id);
    if (row->Eof()) {
      SetError(error::MessageNotFound);
      return nullptr;
    }
    const int64_t position = row->Field("body_scaricato").ToInt64().value_or(-1);
    const int32_t number = row->Field("IdSulServer").ToInt32().value_or(kNeverOnServer);
    const int32_t account = row->Field("id_server").ToInt32().value_or(-1);
    account_->BoxId(row->Field("id_cartella").ToInt32().value_or(0));
    if (position < 0 && account == -1) {
      SetError(error::SavedMessageWithoutRecord);
      return nullptr;
    }
    if (position != -1) {
      message = LoadStored(message_id, position);
      if (message && !row->Field("Letto").ToBool().value_or(false)) MarkRead(message_id);
    } else if (number == kDeletedOnServer || number == kNeverOnServer) {
      SetError(error::BodyNoLongerOnServer);
    } else {
      plan = std::make_unique<FetchPlan>(
          FetchPlan{message_id, account, number, row->Field("campo_received").ToText(),
                    row->Field("campo_MessageId").ToText(), MessageTraits::OfRow(*row, *account_)});
    }
    row->Close();
  }
  if (plan) {
    message = FetchFromServer(*plan, separator, delete_on_server);
    if (message) MarkRead(message_id);
  }
  return message;
}

std::shared_ptr<MailMessage> MailEngine::LoadStored(int32_t message_id, int64_t position) {
  BinaryFile file;
  auto message = std::make_shared<MailMessage>();
  if (!file.Open(MessageFilePath(*account_), BinaryFile::Mode::kRead) || !file.Seek(position)) {
    SetError(error::RecordNotRead);
    return nullptr;
  }
  if (!message->LoadRecord(account_, message_id, file)) {
    CopyError(*message);
    return nullptr;
  }
  return message;
}

/// A message that is open is shown even where it cannot be marked.
void MailEngine::MarkRead(int32_t message_id) try {
  RetriedTransaction(
      *connection_, Transaction::Kind::kPlain,
      [&] {
        const auto row = OpenRow(message_id);
        if (row->Eof() || row->Field("Letto").ToBool().value_or(false)) return;
        row->SetField("Letto", true);
        row->Update();
        row->Close();
      },
      MadeAgain);
} catch (const DatabaseError& fault) {
  TakeFault("MailEngine.GetMessage", fault);
}

std::shared_ptr<MailMessage> MailEngine::FetchFromServer(const FetchPlan& plan,
                                                         std::string_view separator,
                                                         bool delete_on_server) {
  if (!account_->LoadAccount(plan.account)) {
    CopyError(*account_);
    return nullptr;
  }
  Session session(*this);
  if (!session.Open()) return nullptr;
  auto message = server_->FindFullMessage(plan.number, plan.received, plan.message_id, separator,
                                          &plan.traits);
  if (!message) {
    CopyError(*server_);
    if (NoError()) SetError(error::ReceiveFailed);
    return nullptr;
  }
  const int32_t number = message->IdOnServer();
  ServerDeletions deletions;
  bool committed = true;
  bool stored = false;
  try {
    stored = StoreFetched(plan, message);
    if (stored && delete_on_server) {
      if (server_->DeleteServerMessage(number)) {
        deletions.Mark(*connection_, {{plan.id_mail, plan.number}});
        message->SetIdOnServer(kDeletedOnServer);
      } else {
        CopyError(*server_);
        if (NoError()) SetError(error::ReceiveFailed);
      }
    }
  } catch (const std::exception& fault) {
    TakeFault("MailEngine.StoreFetched", fault);
    committed = false;
  }
  const bool deleted = !deletions.empty();
  if (!session.End(&deletions, committed) && deleted) message->SetIdOnServer(number);
  return stored ? message : nullptr;
}

/// Appends the record and lets the row point at it. False, with an error, when that failed: nothing
/// of it is then left.
bool MailEngine::StoreFetched(const FetchPlan& plan, std::shared_ptr<MailMessage>& fetched) {
  const MessageFileLock lock(*connection_, *account_);
  {
    const auto row = OpenRow(plan.id_mail);
    if (row->Eof()) {
      // Deleted and compacted away in the meantime.
      SetError(error::MessageNotFound);
      return false;
    }
    const int64_t position = row->Field("body_scaricato").ToInt64().value_or(-1);
    if (position != -1) {
      // Somebody else opened it at the same time; one record is enough.
      const int32_t number = fetched->IdOnServer();
      fetched = LoadStored(plan.id_mail, position);
      if (fetched) fetched->SetIdOnServer(number);
      return fetched != nullptr;
    }
  }
  MailMessage& message = *fetched;
  BinaryFile file;
  file.Open(MessageFilePath(*account_), BinaryFile::Mode::kReadWrite);
  const int64_t length = file.IsOpen() ? file.Length() : -1;
  std::vector<std::string> files;
  const auto take_back = [&] {
    if (length >= 0) file.Truncate(length);
    for (const std::string& written : files) RemoveFile(written);
    files.clear();
  };
  message.SetId(plan.id_mail);
  bool stored = false;
  try {
    RetriedTransaction(
        *connection_, Transaction::Kind::kPlain,
        [&] {
          take_back();
          stored = WriteFetched(plan, message, file, files);
        },
        [&] {
          // The row was made to point at the record: nobody else can, under the user's lock.
          const auto row = OpenRow(plan.id_mail);
          return !row->Eof() && row->Field("body_scaricato").ToInt64().value_or(-1) == length + 1;
        });
  } catch (const CommitInDoubt&) {
    throw;  // the row may point at the record
  } catch (...) {
    take_back();
    throw;
  }
  if (!stored) take_back();
  return stored;
}

/// Inside the transaction: the record, the attachment files and the row.
bool MailEngine::WriteFetched(const FetchPlan& plan, MailMessage& message, BinaryFile& file,
                              std::vector<std::string>& files) {
  const auto row = OpenRow(plan.id_mail);
  MailMessage::StoreOptions options;
  options.write_row = false;
  if (!message.StoreRecordAndRow(*row, file, options, &files)) {
    row->CancelUpdate();
    CopyError(message);
    return false;
  }
  // A header does not tell whether there are attachments.
  row->SetField("allegati", message.ExistAttachments());
  row->Update();
  row->Close();
  return true;
}

}  // namespace korvane
