// The operations of one message, and the object's life.
#include "pop3/mail_server.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "facade/mail_user.h"
#include "frame/error_numbers.h"

namespace korvane {

MailServer::MailServer() = default;
MailServer::~MailServer() { Disconnect(); }

/// What every operation on an idle session starts with.
bool MailServer::Begin() {
  if (!IsIdle()) return false;
  ClearError();
  return true;
}

/// Runs STAT. False when there is no count to go by.
bool MailServer::Stat() {
  Run(Command::kStat);
  return NoError() && IsIdle();
}

int32_t MailServer::GetMessagesCount() { return Begin() && Stat() ? message_count_ : -1; }

/// The highest number. Numbers stay as they are until QUIT, while STAT no longer counts what the
/// session deleted.
int32_t MailServer::LastNumber() const {
  const int64_t last = int64_t{message_count_} + static_cast<int64_t>(deleted_.size());
  return static_cast<int32_t>(std::min<int64_t>(last, std::numeric_limits<int32_t>::max()));
}

/// True when the last command went well or the server only does not know LIST or UIDL: a message is
/// worth more than its size and its unique id.
bool MailServer::Tolerates(int32_t refusal) {
  if (!IsIdle()) return false;
  const int32_t number = GetLastError();
  if (number == refusal || number == error::ReplyWithoutField ||
      number == error::ReplyWithoutValue) {
    ClearError();
  }
  return NoError();
}

bool MailServer::AskUidl(int32_t number) {
  message_number_ = number;
  uidl_.clear();
  Run(Command::kUidl);
  return NoError() && IsIdle();
}

/// A message's header (TOP) or the whole of it (RETR); `ask_uidl` is false when its unique id was
/// just asked for. Nothing without an error, the session idle, is an empty one.
std::optional<ServerMessage> MailServer::Fetch(int32_t number, Command command, bool ask_uidl) {
  message_number_ = number;
  message_size_ = 0;
  Run(command);
  std::string text = std::exchange(data_, {});
  if (!Tolerates(error::ServerRefusedList)) return std::nullopt;
  if (ask_uidl) {
    uidl_.clear();
    Run(Command::kUidl);
    if (!Tolerates(error::ServerRefusedUidl)) return std::nullopt;
  }
  if (text.empty()) return std::nullopt;
  return ServerMessage{number, message_size_, uidl_, std::move(text)};
}

std::shared_ptr<MailMessage> MailServer::FetchHeader(int32_t number) {
  auto fetched = Fetch(number, Command::kTop);
  if (!fetched) return nullptr;
  auto message = std::make_shared<MailMessage>();
  message->LoadHeader(user_, number, fetched->size, fetched->uidl, std::move(fetched->text));
  return message;
}

std::shared_ptr<MailMessage> MailServer::FetchWhole(int32_t number, std::string_view separator,
                                                    bool ask_uidl) {
  auto fetched = Fetch(number, Command::kRetr, ask_uidl);
  if (!fetched) return nullptr;
  // A message that is damaged in part has its own error; it is still there to be read.
  auto message = std::make_shared<MailMessage>();
  message->LoadWholeMessage(user_, number, fetched->size, fetched->uidl, separator,
                            std::move(fetched->text));
  return message;
}

std::shared_ptr<MailMessage> MailServer::GetMessageHeader(int32_t number) {
  if (!Begin()) return nullptr;
  auto message = FetchHeader(number);
  if (!message && NoError() && IsIdle()) SetError(error::EmptyHeader);
  return message;
}

std::shared_ptr<MailMessage> MailServer::GetFullMessage(int32_t number,
                                                        std::string_view separator) {
  if (!Begin()) return nullptr;
  auto message = FetchWhole(number, separator);
  if (!message && NoError() && IsIdle()) SetError(error::EmptyMessage);
  return message;
}

std::shared_ptr<MailMessage> MailServer::GetFullMessageByUIDL(int32_t number,
                                                              std::string_view expected,
                                                              std::string_view separator) {
  if (!Begin() || !AskUidl(number) || uidl_ != expected) return nullptr;
  auto message = FetchWhole(number, separator, false);
  if (!message && NoError() && IsIdle()) SetError(error::EmptyMessage);
  return message;
}

/// Runs DELE. False without an error when it could not even be sent.
bool MailServer::Delete(int32_t number) {
  message_number_ = number;
  Run(Command::kDele);
  if (!NoError() || !IsIdle()) return false;
  deleted_.insert(number);
  link_.NoteDeleted(number);
  return true;
}

bool MailServer::DeleteServerMessage(int32_t number) { return Begin() && Delete(number); }

bool MailServer::DeleteServerMessageByUIDL(int32_t number, std::string_view expected) {
  return Begin() && AskUidl(number) && uidl_ == expected && Delete(number);
}

}  // namespace korvane
