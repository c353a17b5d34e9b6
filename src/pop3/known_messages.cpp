#include "pop3/known_messages.h"

#include "facade/mail_user.h"
#include "frame/sql_text.h"
#include "message/mail_message.h"
#include "pop3/column_text.h"
#include "pop3/message_traits.h"

namespace korvane {

KnownMessages::KnownMessages(Connection& connection, const MailUser& account)
    : connection_(connection), account_(account) {}

KnownMessages::Answer KnownMessages::LookUp(const MailMessage& message) {
  const std::string& received = message.Received();
  const std::string& message_id = message.MessageID();
  Answer answer = Ask(received, message_id, message);
  if (answer != Answer::kNew) return answer;
  // The columns hold apostrophes doubled and texts cut; the statement above asks for neither.
  const std::string stored_received = ColumnText(received, kUnlimitedColumn);
  const std::string stored_id = ColumnText(message_id, kMessageIdColumn);
  if (stored_received != received || stored_id != message_id) {
    answer = Ask(stored_received, stored_id, message);
  }
  return answer;
}

KnownMessages::Answer KnownMessages::Ask(const std::string& received, const std::string& message_id,
                                         const MailMessage& message) {
  const auto rows = connection_.Execute(
      "SELECT * FROM mail WHERE id_utente=" + std::to_string(account_.UserId()) +
      " AND id_server=" + std::to_string(account_.AccountId()) + " AND campo_received='" +
      DoubleQuotes(received) + "' AND campo_MessageId='" + DoubleQuotes(message_id) + "'");
  const bool without_texts = received.empty() && message_id.empty();
  for (; !rows->Eof(); rows->MoveNext()) {
    if (without_texts && !MessageTraits::OfRow(*rows, account_).Fit(message)) continue;
    return rows->Field("DwnldCorrettoFAQ").ToBool().value_or(false) ? Answer::kKnownWithOlder
                                                                    : Answer::kKnown;
  }
  return Answer::kNew;
}

}  // namespace korvane
