// The connection under a session. The session sends a command line and receives the blocks of its
// reply, one command after the other; that is all it knows.
//
// For an account that reads ahead, commands that the session is about to send may be announced:
// they go out at once, and when the session comes to one of them it is not sent again, only its
// reply is received. The session gets the very blocks that it would get in lock-step, so nothing
// above can differ.
//
// A reply counts only when it has exactly the shape it must have and what follows it begins as the
// next one must. At the first that does not, reading ahead ends for the session: what is still on
// its way is received and dropped, and the command is sent again, in lock-step. The same happens,
// but reading ahead goes on, when the session wants another command than the one announced. Where
// the replies on their way cannot be told apart, or the server hung up over a command that the
// session never came to, the session goes on over a new connection, after it was made sure that the
// mailbox is the same and what was deleted is deleted again.
//
// Only TOP, RETR, LIST and UIDL are announced, which change nothing on the server.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "reply_shape.h"

namespace korvane {

class MailUser;

class ServerLink {
 public:
  /// A command as it goes out, and the reply that it must have.
  struct Command {
    std::string line;
    ExpectedReply reply;
  };
  /// What Receive returns when the reply so far is void and the command was sent once more.
  static constexpr int32_t kAskedAgain = -1000;
  /// What one receive may bring.
  static constexpr int32_t kBlock = 16384;
  /// So many bytes of announced commands may be without a reply. They fit into what a system keeps
  /// for a connection that its peer does not read from, so that sending never waits for a server
  /// which itself waits for its replies to be read.
  static constexpr size_t kMostCommandBytes = 24 * 1024;
  /// A new connection is cheaper than dropping more than this.
  static constexpr int64_t kMostDroppedBytes = int64_t{4} << 20;

  bool Open(const std::shared_ptr<MailUser>& user, int32_t timeout);
  void Close();
  bool IsOpen() const { return open_; }

  /// False when the line could not be sent.
  bool Send(std::string_view line);
  /// As MPrecv, `capacity` being kBlock at least, or kAskedAgain.
  int32_t Receive(char* buffer, int32_t capacity);

  /// True for an account that reads ahead, as long as every reply fits.
  bool ReadsAhead() const { return reads_ahead_; }
  /// Commands announced and not yet asked for by the session.
  size_t Announced() const { return ahead_.size() - (answering_ ? 1 : 0); }
  /// The line of the first of them; only where there is one.
  const std::string& Next() const { return ahead_[answering_ ? 1 : 0].line; }
  bool HasRoomFor(size_t bytes) const { return command_bytes_ + bytes <= kMostCommandBytes; }
  /// Sends commands, in the order in which the session will ask for them.
  void Announce(const std::vector<Command>& commands);
  /// True when the session had to wait for a reply since this was last asked.
  bool HadToWait() { return std::exchange(waited_, false); }
  /// How long, since this was last asked, nothing came: what there was had been read to its end,
  /// and the next reply had not begun.
  std::chrono::steady_clock::duration Idle() { return std::exchange(idle_, {}); }

  /// What a new connection must find again, and do again.
  void NoteCount(std::string_view reply);
  void NoteDeleted(int32_t number) { deleted_.push_back(number); }
  /// How long one reply may take, and how long the sockets wait.
  void SetPatience(std::chrono::milliseconds patience) { patience_ = patience; }

 private:
  using Clock = std::chrono::steady_clock;
  enum class Ready { kBlock, kNothing, kMisfit, kUnsure };

  bool SendNow(const std::string& line);
  bool SendAfterDrop();
  int32_t ReceiveNow(char* buffer, int32_t capacity);
  int32_t Fill();
  Ready Prepare();
  Ready LookAtWhatFollows() const;
  int32_t HandOn(char* buffer, int32_t capacity);
  int32_t AtEnd(int32_t result);
  int32_t AskAgain();
  bool Settle();
  void Break();
  bool DropOutstanding();
  bool Reconnect();
  std::optional<std::string> Ask(const std::string& line);
  std::optional<std::string> ReadLine();
  void EndAnswering();
  void Forget();
  std::string_view Waiting() const { return std::string_view(input_).substr(taken_); }

  int32_t socket_ = 0;
  bool open_ = false;
  bool reads_ahead_ = false;
  std::weak_ptr<MailUser> user_;
  std::string host_;  ///< with the port and the name: whose connection this is
  int32_t port_ = 0;
  std::string name_;
  int32_t timeout_ = 0;
  std::chrono::milliseconds patience_{0};

  std::deque<Command> ahead_;  ///< sent; the first may be the one whose reply the session receives
  size_t command_bytes_ = 0;   ///< of ahead_
  bool answering_ = false;
  Clock::time_point answering_since_;
  ReplyShape shape_;
  size_t end_ = 0;     ///< of the reply in Waiting(), once it is whole
  size_t ready_ = 0;   ///< so many bytes may be handed on
  int32_t ended_ = 1;  ///< what the last receive said when it brought nothing
  bool waited_ = false;
  Clock::duration idle_{};
  bool after_drop_ = false;  ///< nothing was received since replies were dropped
  std::string last_line_;    ///< sent since then
  std::string input_;
  size_t taken_ = 0;  ///< of input_

  std::string count_;               ///< the first reply to STAT
  std::optional<Command> witness_;  ///< the last UIDL command whose reply counted
  std::string witness_reply_;
  std::vector<int32_t> deleted_;
};

}  // namespace korvane
