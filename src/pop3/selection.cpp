// Which messages on the server are new: from the newest down to the time of the last download, or
// to the first message that is known together with all older ones.
#include <algorithm>
#include <functional>
#include <utility>

#include "facade/mail_user.h"
#include "frame/debug_log.h"
#include "frame/error_numbers.h"
#include "frame/files.h"
#include "message/message_file.h"
#include "mime/mail_date.h"
#include "pop3/foresight.h"
#include "pop3/known_messages.h"
#include "pop3/mail_server.h"
#include "pop3/received_time.h"

namespace korvane {

struct MailServer::Selection {
  const std::string& last_time;
  bool first_download;         ///< look every candidate up
  bool whole;                  ///< what is taken is fetched
  std::string_view separator;  ///< of whole messages
  int32_t header_error;        ///< when a header fails
};

std::unique_ptr<NewMessages> MailServer::GetNewHeaders(Connection& connection,
                                                       const std::string& last_time,
                                                       bool first_download) {
  return Select(connection, {last_time, first_download, false, {}, error::SelectHeaderFailed});
}

std::unique_ptr<NewMessages> MailServer::GetNewMessages(Connection& connection,
                                                        const std::string& last_time,
                                                        bool first_download,
                                                        std::string_view separator) {
  return Select(connection,
                {last_time, first_download, true, separator, error::SelectMessageHeaderFailed});
}

/// The number that a selection looks at after this one; 0 when there is none.
int32_t MailServer::NumberBelow(int32_t number) const {
  do {
    --number;
  } while (IsDeleted(number));
  return std::max(number, 0);
}

/// Nothing when the selection could not start.
std::unique_ptr<NewMessages> MailServer::Select(Connection& connection,
                                                const Selection& selection) {
  newest_received_.reset();
  if (!Begin()) return nullptr;
  if (!Stat() || !count_read_) {
    if (NoError()) SetError(selection.header_error);
    return nullptr;
  }
  auto messages =
      std::make_unique<NewMessages>(user_, selection.whole, selection.separator,
                                    DirectoryOf(MessageFilePath(*user_)), limits_.in_memory);
  try {
    Collect(connection, selection, *messages);
  } catch (const DatabaseError& fault) {
    WriteDebugLog(user_->DebugMode(), user_->PathLog(), "MailServer.Select", fault.what());
    SetError(error::DatabaseFault);
  }
  return messages;
}

void MailServer::Collect(Connection& connection, const Selection& selection,
                         NewMessages& messages) {
  const ScanTime last = LastDownloadTime(selection.last_time);
  KnownMessages known(connection, *user_);
  bool past = false;  // everything new was seen
  const int32_t newest = LastNumber();
  const bool all_new = !selection.first_download && last.readable && last.text == kFirstMoment;
  SelectionProgress progress{.total = newest,
                             .all_bytes = mailbox_bytes_,
                             .whole = selection.whole,
                             .to_the_end = all_new};
  Foresight foresight(link_, {.whole = selection.whole,
                              .all_new = all_new,
                              .next = [this](int32_t number) { return NumberBelow(number); }});
  for (int32_t number = newest; number >= 1; --number) {
    if (IsDeleted(number)) continue;
    progress.looked_at = progress.total - number;
    if (progress_) progress_(progress);
    ++progress.looked_at;
    if (reader_.InStep()) foresight.AtHeader(number);
    auto fetched = Fetch(number, Command::kTop);
    if (!fetched) {
      if (NoError() && IsIdle()) continue;
      SetError(selection.header_error);
      break;
    }
    progress.bytes += fetched->size;
    MailMessage header;
    header.LoadHeader(user_, number, fetched->size, fetched->uidl,
                      selection.whole ? std::move(fetched->text) : fetched->text);
    if (!newest_received_) newest_received_ = header.Received();
    const ScanTime time = MessageTime(header.Received());
    const int32_t order = CompareMailDates(last.text, time.text);
    past = past || order > 0;
    // Where a deletion was not final, the one of the next older message may not be either.
    if (past && !known.PutRight()) break;
    // Where a time says nothing the table decides, or the message would be taken at every run. A
    // declared first download has nothing to look up.
    const bool doubtful = !last.readable || (!time.readable && last.text != kFirstMoment);
    if (past || selection.first_download || order == 0 || doubtful) {
      const KnownMessages::Answer answer = known.LookUp(header);
      past = past || answer == KnownMessages::Answer::kKnownWithOlder;
      if (past && !known.PutRight()) break;
      if (past || answer == KnownMessages::Answer::kKnown) {
        foresight.Skipped();
        continue;
      }
    }
    ++progress.taken;
    if (!Take(selection, number, std::move(fetched), foresight, messages)) break;
  }
  if (progress_) progress_(progress);
}

/// Adds a message of which the header came, whole where that is wanted. False, with an error, when
/// the selection stops.
bool MailServer::Take(const Selection& selection, int32_t number,
                      std::optional<ServerMessage> fetched, Foresight& foresight,
                      NewMessages& messages) {
  if (selection.whole) {
    if (reader_.InStep()) foresight.AtMessage(number);
    fetched = Fetch(number, Command::kRetr);
    if (!fetched && (!NoError() || !IsIdle())) {
      SetError(error::SelectMessageFailed);
      return false;
    }
  }
  const auto bytes = fetched ? static_cast<int64_t>(fetched->text.size()) : 0;
  // An empty message is passed over.
  if (fetched && !messages.Add(std::move(*fetched))) {
    WriteDebugLog(user_->DebugMode(), user_->PathLog(), "MailServer.Select",
                  "no room for the messages that wait to be stored");
    SetError(selection.whole ? error::SelectMessageFailed : selection.header_error);
    return false;
  }
  foresight.Took(bytes);
  return true;
}

}  // namespace korvane
