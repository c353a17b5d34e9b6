// What tells two messages apart that have neither a "received" line nor an identifier: sender,
// subject, size, and that a message cannot have been downloaded before it was written.
#pragma once

#include <cstdint>
#include <string>

#include "../frame/database.h"

namespace korvane {

class MailMessage;
class MailUser;

struct MessageTraits {
  std::string sender;   ///< as the column holds it
  std::string subject;  ///< as the column holds it
  std::string date;     ///< the row's date, day first: when it was downloaded, in GMT
  int32_t size = 0;     ///< 0 when the server did not tell

  /// Of the current row of "mail".
  static MessageTraits OfRow(const Recordset& row, const MailUser& account);
  bool Fit(const MailMessage& message) const;
};

}  // namespace korvane
