// MailServer: the POP3 client (RFC 1939). A command is started by sending its line; every block of
// bytes that arrives goes to the handler of the command in progress, which moves the step on, may
// send the next line, and finishes the command. docs/pop3.md draws the states.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "../frame/any.h"
#include "../frame/database.h"
#include "../frame/error_state.h"
#include "../message/mail_messages.h"

namespace korvane {

class MailUser;

class MailServer : public Object, public ErrorState {
 public:
  /// Step codes.
  enum class State : int32_t {
    kIdle = 2,          ///< logged in, commands may be given
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
    kMultiLine = 13,    ///< further blocks of TOP or RETR awaited
  };
  /// Command codes.
  enum class Command : int32_t {
    kNone = 0, kGreeting, kLogin, kQuit, kTop, kRetr, kStat, kDele, kList, kUidl,
  };

  MailServer();
  ~MailServer() override;  ///< sends QUIT when still connected

  int32_t ServerTimeout() const { return server_timeout_; }
  void ServerTimeout(int32_t value) { server_timeout_ = value; }
  bool SetUser(std::shared_ptr<MailUser> user);

  bool Connect();
  bool Disconnect();
  void CloseConnection();
  bool IsIdle() const { return state_ == State::kIdle && done_; }
  State state() const { return state_; }

  int32_t GetMessagesCount();
  std::shared_ptr<MailMessage> GetMessageHeader(int32_t number);
  std::shared_ptr<MailMessage> GetFullMessage(int32_t number, std::string_view separator);
  std::shared_ptr<MailMessage> GetFullMessageByUIDL(int32_t number, std::string_view expected,
                                                    std::string_view separator);
  std::shared_ptr<MailMessage> FindFullMessage(int32_t start, std::string_view received,
                                               std::string_view message_id,
                                               std::string_view separator);
  bool DeleteServerMessage(int32_t number);
  bool DeleteServerMessageByUIDL(int32_t number, std::string_view expected);
  bool FindAndDeleteMessage(int32_t start, std::string_view received, std::string_view message_id);
  std::shared_ptr<MailMessages> GetHeadersPage(int32_t page, Any* total_pages, Any* total_messages);
  std::shared_ptr<MailMessages> GetNewHeaders(Connection& connection, const std::string& last_time,
                                              bool first_download);
  std::shared_ptr<MailMessages> GetNewMessages(Connection& connection, const std::string& last_time,
                                               bool first_download, std::string_view separator);

  /// Called while a selection goes on: messages looked at, messages on the server, messages taken.
  using Progress = std::function<void(int32_t looked_at, int32_t total, int32_t taken)>;
  void OnProgress(Progress progress) { progress_ = std::move(progress); }

 private:
  // Filled in by the session's own files; see mail_server.cpp.
  std::shared_ptr<MailUser> user_;
  int32_t socket_ = 0;
  State state_ = State::kNotConnected;
  Command command_ = Command::kNone;
  bool done_ = true;
  std::string uidl_;
  int32_t message_number_ = 0;
  std::string data_;
  std::string recv_buffer_;
  std::string command_line_;
  int32_t message_size_ = 0;
  int32_t message_count_ = -1;
  int32_t received_ = 0;
  int32_t server_timeout_ = 7000;
  std::set<int32_t> deleted_;  ///< numbers deleted in this session
  Progress progress_;
};

}  // namespace korvane
