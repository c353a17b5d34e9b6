#include "cli/sample_server/session.h"

#include <algorithm>
#include <charconv>

namespace korvane::sample {
namespace {

constexpr int kMostFailures = 3;

std::vector<std::string_view> Words(std::string_view line) {
  std::vector<std::string_view> words;
  while (true) {
    const size_t begin = line.find_first_not_of(' ');
    if (begin == std::string_view::npos) return words;
    const size_t end = std::min(line.find(' ', begin), line.size());
    words.push_back(line.substr(begin, end - begin));
    line.remove_prefix(end);
  }
}

int64_t Number(std::string_view text) {
  int64_t number = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? number : -1;
}

}  // namespace

void Users::Add(std::string name, std::string password, std::vector<std::string> folders) {
  users_[std::move(name)] = {std::move(password), std::move(folders), {}};
}

bool Users::Accepts(const std::string& name, std::string_view password) const {
  const auto user = users_.find(name);
  return user != users_.end() && user->second.password == password;
}

std::vector<StoredMessage> Users::Mailbox(const std::string& name) {
  const std::lock_guard guard(lock_);
  const User& user = users_.at(name);
  return ListMailbox(user.folders, user.gone);
}

void Users::Forget(const std::string& name, const std::set<std::string, std::less<>>& unique_ids) {
  const std::lock_guard guard(lock_);
  users_.at(name).gone.insert(unique_ids.begin(), unique_ids.end());
}

std::string Session::Answer(std::string_view line) {
  Arguments arguments = Words(line);
  if (arguments.empty()) return "-ERR no command\r\n";
  std::string command(arguments.front());
  arguments.erase(arguments.begin());
  for (char& c : command) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  if (command == "QUIT") return Quit();
  if (command == "CAPA") {
    return "+OK what is understood\r\nUSER\r\nTOP\r\nUIDL\r\nRESP-CODES\r\n.\r\n";
  }
  return logged_in_ ? AfterLogin(command, arguments) : BeforeLogin(command, arguments, line);
}

std::string Session::BeforeLogin(const std::string& command, const Arguments& arguments,
                                 std::string_view line) {
  if (command == "USER" && arguments.size() == 1) {
    user_ = arguments[0];
    return "+OK and the password\r\n";
  }
  if (command == "PASS" && !user_.empty()) {
    // A password may hold blanks.
    const std::string_view password = line.substr(std::min<size_t>(5, line.size()));
    if (users_.Accepts(user_, password)) {
      messages_ = users_.Mailbox(user_);
      logged_in_ = true;
      return "+OK " + std::to_string(messages_.size()) + " messages\r\n";
    }
    user_.clear();
    ended_ = ++failures_ == kMostFailures;
    return "-ERR [AUTH] no such user, or another password\r\n";
  }
  return "-ERR log in first\r\n";
}

std::string Session::AfterLogin(const std::string& command, const Arguments& arguments) {
  if (command == "NOOP") return "+OK\r\n";
  if (command == "RSET") {
    deleted_.clear();
    return "+OK nothing is deleted\r\n";
  }
  if (command == "STAT") {
    int64_t count = 0;
    int64_t size = 0;
    for (size_t i = 0; i < messages_.size(); ++i) {
      if (IsDeleted(i)) continue;
      ++count;
      size += messages_[i].size;
    }
    return "+OK " + std::to_string(count) + " " + std::to_string(size) + "\r\n";
  }
  if (command == "LIST" || command == "UIDL") return Listing(command, arguments);

  const bool top = command == "TOP";
  if (!top && command != "RETR" && command != "DELE") return "-ERR not understood\r\n";
  if (arguments.size() != (top ? 2 : 1)) return "-ERR a number is missing\r\n";
  const StoredMessage* message = Find(arguments[0]);
  if (!message) return "-ERR no such message\r\n";
  if (command == "DELE") {
    deleted_.insert(message->unique_id);
    return "+OK deleted\r\n";
  }
  const int64_t lines = top ? Number(arguments[1]) : -1;
  if (top && lines < 0) return "-ERR not a number of lines\r\n";
  return "+OK " + std::to_string(message->size) + " octets\r\n" +
         AsReplyLines(ReadMessage(message->path), lines);
}

std::string Session::Listing(const std::string& command, const Arguments& arguments) const {
  const auto line = [&](const StoredMessage& message) {
    const auto number = static_cast<size_t>(&message - messages_.data()) + 1;
    return std::to_string(number) + " " +
           (command == "LIST" ? std::to_string(message.size) : message.unique_id) + "\r\n";
  };
  if (!arguments.empty()) {
    const StoredMessage* message = Find(arguments[0]);
    return message ? "+OK " + line(*message) : "-ERR no such message\r\n";
  }
  std::string reply = "+OK\r\n";
  for (size_t i = 0; i < messages_.size(); ++i) {
    if (!IsDeleted(i)) reply += line(messages_[i]);
  }
  return reply + ".\r\n";
}

std::string Session::Quit() {
  ended_ = true;
  if (logged_in_) users_.Forget(user_, deleted_);
  return "+OK goodbye\r\n";
}

const StoredMessage* Session::Find(std::string_view number) const {
  const int64_t wanted = Number(number);
  if (wanted < 1 || wanted > static_cast<int64_t>(messages_.size())) return nullptr;
  const auto position = static_cast<size_t>(wanted - 1);
  return IsDeleted(position) ? nullptr : &messages_[position];
}

}  // namespace korvane::sample
