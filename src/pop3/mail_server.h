// MailServer: the POP3 client (RFC 1939). A command is started by sending its line; every block of
// bytes that arrives goes to the handler of the command in progress, which moves the step on, may
// send the next line, and finishes the command. docs/pop3.md draws the states.
//
// session.cpp holds the loop, the handlers and the login; mail_server.cpp the operations of one
// message; page.cpp, selection.cpp and finding.cpp the operations made of many. server_link.h is
// the connection, which may send a selection's commands ahead.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "../frame/any.h"
#include "../frame/database.h"
#include "../frame/error_state.h"
#include "../message/mail_messages.h"
#include "message_traits.h"
#include "new_messages.h"
#include "replies.h"
#include "selection_progress.h"
#include "server_link.h"

namespace korvane {

class Foresight;
class MailUser;

class MailServer : public Object, public ErrorState {
 public:
  /// Step codes.
  enum class State : int32_t {
    kIdle = 2,  ///< logged in, commands may be given
    kNotConnected = 3,
    kUser = 4,
    kPass = 5,
    kStat = 6,
    kList = 7,
    kUidl = 8,
    kRetr = 9,
    kTop = 10,
    kDele = 11,
    kQuit = 12,
    kMultiLine = 13,  ///< further blocks of TOP or RETR awaited
  };
  /// Command codes.
  enum class Command : int32_t {
    kNone = 0,
    kGreeting,
    kLogin,
    kQuit,
    kTop,
    kRetr,
    kStat,
    kDele,
    kList,
    kUidl,
  };

  MailServer();
  ~MailServer() override;  ///< sends QUIT when still connected
  MailServer(const MailServer&) = delete;
  MailServer& operator=(const MailServer&) = delete;

  int32_t ServerTimeout() const { return server_timeout_; }
  void ServerTimeout(int32_t value) { server_timeout_ = value; }
  bool SetUser(std::shared_ptr<MailUser> user);

  /// Connects and logs in. True also when the server turns the connection away with its greeting:
  /// the session is then over, and every operation refuses. Errors 1062, 1063, 1093, 1202, 1203.
  bool Connect();
  /// QUIT. Errors 1063 and 1094.
  bool Disconnect();
  /// Closes without QUIT: what was deleted in the session stays on the server.
  void CloseConnection();
  bool IsIdle() const { return state_ == State::kIdle && done_; }
  State state() const { return state_; }

  // The operations do nothing unless the session is idle. Every one may fail with 1063.

  /// -1 when it fails. Error 1204.
  int32_t GetMessagesCount();
  /// Errors 1049, 1208.
  std::shared_ptr<MailMessage> GetMessageHeader(int32_t number);
  /// Errors 1050, 1205.
  std::shared_ptr<MailMessage> GetFullMessage(int32_t number, std::string_view separator);
  /// Nothing, without an error, when the unique id is another one. Errors 1050, 1075, 1076, 1205,
  /// 1210.
  std::shared_ptr<MailMessage> GetFullMessageByUIDL(int32_t number, std::string_view expected,
                                                    std::string_view separator);
  /// Errors 1064, 1065, 1066, 1204, 1205. `traits` tell messages apart that have neither a
  /// "received" line nor an identifier.
  std::shared_ptr<MailMessage> FindFullMessage(int32_t start, std::string_view received,
                                               std::string_view message_id,
                                               std::string_view separator,
                                               const MessageTraits* traits = nullptr);
  /// Error 1206.
  bool DeleteServerMessage(int32_t number);
  /// False, without an error, when the unique id is another one. Errors 1075, 1076, 1206, 1210.
  bool DeleteServerMessageByUIDL(int32_t number, std::string_view expected);
  /// True also when the message is no longer there. Errors 1065 (several messages without texts fit
  /// alike), 1071, 1204, 1206.
  bool FindAndDeleteMessage(int32_t start, std::string_view received, std::string_view message_id,
                            const MessageTraits* traits = nullptr);
  /// The newest messages are page 1; -1 is all. Errors 1067, 1089 (a page size below 1), 1204.
  std::shared_ptr<MailMessages> GetHeadersPage(int32_t page, Any* total_pages, Any* total_messages);
  /// The messages not yet downloaded, newest first. On an error what was taken before it is still
  /// returned. `last_time` is day first. Errors 1008, 1068, 1204.
  std::unique_ptr<NewMessages> GetNewHeaders(Connection& connection, const std::string& last_time,
                                             bool first_download);
  /// The same, whole. Errors 1008, 1069, 1070, 1204.
  std::unique_ptr<NewMessages> GetNewMessages(Connection& connection, const std::string& last_time,
                                              bool first_download, std::string_view separator);

  /// The "received" text of the newest message that the last selection looked at, or nothing when
  /// it found none on the server.
  const std::optional<std::string>& NewestReceived() const { return newest_received_; }

  /// Called while a selection goes on.
  using Progress = std::function<void(const SelectionProgress&)>;
  void OnProgress(Progress progress) { progress_ = std::move(progress); }

  /// What a server may cost before it is given up with 1063.
  struct Limits {
    ReplyLimits reply;
    /// A command may take this many time-outs, and then as long as its reply keeps coming at a
    /// thousand bytes a second. A server that sends one byte at a time just within the time-out
    /// would hold the session for ever otherwise.
    int32_t timeouts_per_command = 10;
    /// So many bytes of what a selection takes wait in memory, all else in a file.
    int64_t in_memory = NewMessages::kInMemory;
  };
  void SetLimits(const Limits& limits);

 protected:
  // The ground of the operations; the tests walk over it.

  /// Runs a command to its end.
  void Run(Command command, bool send_first = true);
  /// The number of a negative reply at a step.
  static int32_t RejectionNumber(State step);
  /// True when the session may go from one step to the other.
  static bool MayFollow(State from, State to);
  void SetMessageNumber(int32_t number) { message_number_ = number; }
  const std::string& Uidl() const { return uidl_; }
  int32_t MessageSize() const { return message_size_; }
  const std::string& Data() const { return data_; }
  bool done() const { return done_; }
  Command command() const { return command_; }

 private:
  // session.cpp
  void Receive();
  void Handle();
  void OnGreeting();
  void OnLogin();
  void OnText(State step);
  void OnStat();
  void OnDele();
  void OnList();
  void OnUidl();
  void Start(Command command);
  void Chain(Command command) { Start(command_ = command); }
  void Send(State step, std::string line);
  void Expect(State step);
  void AskedAgain();
  void Enter(State next);
  void Finish(State result);
  void Reject(State step);
  void GiveUp();
  std::chrono::milliseconds Patience() const;
  bool Overdue() const;

  // mail_server.cpp
  bool Begin();
  bool Stat();
  bool Tolerates(int32_t refusal);
  bool AskUidl(int32_t number);
  bool Delete(int32_t number);
  std::optional<ServerMessage> Fetch(int32_t number, Command command, bool ask_uidl = true);
  std::shared_ptr<MailMessage> FetchHeader(int32_t number);
  std::shared_ptr<MailMessage> FetchWhole(int32_t number, std::string_view separator,
                                          bool ask_uidl = true);
  int32_t LastNumber() const;
  bool IsDeleted(int32_t number) const { return deleted_.contains(number); }

  // selection.cpp
  struct Selection;
  std::unique_ptr<NewMessages> Select(Connection& connection, const Selection& selection);
  void Collect(Connection& connection, const Selection& selection, NewMessages& messages);
  bool Take(const Selection& selection, int32_t number, std::optional<ServerMessage> fetched,
            Foresight& foresight, NewMessages& messages);
  int32_t NumberBelow(int32_t number) const;

  // finding.cpp
  struct Wanted;
  enum class Found { kMatch, kEnd, kFailed };
  Found FindNext(const Wanted& wanted, int32_t& number);

  static constexpr int32_t kReceiveBuffer = ServerLink::kBlock;

  std::shared_ptr<MailUser> user_;
  ServerLink link_;
  State state_ = State::kNotConnected;
  Command command_ = Command::kNone;
  bool done_ = true;
  std::string uidl_;
  int32_t message_number_ = 0;
  std::string data_;
  std::string recv_buffer_ = std::string(kReceiveBuffer, '\0');
  std::string command_line_;
  int32_t message_size_ = 0;
  int32_t message_count_ = -1;
  bool count_read_ = false;     ///< the last reply to STAT held a count
  int64_t mailbox_bytes_ = -1;  ///< of the session's first reply to STAT
  int32_t received_ = 0;
  int32_t server_timeout_ = 7000;

  ReplyReader reader_;
  Limits limits_;
  std::chrono::steady_clock::time_point command_began_;
  int64_t command_bytes_ = 0;
  std::set<int32_t> deleted_;  ///< numbers deleted in this session
  std::optional<std::string> newest_received_;
  Progress progress_;
};

}  // namespace korvane
