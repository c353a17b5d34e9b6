// The rows and the records of one user's messages, read without marking anything as read.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "installation.h"
#include "message/mail_message.h"

namespace korvane::cli {

struct MailRow {
  int32_t id = 0;
  int32_t account = -1;
  int32_t box = 0;
  int32_t on_server = -10;  ///< number there; -100 deleted there, -10 never was
  int64_t position = -1;    ///< of the record; -1 when only the header is here
  int64_t size = 0;
  bool read = false;
  bool deleted = false;
};

class StoredMessages {
 public:
  StoredMessages(const Installation& installation, const WebInterface& web)
      : database_(*installation.connection), account_(web.Account()) {}

  /// The user's rows by number; `more` is another condition. Throws DatabaseError.
  std::vector<MailRow> Rows(const std::string& more = "") const;
  /// One that is not deleted. Fails with the status for messages when there is none.
  MailRow Find(int32_t id) const;
  /// Reads a record under the user's lock, from where the row says then. No object when there is
  /// none; the message's error is set when it cannot be read.
  std::shared_ptr<MailMessage> Read(int32_t id) const;

  Connection& database() const { return database_; }
  const std::shared_ptr<MailUser>& account() const { return account_; }

 private:
  Connection& database_;
  std::shared_ptr<MailUser> account_;
};

/// Takes a password for accounts whose password is not kept, where a file or the environment has
/// one.
void UsePassword(WebInterface& web, const std::string& password_file);

/// An attachment as it can be offered.
struct StoredAttachment {
  int32_t id = 0;
  std::string name;
  std::string address;  ///< where the site publishes it
  std::string path;     ///< of its file; "" when it has none
  int64_t size = -1;    ///< -1 when the file cannot be read
};
std::vector<StoredAttachment> AttachmentsOf(MailMessage& message, const MailUser& account);

}  // namespace korvane::cli
