// Finding a message again by the texts that its row keeps, from its old number down: numbers only
// shrink, as older messages go.
#include <algorithm>
#include <utility>

#include "facade/mail_user.h"
#include "frame/database_values.h"
#include "frame/error_numbers.h"
#include "message/row_text.h"
#include "mime/mail_date.h"
#include "pop3/mail_server.h"
#include "pop3/received_time.h"

namespace korvane {

struct MailServer::Wanted {
  Wanted(std::string_view received_text, std::string_view id_text, const MessageTraits* row)
      : received(received_text),
        message_id(id_text),
        received_undone(UndoubledQuotes(received_text)),
        id_undone(UndoubledQuotes(id_text)),
        traits(row),
        time(WantedTime(received_undone).text) {}

  bool WithoutTexts() const { return received.empty() && message_id.empty(); }

  bool Fits(const MailMessage& message) const {
    const std::string& its_received = message.Received();
    const std::string& its_id = message.MessageID();
    if (its_received != received && its_received != received_undone &&
        StorableText(RowText(its_received)) != received) {
      return false;
    }
    bool ambiguous = WithoutTexts();
    if (its_id != message_id && its_id != id_undone) {
      if (RowText(its_id, kMessageIdCharacters) != message_id) return false;
      // The column may hold only the beginning of the identifier, which others may share.
      ambiguous = ambiguous || RowText(its_id) != message_id;
    }
    return !ambiguous || !traits || traits->Fit(message);
  }

  std::string_view received;
  std::string_view message_id;
  std::string received_undone;
  std::string id_undone;
  const MessageTraits* traits;
  std::string time;
};

/// Looks at the messages from `number` down; at the match, `number` is its number.
MailServer::Found MailServer::FindNext(const Wanted& wanted, int32_t& number) {
  for (; number >= 1; --number) {
    if (IsDeleted(number)) continue;
    const auto header = FetchHeader(number);
    if (!header) {
      if (NoError() && IsIdle()) continue;  // an empty message is nobody's
      return Found::kFailed;
    }
    if (wanted.Fits(*header)) return Found::kMatch;
    if (CompareMailDates(wanted.time, MessageTime(header->Received()).text) >= 1) break;
  }
  return Found::kEnd;
}

std::shared_ptr<MailMessage> MailServer::FindFullMessage(int32_t start, std::string_view received,
                                                         std::string_view message_id,
                                                         std::string_view separator,
                                                         const MessageTraits* traits) {
  if (!Begin()) return nullptr;
  if (!Stat() || !count_read_) {
    if (NoError()) SetError(error::FindHeaderFailed);
    return nullptr;
  }
  if (message_count_ < 1) {
    SetError(error::FindServerEmpty);
    return nullptr;
  }
  int32_t number = start == -1 ? LastNumber() : std::min(start, LastNumber());
  switch (FindNext(Wanted(received, message_id, traits), number)) {
    case Found::kFailed:
      SetError(error::FindHeaderFailed);
      return nullptr;
    case Found::kEnd:
      SetError(error::FindNotFound);
      return nullptr;
    case Found::kMatch:
      break;
  }
  auto message = FetchWhole(number, separator);
  if (!message && NoError()) SetError(IsIdle() ? error::EmptyMessage : error::FindHeaderFailed);
  return message;
}

bool MailServer::FindAndDeleteMessage(int32_t start, std::string_view received,
                                      std::string_view message_id, const MessageTraits* traits) {
  if (!Begin()) return false;
  if (!Stat() || !count_read_) {
    if (NoError()) SetError(error::DeleteHeaderFailed);
    return false;
  }
  if (message_count_ < 1) return true;
  const Wanted wanted(received, message_id, traits);
  int32_t number = start == -1 ? LastNumber() : std::min(start, LastNumber());
  Found found = FindNext(wanted, number);
  const int32_t match = number;
  if (found == Found::kMatch && wanted.WithoutTexts()) {
    // Nothing names this message: only a single candidate may be deleted.
    found = FindNext(wanted, --number);
    if (found == Found::kMatch) {
      SetError(error::FindNotFound);
      return false;
    }
    if (found == Found::kEnd) found = Found::kMatch;
  }
  if (found == Found::kFailed) {
    SetError(error::DeleteHeaderFailed);
    return false;
  }
  if (found == Found::kEnd || Delete(match)) return true;
  if (NoError()) SetError(error::DeleteHeaderFailed);
  return false;
}

}  // namespace korvane
