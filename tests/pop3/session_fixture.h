// A client, its account and a scripted server, in verbs.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "facade/mail_user.h"
#include "pop3/probed_server.h"
#include "pop3/transport_tap.h"
#include "support/scripted_server.h"

namespace korvane::test {

class Session {
 public:
  explicit Session(int32_t timeout = 5000) {
    TransportTap::Reset();
    user->MailServer("127.0.0.1");
    user->Username("bob");
    user->Password("secret");
    user->ServerTimeout(timeout);
    user->UserId(7);
    user->MailListPageSize(10);
    client = std::make_unique<ProbedServer>();
    client->SetUser(user);
  }
  ~Session() { TransportTap::Reset(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void Start() { user->ServerPort(server.Start()); }
  /// Starts the server and logs in; the script must begin with a login.
  void LogIn() {
    Start();
    ASSERT_TRUE(client->Connect());
    ASSERT_TRUE(client->IsIdle());
  }
  /// Drops the client; the server must have heard what its script says.
  void End() {
    client.reset();
    EXPECT_EQ(server.Finish(), "");
  }
  int32_t step() const { return static_cast<int32_t>(client->state()); }

  ScriptedServer server;
  std::shared_ptr<MailUser> user = std::make_shared<MailUser>();
  std::unique_ptr<ProbedServer> client;
};

}  // namespace korvane::test
