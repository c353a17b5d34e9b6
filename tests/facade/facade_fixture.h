// The two interfaces as a page uses them, over a store and a real server.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "engine/mail_engine.h"
#include "facade/basic_interface.h"
#include "facade/mail_user.h"
#include "facade/web_interface.h"
#include "frame/error_numbers.h"
#include "pop3/mail_server.h"
#include "support/dovecot_server.h"
#include "support/store_fixture.h"
#include "support/tcp_proxy.h"

namespace korvane::test {

inline std::string Letter(int number) {
  const std::string n = std::to_string(number);
  const std::string time = std::string("10:00:") + (number < 10 ? "0" : "") + n;
  return "Received: from a by b id q" + n + "; Thu, 5 Mar 2020 " + time + " +0000\nMessage-ID: <" +
         n + "@a>\nFrom: Ann <ann@a>\nTo: bob@b\nSubject: mail " + n + "\n\ntext " + n + "\n";
}

class FacadeTest : public testing::Test {
 protected:
  void SetUp() override {
    dovecot.AddUser("bob");
    dovecot.Start();
    proxy = std::make_unique<TcpProxy>(dovecot.port());
    account = AddAccount("bob");
  }
  int32_t AddAccount(const std::string& name, bool is_default = true, Any kind = 0) {
    Store::Account row;
    row.port = proxy->port();
    row.name = name;
    row.password = DovecotServer::kPassword;
    row.is_default = is_default;
    row.kind = kind;
    return store.Add(row);
  }
  void Deliver(int count) {
    for (int i = 1; i <= count; ++i) dovecot.Deliver("bob", Letter(i));
  }
  /// An initialised facade.
  std::unique_ptr<WebInterface> Web(int32_t account_id = -100, int32_t user = 7) {
    auto web = std::make_unique<WebInterface>();
    web->ConnDataBase(store.Connect());
    web->UserId(user);
    EXPECT_TRUE(web->Init(store.Boss(), account_id)) << web->GetLastError();
    return web;
  }

  Store store;
  DovecotServer dovecot;
  std::unique_ptr<TcpProxy> proxy;
  int32_t account = 0;
};

}  // namespace korvane::test
