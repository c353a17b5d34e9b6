// One user's store in a folder of its own: an SQLite database, a message file, a folder for
// attachments, and the verbs that tests about it are written in.
#pragma once

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "facade/mail_user.h"
#include "frame/files.h"
#include "frame/schema.h"
#include "frame/sql_text.h"
#include "message/mail_message.h"
#include "message/mail_messages.h"
#include "message/message_file.h"
#include "support/settings_file_in_use.h"
#include "support/temp_folder.h"

namespace korvane::test {

class MessageStore {
 public:
  /// `options` of the URL, or a whole one, of an empty database elsewhere.
  explicit MessageStore(const std::string& options = "", int32_t user_id = 7) {
    for (const char* name : {"messages", "attachments", "log"}) {
      std::filesystem::create_directory(folder_ / name);
    }
    const bool elsewhere = options.find("://") != std::string::npos;
    url_ = elsewhere ? options : "sqlite://" + (folder_ / "mail.db");
    CreateSchema(url_);
    if (!elsewhere) url_ += options;
    connection_ = OpenDatabase(url_);
    UseFolders(messages_folder(), attachments_folder(), user_id);
  }

  /// Makes the account anew with these folders.
  void UseFolders(const std::string& messages, const std::string& attachments,
                  int32_t user_id = 7) {
    const SettingsFileInUse settings(
        "Windows Registry Editor Version 5.00\r\n"
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel_IS_App\\KorvaneMulti\\Korvane1\\KorvaneDll]\r\n"
        "\"PathAtcmts\"=\"" +
        attachments +
        "\"\r\n\"PathAtcmtsInvio\"=\"\"\r\n"
        "\"URLAtcmts\"=\"/files\"\r\n\"PathMessages\"=\"" +
        messages +
        "\"\r\n"
        "\"PathLog\"=\"" +
        (folder_ / "log") +
        "\"\r\n\"PathBackgrDownloader\"=\"\"\r\n"
        "\"DbConnectionString\"=\"\"\r\n\"ServerTimeout\"=dword:00001b58\r\n"
        "\"DebugMode\"=dword:00000001\r\n");
    BossObject boss;
    boss.Init(1);
    boss.Init2(connection_);
    account_ = std::make_shared<MailUser>();
    account_->InitFromConfig(boss, connection_, user_id, MailUser::kNoAccount);
  }

  const std::shared_ptr<MailUser>& account() const { return account_; }
  const std::shared_ptr<Connection>& connection() const { return connection_; }
  const std::string& url() const { return url_; }
  std::string messages_folder() const { return folder_ / "messages"; }
  std::string attachments_folder() const { return folder_ / "attachments"; }
  std::string message_file() const { return MessageFilePath(*account_); }
  const TempFolder& folder() const { return folder_; }

  /// A message as it comes from the server.
  std::shared_ptr<MailMessage> Downloaded(const std::string& text, int32_t number = 1) const {
    auto message = std::make_shared<MailMessage>();
    message->LoadWholeMessage(account_, number, static_cast<int32_t>(text.size()), "uidl", "",
                              text);
    return message;
  }

  /// Stores it as a download does; its row is committed unless it could not be stored.
  bool Store(MailMessage& message, MailMessage::StoreOptions options = {}) const {
    BinaryFile file;
    if (options.record && !file.Open(message_file(), BinaryFile::Mode::kReadWrite)) return false;
    Transaction transaction(*connection_, Transaction::Kind::kAllocating);
    message.SetId(NextIdentifier(*connection_, "SELECT MAX(id_mail) FROM mail"));
    const auto row = connection_->Open("mail");
    row->AddNew();
    row->SetField("Letto", Any(false));
    row->SetField("DwnldCorrettoFAQ", Any(false));
    if (!message.StoreRecordAndRow(*row, file, options)) {
      row->CancelUpdate();
      return false;
    }
    row->Update();
    row->Close();
    transaction.Commit();
    return true;
  }
  /// Stores a message and gives its identifier.
  int32_t StoreText(const std::string& text) const {
    const auto message = Downloaded(text);
    return Store(*message) ? message->Id() : -1;
  }

  Any Cell(int32_t id, const std::string& column) const {
    return FirstValue(*connection_,
                      "SELECT " + column + " FROM mail WHERE id_mail=" + std::to_string(id));
  }
  int64_t Position(int32_t id) const { return Cell(id, "body_scaricato").ToInt64().value_or(-2); }
  int64_t Count(const std::string& where = "1=1") const {
    return FirstValue(*connection_, "SELECT COUNT(*) FROM mail WHERE " + where)
        .ToInt64()
        .value_or(-1);
  }

  /// Reads a message back through its row.
  std::shared_ptr<MailMessage> Loaded(int32_t id) const {
    BinaryFile file;
    auto message = std::make_shared<MailMessage>();
    if (file.Open(message_file(), BinaryFile::Mode::kRead)) file.Seek(Position(id));
    message->LoadRecord(account_, id, file);
    return message;
  }

  std::string FileBytes() const {
    std::string bytes;
    ReadWholeFile(message_file(), bytes);
    return bytes;
  }
  /// The names of the attachment files, in order.
  std::vector<std::string> AttachmentFiles() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(attachments_folder())) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  TempFolder folder_;
  std::string url_;
  std::shared_ptr<Connection> connection_;
  std::shared_ptr<MailUser> account_;
};

/// A small whole message of plain text.
inline std::string PlainMessage(const std::string& subject,
                                const std::string& body = "Hello.\r\n") {
  return "Received: by mx.example.org; Tue, 5 Mar 2002 10:20:30 +0100\r\n"
         "From: Ann Example <ann@example.org>\r\nTo: bob@example.org\r\nSubject: " +
         subject + "\r\nMessage-ID: <" + subject + "@example.org>\r\n" +
         "Date: Tue, 5 Mar 2002 10:20:00 +0100\r\n\r\n" + body;
}

/// A message with a text and a file.
inline std::string MessageWithFile(const std::string& name, const std::string& base64) {
  return "From: ann@example.org\r\nTo: bob@example.org\r\nSubject: a file\r\nMIME-Version: 1.0\r\n"
         "Content-Type: multipart/mixed; boundary=\"cut\"\r\n\r\npreamble\r\n--cut\r\n"
         "Content-Type: text/plain\r\n\r\nSee the file.\r\n--cut\r\n"
         "Content-Type: application/octet-stream\r\nContent-Transfer-Encoding: base64\r\n"
         "Content-Disposition: attachment; filename=\"" +
         name + "\"\r\n\r\n" + base64 + "\r\n--cut--\r\n";
}

}  // namespace korvane::test
