// The session: connecting, logging in, the command loop and the handlers of the commands.
#include <algorithm>
#include <array>
#include <cassert>
#include <new>
#include <utility>

#include "facade/mail_user.h"
#include "frame/code_page.h"
#include "frame/error_numbers.h"
#include "pop3/foresight.h"
#include "pop3/mail_server.h"

namespace korvane {
namespace {

/// What the sockets take for a time-out of 0 or less.
constexpr int32_t kDefaultTimeout = 60000;
/// A name or password longer than this is no account's.
constexpr size_t kLongestCredential = 8192;
/// A shorter password is likely to be a word of the server's own; to hide it would give it away.
constexpr size_t kShortestHiddenPassword = 6;

/// True when the text can stand in a command line without ending it.
bool FitsInCommand(std::string_view text) {
  return text.size() <= kLongestCredential &&
         text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

/// Overwrites before the memory is given back.
void Wipe(std::string& text) {
  volatile char* bytes = text.data();
  for (size_t i = 0; i < text.size(); ++i) bytes[i] = '\0';
  text.clear();
}

/// Some servers repeat what they did not like.
std::string HidePassword(std::string text, const std::string& password) {
  if (password.size() < kShortestHiddenPassword) return text;
  constexpr std::string_view kHidden = "***";
  std::string shown;
  size_t from = 0;
  for (size_t at; (at = text.find(password, from)) != std::string::npos;
       from = at + password.size()) {
    shown.append(text, from, at - from).append(kHidden);
  }
  return from == 0 ? text : shown.append(text, from);
}

}  // namespace

bool MailServer::SetUser(std::shared_ptr<MailUser> user) {
  if (state_ != State::kNotConnected || !done_) return false;
  ClearError();
  user_ = std::move(user);
  return true;
}

void MailServer::SetLimits(const Limits& limits) {
  limits_ = limits;
  reader_.SetLimits(limits.reply);
}

bool MailServer::Connect() {
  if (state_ != State::kNotConnected || !done_) return false;
  ClearError();
  if (!user_) {
    SetError(error::ConnectWithoutAccount);
    return false;
  }
  server_timeout_ = user_->ServerTimeout();
  const std::string& host = user_->MailServer();
  if (!user_->HasPassword() || !FitsInCommand(user_->Username()) ||
      !FitsInCommand(user_->Password()) || host.find('\0') != std::string::npos ||
      !link_.Open(user_, server_timeout_)) {
    SetError(error::ConnectFailed);
    return false;
  }
  link_.SetPatience(Patience());
  deleted_.clear();
  message_count_ = -1;
  mailbox_bytes_ = -1;
  reader_.Reset();
  Run(Command::kGreeting, false);
  return NoError();
}

bool MailServer::Disconnect() {
  if (state_ == State::kNotConnected && done_) return false;
  ClearError();
  if (!done_) {
    SetError(error::DisconnectWhileBusy);
    CloseConnection();
    return false;
  }
  Run(Command::kQuit);
  return NoError();
}

void MailServer::CloseConnection() {
  link_.Close();
  deleted_.clear();
  Finish(State::kNotConnected);
}

void MailServer::Run(Command command, bool send_first) try {
  if (send_first && state_ == State::kNotConnected) return;  // closed by whoever watches
  done_ = false;
  command_ = command;
  if (send_first) {
    Start(command);
  } else {
    reader_.Expect(ReplyKind::kLine);
    command_began_ = std::chrono::steady_clock::now();
    command_bytes_ = 0;
  }
  while (!done_) Receive();
} catch (const std::bad_alloc&) {
  GiveUp();
}

void MailServer::Receive() {
  received_ = link_.Receive(recv_buffer_.data(), kReceiveBuffer);
  if (done_) return;  // closed while it waited
  if (received_ == ServerLink::kAskedAgain) return AskedAgain();
  if (received_ <= 0) {
    // A status line whose end does not come is a reply all the same.
    reader_.TakeWhatCame() ? Handle() : GiveUp();
    return;
  }
  command_bytes_ += received_;
  switch (reader_.Feed({recv_buffer_.data(), static_cast<size_t>(received_)})) {
    case ReplyReader::Progress::kMore:
      if (Overdue()) {
        GiveUp();
      } else if (reader_.InText() && state_ != State::kMultiLine) {
        Enter(State::kMultiLine);
      }
      break;
    case ReplyReader::Progress::kComplete:
      Handle();
      break;
    case ReplyReader::Progress::kTooLong:
      GiveUp();
      break;
  }
}

std::chrono::milliseconds MailServer::Patience() const {
  const int64_t timeout = server_timeout_ > 0 ? server_timeout_ : kDefaultTimeout;
  return std::chrono::milliseconds(timeout * limits_.timeouts_per_command);
}

bool MailServer::Overdue() const {
  return std::chrono::steady_clock::now() - command_began_ >
         Patience() + std::chrono::milliseconds(command_bytes_);
}

void MailServer::Handle() {
  switch (command_) {
    case Command::kGreeting:
      return OnGreeting();
    case Command::kLogin:
      return OnLogin();
    case Command::kQuit:
      return CloseConnection();  // whatever the answer says
    case Command::kTop:
      return OnText(State::kTop);
    case Command::kRetr:
      return OnText(State::kRetr);
    case Command::kStat:
      return OnStat();
    case Command::kDele:
      return OnDele();
    case Command::kList:
      return OnList();
    case Command::kUidl:
      return OnUidl();
    case Command::kNone:
      break;
  }
}

void MailServer::OnGreeting() {
  // A server that turns the connection away is no error: the next operation finds no session.
  Chain(IsPositiveReply(reader_.Status()) ? Command::kLogin : Command::kQuit);
}

void MailServer::OnLogin() {
  if (!IsPositiveReply(reader_.Status())) {
    Reject(state_);
    Chain(Command::kQuit);
  } else if (state_ == State::kUser) {
    Send(State::kPass, "PASS " + user_->Password());
    Wipe(command_line_);
  } else {
    Finish(State::kIdle);
  }
}

void MailServer::OnText(State step) {
  if (!reader_.InText()) {
    Reject(step);
    return Finish(State::kIdle);
  }
  if (state_ != State::kMultiLine) Enter(State::kMultiLine);
  data_ = reader_.TakeText();
  Chain(Command::kList);
}

void MailServer::OnStat() {
  if (IsPositiveReply(reader_.Status())) {
    link_.NoteCount(reader_.Status());
    const std::optional<int32_t> count = StatCount(reader_.Status());
    count_read_ = count.has_value();
    if (mailbox_bytes_ < 0) mailbox_bytes_ = StatSize(reader_.Status());
    message_count_ = count.value_or(0);
  } else {
    Reject(state_);
  }
  Finish(State::kIdle);
}

void MailServer::OnDele() {
  if (!IsPositiveReply(reader_.Status())) Reject(state_);
  Finish(State::kIdle);
}

void MailServer::OnList() {
  if (!IsPositiveReply(reader_.Status())) {
    Reject(state_);
  } else if (const ReplyField field = SecondReplyField(reader_.Status()); field.error != 0) {
    SetError(field.error);
  } else {
    message_size_ = std::max(ReplyNumber(field.value), 0);
  }
  Finish(State::kIdle);
}

void MailServer::OnUidl() {
  if (!IsPositiveReply(reader_.Status())) {
    Reject(state_);
  } else if (const ReplyField field = SecondReplyField(reader_.Status()); field.error != 0) {
    SetError(field.error);
  } else {
    uidl_ = ToUtf8(std::string(field.value));
  }
  Finish(State::kIdle);
}

void MailServer::Start(Command command) {
  const std::string number = std::to_string(message_number_);
  switch (command) {
    case Command::kLogin:
      return Send(State::kUser, "USER " + user_->Username());
    case Command::kQuit:
      return Send(State::kQuit, "QUIT");
    case Command::kTop:
      return Send(State::kTop, "TOP " + number + " 0");
    case Command::kRetr:
      return Send(State::kRetr, "RETR " + number);
    case Command::kStat:
      return Send(State::kStat, "STAT");
    case Command::kDele:
      return Send(State::kDele, "DELE " + number);
    case Command::kList:
      return Send(State::kList, "LIST " + number);
    case Command::kUidl:
      return Send(State::kUidl, "UIDL " + number);
    case Command::kNone:
    case Command::kGreeting:
      break;
  }
}

void MailServer::Send(State step, std::string line) {
  Enter(step);
  command_line_ = std::move(line);
  command_line_ += "\r\n";
  Expect(step);
  if (!link_.Send(command_line_)) CloseConnection();
}

void MailServer::Expect(State step) {
  reader_.Expect(step == State::kTop    ? ReplyKind::kHeader
                 : step == State::kRetr ? ReplyKind::kMessage
                                        : ReplyKind::kLine);
  command_began_ = std::chrono::steady_clock::now();
  command_bytes_ = 0;
}

/// The reply that was under way does not count: the same command went out again.
void MailServer::AskedAgain() {
  if (state_ == State::kMultiLine) Enter(command_ == Command::kTop ? State::kTop : State::kRetr);
  Expect(state_);
}

/// The one door between the steps.
void MailServer::Enter(State next) {
  assert(MayFollow(state_, next));
  state_ = next;
}

bool MailServer::MayFollow(State from, State to) {
  if (to == State::kNotConnected) return true;  // a connection may break anywhere
  switch (from) {
    case State::kNotConnected:
      return to == State::kUser || to == State::kQuit;
    case State::kUser:
      return to == State::kPass || to == State::kQuit;
    case State::kPass:
      return to == State::kIdle || to == State::kQuit;
    case State::kIdle:
      return to == State::kStat || to == State::kList || to == State::kUidl || to == State::kRetr ||
             to == State::kTop || to == State::kDele || to == State::kQuit;
    case State::kRetr:
    case State::kTop:
      return to == State::kMultiLine || to == State::kIdle;
    case State::kMultiLine:
      return to == State::kList || to == State::kTop || to == State::kRetr;
    case State::kStat:
    case State::kList:
    case State::kUidl:
    case State::kDele:
      return to == State::kIdle;
    case State::kQuit:
      return false;
  }
  return false;
}

void MailServer::Finish(State result) {
  command_ = Command::kNone;
  Enter(result);
  done_ = true;
}

int32_t MailServer::RejectionNumber(State step) {
  switch (step) {
    case State::kUser:
      return error::ServerRefusedUser;
    case State::kPass:
      return error::ServerRefusedPassword;
    case State::kStat:
      return error::ServerRefusedStat;
    case State::kRetr:
      return error::ServerRefusedRetr;
    case State::kDele:
      return error::ServerRefusedDele;
    case State::kQuit:
      return error::ServerRefusedQuit;
    case State::kTop:
      return error::ServerRefusedTop;
    case State::kList:
      return error::ServerRefusedList;
    case State::kUidl:
      return error::ServerRefusedUidl;
    case State::kIdle:
    case State::kNotConnected:
    case State::kMultiLine:
      break;
  }
  return error::ServerRefused;
}

void MailServer::Reject(State step) {
  SetError(RejectionNumber(step), ToUtf8(HidePassword(reader_.Status(), user_->Password())));
}

void MailServer::GiveUp() {
  // What made the session end says more than how the end went.
  if (command_ != Command::kQuit || NoError()) SetError(error::ReceiveFailed);
  CloseConnection();
  reader_.Reset();  // what came of a long text is not kept
}

}  // namespace korvane
