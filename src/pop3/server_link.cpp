#include "pop3/server_link.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "Tarsel_MailConversions.h"
#include "facade/mail_user.h"
#include "pop3/host_scheme.h"

namespace korvane {
namespace {

using Shape = ReplyLook::Shape;

constexpr int32_t kFailed = -1;
/// A greeting or a reply to a login longer than this is no server's.
constexpr size_t kLongestLine = 16384;

void Wipe(std::string& text) {
  volatile char* bytes = text.data();
  for (size_t i = 0; i < text.size(); ++i) bytes[i] = '\0';
  text.clear();
}

/// A reply to UIDL that could as well be one to LIST, one line too late.
bool MayBeSize(std::string_view reply) {
  const size_t blank = reply.find(' ', reply.find(' ') + 1);
  if (blank == std::string_view::npos) return false;
  return reply.find_first_not_of("0123456789\r\n", blank + 1) == std::string_view::npos;
}

}  // namespace

bool ServerLink::Open(const std::shared_ptr<MailUser>& user, int32_t timeout) {
  host_ = user->MailServer();
  port_ = user->ServerPort();
  name_ = user->Username();
  user_ = user;
  timeout_ = timeout;
  if (MPconnect(&socket_, port_, host_.c_str(), timeout_) != 0) return false;
  open_ = true;
  reads_ahead_ = ReadHostScheme(host_, port_).reads_ahead;
  Forget();
  count_.clear();
  witness_.reset();
  deleted_.clear();
  return true;
}

void ServerLink::Close() {
  Break();
  reads_ahead_ = false;
  Forget();
}

/// Nothing is on its way any more.
void ServerLink::Forget() {
  ahead_.clear();
  command_bytes_ = 0;
  answering_ = false;
  end_ = ready_ = taken_ = 0;
  ended_ = 1;
  after_drop_ = false;
  std::string().swap(input_);
}

bool ServerLink::Send(std::string_view line) {
  if (answering_) EndAnswering();
  if (!ahead_.empty() && ahead_.front().line == line) {
    answering_ = true;
    answering_since_ = Clock::now();
    shape_ = ReplyShape(ahead_.front().reply);
    return true;
  }
  // A connection that could not be had again fails at the receive, which leaves an error.
  if (!ahead_.empty() && !Settle()) return true;
  return SendNow(std::string(line));
}

bool ServerLink::SendNow(const std::string& line) {
  if (after_drop_) last_line_ = line;
  return MPsend(socket_, line.data(), static_cast<int32_t>(line.size())) > 0 || SendAfterDrop();
}

/// A command whose reply was dropped may have been the server's last. False when that cannot be why
/// the connection has ended.
bool ServerLink::SendAfterDrop() {
  if (!std::exchange(after_drop_, false) || !open_) return false;
  if (Reconnect()) {
    return MPsend(socket_, last_line_.data(), static_cast<int32_t>(last_line_.size())) > 0;
  }
  Break();
  return false;
}

void ServerLink::Announce(const std::vector<Command>& commands) {
  if (!reads_ahead_ || ended_ <= 0 || commands.empty()) return;
  std::string lines;
  for (const Command& command : commands) lines += command.line;
  ahead_.insert(ahead_.end(), commands.begin(), commands.end());
  command_bytes_ += lines.size();
  // Where this fails, the session finds out when it waits for a reply.
  MPsend(socket_, lines.data(), static_cast<int32_t>(lines.size()));
}

void ServerLink::NoteCount(std::string_view reply) {
  if (count_.empty()) count_ = reply;
}

int32_t ServerLink::Receive(char* buffer, int32_t capacity) {
  if (!answering_) return ReceiveNow(buffer, capacity);
  for (;;) {
    switch (Prepare()) {
      case Ready::kBlock:
        return HandOn(buffer, capacity);
      case Ready::kMisfit:
        reads_ahead_ = false;
        return AskAgain();
      case Ready::kUnsure:
        return AskAgain();
      case Ready::kNothing:
        break;
    }
    waited_ = true;
    int32_t result = ended_;
    if (result > 0) {
      const Clock::time_point begin = Clock::now();
      const bool between = !shape_.InText() || end_ > 0;
      result = begin - answering_since_ < patience_ ? Fill() : kFailed;
      if (between) idle_ += Clock::now() - begin;
    }
    if (!open_) return kFailed;  // closed while it waited
    if (result > 0) continue;
    ended_ = result;
    result = AtEnd(result);
    if (result != 1) return result;
  }
}

int32_t ServerLink::ReceiveNow(char* buffer, int32_t capacity) {
  int32_t count = open_ ? MPrecv(socket_, buffer, capacity) : kFailed;
  if (count <= 0 && SendAfterDrop()) count = MPrecv(socket_, buffer, capacity);
  after_drop_ = false;
  return count;
}

/// Looks what of the reply may be handed on.
ServerLink::Ready ServerLink::Prepare() {
  if (ready_ > 0) return Ready::kBlock;
  if (end_ == 0) {
    const ReplyLook look = shape_.Look(Waiting());
    if (look.shape == Shape::kOther) return Ready::kMisfit;
    if (look.shape == Shape::kPart) {
      ready_ = look.length;
      return ready_ > 0 ? Ready::kBlock : Ready::kNothing;
    }
    end_ = look.length;
  }
  const Ready follow = LookAtWhatFollows();
  if (follow != Ready::kBlock) return follow;
  if (ahead_.front().reply.form == ReplyForm::kUniqueId) {
    witness_ = ahead_.front();
    witness_reply_ = Waiting().substr(0, end_);
  }
  ready_ = end_;
  return Ready::kBlock;
}

/// A reply counts when what follows it is what has to follow, up to the beginning of the next text.
/// So a line too many or too few shows before anything is taken for what it is not.
ServerLink::Ready ServerLink::LookAtWhatFollows() const {
  std::string_view reply = Waiting().substr(0, end_);
  std::string_view behind = Waiting().substr(end_);
  bool doubtful = false;
  for (size_t i = 0;;) {
    doubtful = doubtful || (ahead_[i].reply.form == ReplyForm::kUniqueId && MayBeSize(reply));
    if (++i == ahead_.size()) {
      if (!behind.empty()) return Ready::kMisfit;
      return doubtful ? Ready::kUnsure : Ready::kBlock;
    }
    ReplyShape next(ahead_[i].reply);
    const bool is_text = ahead_[i].reply.form == ReplyForm::kText;
    const ReplyLook look = is_text ? ReplyLook{next.LookAtStart(behind)} : next.Look(behind);
    if (look.shape == Shape::kOther) return Ready::kMisfit;
    if (look.shape == Shape::kPart) {
      if (ended_ > 0) return Ready::kNothing;
      // Nothing more comes that could tell.
      doubtful = doubtful || (ahead_[i].reply.form == ReplyForm::kUniqueId && MayBeSize(behind));
      return doubtful ? Ready::kMisfit : Ready::kBlock;
    }
    if (is_text) {
      // A status line may hold any text, and so what was the unique id.
      const std::string id = "+OK " + std::to_string(ahead_[i - 1].reply.number) + " ";
      return doubtful && behind.starts_with(id) ? Ready::kMisfit : Ready::kBlock;
    }
    reply = behind.substr(0, look.length);
    behind.remove_prefix(look.length);
  }
}

int32_t ServerLink::HandOn(char* buffer, int32_t capacity) {
  const size_t count = std::min(ready_, static_cast<size_t>(capacity));
  std::memcpy(buffer, input_.data() + taken_, count);
  taken_ += count;
  ready_ -= count;
  shape_.HandOn(count);
  if (end_ > 0) end_ -= count;
  return static_cast<int32_t>(count);
}

/// The session came to the next command, so the reply was whole.
void ServerLink::EndAnswering() {
  answering_ = false;
  command_bytes_ -= ahead_.front().line.size();
  ahead_.pop_front();
  end_ = ready_ = 0;
}

/// Appends one block to what waits.
int32_t ServerLink::Fill() {
  if (taken_ > 0) {
    input_.erase(0, taken_);
    taken_ = 0;
  }
  const size_t before = input_.size();
  input_.resize(before + kBlock);
  const int32_t count = MPrecv(socket_, input_.data() + before, kBlock);
  if (open_) input_.resize(before + static_cast<size_t>(std::max(count, 0)));
  return count;
}

/// The server fell silent or closed before the reply, or what must follow it, was there. 1 when
/// there is something to hand on all the same, else what Receive returns.
int32_t ServerLink::AtEnd(int32_t result) {
  if (end_ > 0) return 1;  // whole; of what follows only the beginning is missing
  const size_t part = Waiting().size();
  if (part == 0 || shape_.InText()) return result;
  // Lock-step would take a part of a status line for the reply. A closed connection is still the
  // session's last word; one that is only silent goes on, with replies that shift.
  if (result == kFailed && Fill() != 0) {
    reads_ahead_ = false;
    return AskAgain();
  }
  if (!open_) return kFailed;
  ready_ = part;
  ahead_.erase(ahead_.begin() + 1, ahead_.end());
  command_bytes_ = ahead_.front().line.size();
  reads_ahead_ = false;
  return 1;
}

/// The reply does not count.
int32_t ServerLink::AskAgain() {
  const std::string line = ahead_.front().line;
  if (!Settle()) return kFailed;
  return SendNow(line) ? kAskedAgain : kFailed;
}

/// Nothing is on its way afterwards. False when the session cannot go on.
bool ServerLink::Settle() {
  if (ended_ > 0 && DropOutstanding()) {
    Forget();
    after_drop_ = true;
    return true;
  }
  Forget();
  reads_ahead_ = false;
  if (Reconnect()) return true;
  Break();
  return false;
}

/// What is received next fails.
void ServerLink::Break() {
  if (std::exchange(open_, false)) MPclose(socket_);
}

/// Receives the replies on their way and drops them. False when they cannot be told apart. A
/// refusal is a reply as well, but the last one must be the one that it has to be: only then is it
/// certain that none is left.
bool ServerLink::DropOutstanding() {
  const Clock::time_point until = Clock::now() + patience_;
  int64_t dropped = 0;
  bool begun = answering_;
  if (answering_ && end_ > 0) {
    taken_ += end_;
    ahead_.pop_front();
    begun = false;
  }
  while (!ahead_.empty()) {
    const ExpectedReply expected = ahead_.front().reply;
    if (!std::exchange(begun, true)) shape_ = ReplyShape(expected);
    const std::string_view bytes = Waiting();
    const bool in_text =
        expected.form == ReplyForm::kText && (shape_.InText() || bytes.starts_with('+'));
    ReplyLook look{Shape::kPart};
    if (in_text || ahead_.size() == 1) {
      look = shape_.Look(bytes);
    } else if (const size_t end = EndOfAnyLine(bytes); end > 0) {
      look =
          end == std::string_view::npos ? ReplyLook{Shape::kOther} : ReplyLook{Shape::kWhole, end};
    }
    if (look.shape == Shape::kOther) return false;
    taken_ += look.length;
    shape_.HandOn(look.length);
    if (look.shape == Shape::kWhole) {
      ahead_.pop_front();
      begun = false;
      continue;
    }
    const int32_t count = Clock::now() < until ? Fill() : kFailed;
    if (count <= 0 || !open_) return false;
    dropped += count;
    if (dropped > kMostDroppedBytes) return false;
  }
  return Waiting().empty();
}

/// A new connection in the place of the old one, with the mailbox as it was.
bool ServerLink::Reconnect() {
  const std::shared_ptr<MailUser> user = user_.lock();
  if (!open_ || count_.empty() || !user || user->MailServer() != host_ ||
      user->ServerPort() != port_ || user->Username() != name_) {
    return false;
  }
  MPclose(socket_);
  open_ = MPconnect(&socket_, port_, host_.c_str(), timeout_) == 0;
  const auto agrees = [&](const std::string& line) {
    const auto reply = Ask(line);
    return reply && reply->starts_with('+');
  };
  const auto greeting = open_ ? ReadLine() : std::nullopt;
  if (!greeting || !greeting->starts_with('+') || !agrees("USER " + name_ + "\r\n")) return false;
  std::string password = "PASS " + user->Password() + "\r\n";
  const bool known = agrees(password);
  Wipe(password);
  if (!known || Ask("STAT\r\n") != count_) return false;
  // As many messages of the same size all together might still be other messages. And a server that
  // hung up behind this very reply does so again.
  if (witness_ && Ask(witness_->line) != witness_reply_) return false;
  return std::all_of(deleted_.begin(), deleted_.end(), [&](int32_t number) {
    return agrees("DELE " + std::to_string(number) + "\r\n");
  });
}

std::optional<std::string> ServerLink::Ask(const std::string& line) {
  if (MPsend(socket_, line.data(), static_cast<int32_t>(line.size())) < 1) return std::nullopt;
  return ReadLine();
}

std::optional<std::string> ServerLink::ReadLine() {
  const Clock::time_point until = Clock::now() + patience_;
  std::string line;
  std::string block(kBlock, '\0');
  for (;;) {
    const int32_t count = MPrecv(socket_, block.data(), kBlock);
    if (count <= 0 || !open_ || Clock::now() > until) return std::nullopt;
    line.append(block, 0, static_cast<size_t>(count));
    const size_t end = line.find('\n');
    if (end != std::string::npos) return line.substr(0, end + 1);
    if (line.size() > kLongestLine) return std::nullopt;
  }
}

}  // namespace korvane
