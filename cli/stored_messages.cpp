#include "cli/stored_messages.h"

#include <cctype>
#include <cstdlib>

#include "cli/failure.h"
#include "cli/password.h"
#include "facade/mail_user.h"
#include "frame/files.h"
#include "message/message_file.h"

namespace korvane::cli {
namespace {

// Percent-encoded as far as a URL needs it.
std::string AddressOf(const MailUser& account, const std::string& name) {
  constexpr std::string_view kHex = "0123456789ABCDEF";
  std::string address = account.URLAtcmts() + "/";
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) && byte < 0x80) {
      address += c;
    } else if (c == '-' || c == '.' || c == '_' || c == '~') {
      address += c;
    } else {
      address += '%';
      address += kHex[byte >> 4];
      address += kHex[byte & 15];
    }
  }
  return address;
}

}  // namespace

std::vector<MailRow> StoredMessages::Rows(const std::string& more) const {
  const auto rows = database_.Execute(
      "SELECT id_mail, id_server, id_cartella, IdSulServer, body_scaricato, dimensione, Letto, "
      "Cancellata FROM mail WHERE id_utente=" +
      std::to_string(account_->UserId()) + more + " ORDER BY id_mail ASC");
  std::vector<MailRow> all;
  for (; !rows->Eof(); rows->MoveNext()) {
    MailRow row;
    row.id = rows->Field("id_mail").ToInt32().value_or(0);
    row.account = rows->Field("id_server").ToInt32().value_or(-1);
    row.box = rows->Field("id_cartella").ToInt32().value_or(0);
    row.on_server = rows->Field("IdSulServer").ToInt32().value_or(-10);
    row.position = rows->Field("body_scaricato").ToInt64().value_or(-1);
    row.size = rows->Field("dimensione").ToInt64().value_or(0);
    row.read = rows->Field("Letto").ToBool().value_or(false);
    row.deleted = rows->Field("Cancellata").ToBool().value_or(false);
    all.push_back(row);
  }
  rows->Close();
  return all;
}

MailRow StoredMessages::Find(int32_t id) const {
  const auto rows = Rows(" AND id_mail=" + std::to_string(id) + " AND Cancellata=0");
  if (rows.empty()) {
    throw Failure(Exit::kNotFound, "user " + std::to_string(account_->UserId()) +
                                       " has no message " + std::to_string(id));
  }
  return rows.front();
}

std::shared_ptr<MailMessage> StoredMessages::Read(int32_t id) const {
  const MessageFileLock lock(database_, *account_);
  if (!lock.Held()) {
    throw Failure(Exit::kFiles, "the lock beside " + MessageFilePath(*account_) +
                                    " cannot be taken: check the folder's rights");
  }
  const auto rows = Rows(" AND id_mail=" + std::to_string(id));
  if (rows.empty() || rows.front().position == -1) return nullptr;
  BinaryFile file;
  if (!file.Open(MessageFilePath(*account_), BinaryFile::Mode::kRead)) {
    throw Failure(Exit::kFiles,
                  "the message file " + MessageFilePath(*account_) + " cannot be opened");
  }
  auto message = std::make_shared<MailMessage>();
  file.Seek(rows.front().position);
  message->LoadRecord(account_, id, file);
  return message;
}

void UsePassword(WebInterface& web, const std::string& password_file) {
  const char* password = std::getenv("KORVANE_PASSWORD");
  if (password_file.empty() && (!password || !*password)) return;
  web.Password(ReadPassword(password_file, "Password"));
}

std::vector<StoredAttachment> AttachmentsOf(MailMessage& message, const MailUser& account) {
  std::vector<StoredAttachment> attachments;
  const auto list = message.GetAttachments();
  for (int32_t i = 1; list && i <= list->Count(); ++i) {
    const auto item = list->ItemIndex(i);
    StoredAttachment attachment;
    attachment.id = item->Id();
    attachment.name = item->Name();
    std::string name = item->NameOnServer();
    // Of a uuencoded file it is the whole path; the folder may have moved since.
    const bool whole_path = name.find('/') != std::string::npos;
    if (whole_path && FileExists(name)) attachment.path = name;
    if (whole_path) name.erase(0, name.rfind('/') + 1);
    if (!name.empty() && name != "." && name != ".." && !account.PathAtcmts().empty()) {
      attachment.address = AddressOf(account, name);
      if (attachment.path.empty()) attachment.path = JoinPath(account.PathAtcmts(), name);
      BinaryFile file;
      if (file.Open(attachment.path, BinaryFile::Mode::kRead)) attachment.size = file.Length();
    }
    attachments.push_back(std::move(attachment));
  }
  return attachments;
}

}  // namespace korvane::cli
