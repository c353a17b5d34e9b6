// One POP3 session (RFC 1939) of the sample server, without the socket: it takes command lines and
// gives replies.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "mailbox.h"

namespace korvane::sample {

/// Who may log in, and what was deleted while the server runs; shared by all sessions.
class Users {
 public:
  void Add(std::string name, std::string password, std::vector<std::string> folders);
  bool Empty() const { return users_.empty(); }
  bool Accepts(const std::string& name, std::string_view password) const;
  std::vector<StoredMessage> Mailbox(const std::string& name);
  void Forget(const std::string& name, const std::set<std::string, std::less<>>& unique_ids);

 private:
  struct User {
    std::string password;
    std::vector<std::string> folders;
    std::set<std::string, std::less<>> gone;
  };
  std::mutex lock_;
  std::map<std::string, User, std::less<>> users_;
};

class Session {
 public:
  explicit Session(Users& users) : users_(users) {}

  static std::string Greeting() { return "+OK the sample mailbox is open\r\n"; }
  /// The reply to a command line (without its line end).
  std::string Answer(std::string_view line);
  bool Ended() const { return ended_; }

 private:
  using Arguments = std::vector<std::string_view>;
  std::string BeforeLogin(const std::string& command, const Arguments& arguments,
                          std::string_view line);
  std::string AfterLogin(const std::string& command, const Arguments& arguments);
  std::string Listing(const std::string& command, const Arguments& arguments) const;
  std::string Quit();
  /// The message of that number, or none.
  const StoredMessage* Find(std::string_view number) const;
  bool IsDeleted(size_t position) const { return deleted_.contains(messages_[position].unique_id); }

  Users& users_;
  std::string user_;
  bool logged_in_ = false;
  bool ended_ = false;
  int failures_ = 0;
  std::vector<StoredMessage> messages_;
  std::set<std::string, std::less<>> deleted_;
};

}  // namespace korvane::sample
