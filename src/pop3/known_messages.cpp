#include "pop3/known_messages.h"

#include "facade/mail_user.h"
#include "frame/retried_transaction.h"
#include "frame/sql_text.h"
#include "message/mail_message.h"
#include "message/row_text.h"
#include "pop3/message_traits.h"

namespace korvane {
namespace {

/// Messages whose rows were compacted away while they still lay on the server. A site's own
/// database may lack the table.
constexpr std::string_view kDeletedMessages = "messaggi_eliminati";
/// What a row has for a number once its message was deleted on the server.
constexpr int32_t kDeletedOnServer = -100;

}  // namespace

KnownMessages::KnownMessages(Connection& connection, const MailUser& account)
    : connection_(connection), account_(account) {}

KnownMessages::Answer KnownMessages::LookUp(const MailMessage& message) {
  put_right_ = false;
  const std::string& received = message.Received();
  const std::string& message_id = message.MessageID();
  Answer answer = Ask("mail", received, message_id, message);
  if (answer != Answer::kNew) return answer;
  // The columns hold apostrophes doubled and texts cut; the statement above asks for neither.
  const std::string stored_received = RowText(received);
  const std::string stored_id = RowText(message_id, kMessageIdCharacters);
  if (stored_received != received || stored_id != message_id) {
    answer = Ask("mail", stored_received, stored_id, message);
    if (answer != Answer::kNew) return answer;
  }
  if (!has_deleted_) has_deleted_ = connection_.HasTable(kDeletedMessages);
  return *has_deleted_ ? Ask(kDeletedMessages, stored_received, stored_id, message) : answer;
}

KnownMessages::Answer KnownMessages::Ask(std::string_view table, const std::string& received,
                                         const std::string& message_id,
                                         const MailMessage& message) {
  const auto rows = connection_.Execute("SELECT * FROM " + std::string(table) +
                                        " WHERE id_utente=" + std::to_string(account_.UserId()) +
                                        " AND id_server=" + std::to_string(account_.AccountId()) +
                                        " AND campo_received='" + DoubleQuotes(received) +
                                        "' AND campo_MessageId='" + DoubleQuotes(message_id) + "'");
  // Texts that are missing or cut do not tell messages apart.
  const bool ambiguous =
      (received.empty() && message_id.empty()) ||
      RowText(message.MessageID()) != RowText(message.MessageID(), kMessageIdCharacters);
  for (; !rows->Eof(); rows->MoveNext()) {
    if (ambiguous && !MessageTraits::OfRow(*rows, account_).Fit(message)) continue;
    if (table == "mail") PutNumberBack(*rows, message);
    return rows->Field("DwnldCorrettoFAQ").ToBool().value_or(false) ? Answer::kKnownWithOlder
                                                                    : Answer::kKnown;
  }
  return Answer::kNew;
}

// A row says that its message was deleted on the server, and there it is: whoever deleted it died
// before the server had made that final.
void KnownMessages::PutNumberBack(const Recordset& row, const MailMessage& message) try {
  if (row.Field("IdSulServer").ToInt32() != kDeletedOnServer) return;
  put_right_ = true;
  const std::string change = "UPDATE mail SET IdSulServer=" + std::to_string(message.IdOnServer()) +
                             " WHERE id_mail=" + row.Field("id_mail").ToText() +
                             " AND IdSulServer=" + std::to_string(kDeletedOnServer);
  RetriedTransaction(
      connection_, Transaction::Kind::kPlain, [&] { connection_.Execute(change); }, MadeAgain);
} catch (const DatabaseError& fault) {
  // The message is known all the same, and the next look-up tries again.
  if (!fault.Retryable()) throw;
}

}  // namespace korvane
