// Which messages on the server are new: from the newest down to the time of the last download, or
// to the first message that is known together with all older ones.
#include <algorithm>
#include <functional>
#include <utility>

#include "facade/mail_user.h"
#include "frame/debug_log.h"
#include "frame/error_numbers.h"
#include "mime/mail_date.h"
#include "pop3/foresight.h"
#include "pop3/known_messages.h"
#include "pop3/mail_server.h"
#include "pop3/received_time.h"

namespace korvane {

struct MailServer::Selection {
  const std::string& last_time;
  bool first_download;   ///< look every candidate up
  int32_t header_error;  ///< when a header fails
  int32_t start;         ///< the first number to look at, 0 for the newest
  bool whole;            ///< what is taken is fetched
  bool straight_on;      ///< where it stops for its size, the next one follows at once
  /// Receives each new message, with its header; false stops the selection.
  std::function<bool(int32_t number, std::shared_ptr<MailMessage> header)> take;
};

std::shared_ptr<MailMessages> MailServer::GetNewHeaders(Connection& connection,
                                                        const std::string& last_time,
                                                        bool first_download) {
  auto messages = std::make_shared<MailMessages>();
  const bool begun =
      Select(connection, {last_time, first_download, error::SelectHeaderFailed, 0, false, false,
                          [&](int32_t number, std::shared_ptr<MailMessage> header) {
                            messages->Add(std::move(header), number);
                            return true;
                          }});
  return begun ? messages : nullptr;
}

std::shared_ptr<MailMessages> MailServer::GetNewMessages(Connection& connection,
                                                         const std::string& last_time,
                                                         bool first_download,
                                                         std::string_view separator, int32_t start,
                                                         bool straight_on) {
  auto messages = std::make_shared<MailMessages>();
  int64_t bytes = 0;
  const bool begun =
      Select(connection, {last_time, first_download, error::SelectMessageHeaderFailed, start, true,
                          straight_on, [&](int32_t number, const std::shared_ptr<MailMessage>&) {
                            if (auto message = FetchWhole(number, separator)) {
                              messages->Add(std::move(message), number);
                              bytes += text_bytes_;
                              if (bytes < limits_.selection_bytes) return true;
                              selection_goes_on_at_ = number - 1;
                              return false;
                            } else if (!NoError() || !IsIdle()) {
                              SetError(error::SelectMessageFailed);
                              return false;
                            }
                            return true;  // an empty message is passed over
                          }});
  return begun ? messages : nullptr;
}

/// The number that a selection looks at after this one; 0 when there is none.
int32_t MailServer::NumberBelow(int32_t number) const {
  do {
    --number;
  } while (IsDeleted(number));
  return std::max(number, 0);
}

/// False when the selection could not start.
bool MailServer::Select(Connection& connection, const Selection& selection) try {
  newest_received_.reset();
  selection_goes_on_at_ = 0;
  if (!Begin()) return false;
  const bool goes_on = selection.start > 0;
  if (!goes_on || selected_from_ == 0) {
    if (!Stat() || !count_read_) {
      if (NoError()) SetError(selection.header_error);
      return false;
    }
    selected_from_ = LastNumber();
  }
  const ScanTime last = LastDownloadTime(selection.last_time);
  KnownMessages known(connection, *user_);
  bool past = false;  // everything new was seen
  const int32_t newest = goes_on ? std::min(selection.start, selected_from_) : selected_from_;
  const bool all_new = !selection.first_download && last.readable && last.text == kFirstMoment;
  SelectionProgress progress{.looked_at = selected_from_ - newest,
                             .total = selected_from_,
                             .bytes = looked_at_bytes_,
                             .all_bytes = mailbox_bytes_,
                             .whole = selection.whole,
                             .to_the_end = all_new};
  if (!goes_on || !foresight_ || !foresight_->GoesStraightOn()) {
    foresight_ = std::make_unique<Foresight>(
        link_, Foresight::Plan{.whole = selection.whole,
                               .all_new = all_new,
                               .goes_on = goes_on,
                               .straight_on = selection.straight_on,
                               .most_bytes = limits_.selection_bytes,
                               .next = [this](int32_t number) { return NumberBelow(number); }});
  }
  Foresight& foresight = *foresight_;
  for (int32_t number = newest; number >= 1; --number) {
    if (IsDeleted(number)) continue;
    progress.looked_at = progress.total - number;
    progress.bytes = looked_at_bytes_;
    if (progress_) progress_(progress);
    ++progress.looked_at;
    if (reader_.InStep()) foresight.AtHeader(number);
    auto header = FetchHeader(number);
    if (!header) {
      if (NoError() && IsIdle()) continue;
      SetError(selection.header_error);
      break;
    }
    looked_at_bytes_ += header->Size();
    if (!newest_received_) newest_received_ = header->Received();
    const ScanTime time = MessageTime(header->Received());
    const int32_t order = CompareMailDates(last.text, time.text);
    past = past || order > 0;
    // Where a deletion was not final, the one of the next older message may not be either.
    if (past && !known.PutRight()) break;
    // Where a time says nothing the table decides, or the message would be taken at every run. A
    // declared first download has nothing to look up.
    const bool doubtful = !last.readable || (!time.readable && last.text != kFirstMoment);
    if (past || selection.first_download || order == 0 || doubtful) {
      const KnownMessages::Answer answer = known.LookUp(*header);
      past = past || answer == KnownMessages::Answer::kKnownWithOlder;
      if (past && !known.PutRight()) break;
      if (past || answer == KnownMessages::Answer::kKnown) {
        foresight.Skipped();
        continue;
      }
    }
    ++progress.taken;
    if (selection.whole && reader_.InStep()) foresight.AtMessage(number);
    if (!selection.take(number, std::move(header))) break;
    foresight.Took(selection.whole ? text_bytes_ : 0);
  }
  progress.bytes = looked_at_bytes_;
  if (progress_) progress_(progress);
  return true;
} catch (const DatabaseError& fault) {
  WriteDebugLog(user_->DebugMode(), user_->PathLog(), "MailServer.Select", fault.what());
  SetError(error::DatabaseFault);
  return true;
}

}  // namespace korvane
