// Which messages of the account the store already knows, those included that were deleted in it. A
// row that wrongly says that its message is no longer on the server is put right on the way.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "../frame/database.h"

namespace korvane {

class MailMessage;
class MailUser;

class KnownMessages {
 public:
  enum class Answer {
    kNew,
    kKnown,           ///< downloaded before, older ones may be missing
    kKnownWithOlder,  ///< it and all older ones were downloaded whole
  };
  KnownMessages(Connection& connection, const MailUser& account);

  /// Throws DatabaseError.
  Answer LookUp(const MailMessage& message);

  /// True when the last look-up found a row that said that its message was no longer there.
  bool PutRight() const { return put_right_; }

 private:
  Answer Ask(std::string_view table, const std::string& received, const std::string& message_id,
             const MailMessage& message);
  void PutNumberBack(const Recordset& row, const MailMessage& message);

  Connection& connection_;
  const MailUser& account_;
  std::optional<bool> has_deleted_;
  bool put_right_ = false;
};

}  // namespace korvane
