// A mailbox of the model server and a client over it, in verbs.
#pragma once

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "facade/mail_user.h"
#include "pop3/fake_connection.h"
#include "pop3/mail_server.h"
#include "support/model_server.h"

namespace korvane::test {

constexpr const char* kFirstDownload = "01/01/0001 00:00:00";

/// A mailbox of a server that does everything right, unless `odd` answers first.
class Mailbox {
 public:
  explicit Mailbox(int32_t messages, size_t body = 10) : body_(body, 'x') {
    server.messages = messages;
    server.all_bytes = int64_t{100} * messages;
    server.answer = [this](const std::string& line) { return Answer(line); };
    user->MailServer("pop3+ahead://pop.example");
    user->Username("bob");
    user->Password("secret");
    user->UserId(7);
    client.SetUser(user);
  }

  int Count(const std::string& verb) const {
    return static_cast<int>(
        std::count_if(server.commands.begin(), server.commands.end(),
                      [&](const std::string& line) { return line.starts_with(verb); }));
  }

  ModelServer server;
  std::function<std::optional<ModelReply>(const std::string&)> odd;
  std::shared_ptr<MailUser> user = std::make_shared<MailUser>();
  FakeConnection connection;
  MailServer client;

 private:
  std::optional<ModelReply> Answer(const std::string& line) {
    if (odd) {
      if (auto reply = odd(line)) return reply;
    }
    const std::string verb = line.substr(0, 4);
    if (verb != "TOP " && verb != "RETR" && verb != "LIST" && verb != "UIDL") return std::nullopt;
    const int number = std::stoi(line.substr(verb == "TOP " ? 4 : 5));
    const std::string n = std::to_string(number);
    if (verb == "LIST") return ModelReply{"+OK " + n + " 100\r\n", ModelReply::Then::kNothing, {}};
    if (verb == "UIDL")
      return ModelReply{"+OK " + n + " u" + n + "\r\n", ModelReply::Then::kNothing, {}};
    char time[32];
    std::snprintf(time, sizeof time, "%02d:%02d:%02d", number / 3600, number / 60 % 60,
                  number % 60);
    std::string text = std::string("+OK\r\nReceived: from a by b; Thu, 5 Mar 2020 ") + time +
                       " +0000\r\nMessage-ID: <" + n + "@a>\r\n\r\n";
    if (verb == "RETR") text += body_ + "\r\n";
    return ModelReply{text + ".\r\n", ModelReply::Then::kNothing, {}};
  }

  std::string body_;
};

}  // namespace korvane::test
