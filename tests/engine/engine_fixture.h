// The engine over a store and, where a test wants one, a real server: what the facade would build.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "engine/mail_engine.h"
#include "frame/error_numbers.h"
#include "support/dovecot_server.h"
#include "support/store_fixture.h"
#include "support/tcp_proxy.h"

namespace korvane::test {

/// The engine and what it works with, for one request.
class Request {
 public:
  explicit Request(Store& store, int32_t account = MailUser::kDefaultAccount, int32_t user = 7)
      : Request(store, store.Connect(), account, user) {}
  Request(Store& store, std::shared_ptr<Connection> over,
          int32_t account = MailUser::kDefaultAccount, int32_t user = 7)
      : connection(std::move(over)),
        account_object(std::make_shared<MailUser>()),
        server(std::make_shared<MailServer>()) {
    account_object->InitFromConfig(*store.Boss(), connection, user, account);
    server->SetUser(account_object);
    engine.Init(account_object, server, connection);
  }

  /// Synchronises and lists page 1.
  std::shared_ptr<MailMessages> Sync(const MailEngine::SyncRequest& request) {
    MailMessages::ListRequest list;
    list.page = 1;
    return engine.GetListMessagesInBox(request, list, &pages, &mails);
  }
  std::shared_ptr<MailMessages> SyncWhole(bool first_download = false,
                                          bool delete_on_server = false) {
    MailEngine::SyncRequest request;
    request.header_only = false;
    request.first_download = first_download;
    request.delete_on_server = delete_on_server;
    return Sync(request);
  }
  std::shared_ptr<MailMessages> SyncHeaders(bool first_download = false) {
    MailEngine::SyncRequest request;
    request.first_download = first_download;
    return Sync(request);
  }
  int32_t Error() const { return engine.GetLastError(); }

  std::shared_ptr<Connection> connection;
  std::shared_ptr<MailUser> account_object;
  std::shared_ptr<MailServer> server;
  MailEngine engine;
  Any pages;
  Any mails;
};

/// A message that came at `second` of a day in 2020.
inline std::string Mail(int number, int second, const std::string& more_header = "",
                        const std::string& body = "text") {
  char time[32];
  std::snprintf(time, sizeof time, "%02d:%02d:%02d", second / 3600, second / 60 % 60, second % 60);
  const std::string n = std::to_string(number);
  return "Received: from a.example by b.example with ESMTP id q" + n + "; Thu, 5 Mar 2020 " + time +
         " +0000\nMessage-ID: <" + n + "@a.example>\nFrom: Ann <ann@a.example>\n" +
         "To: Bob <bob@b.example>\nDate: Thu, 5 Mar 2020 " + time + " +0000\nSubject: mail " + n +
         "\n" + more_header + "\n" + body + " " + n + "\n";
}

/// A store with one account on a real server.
class ServerTest : public testing::Test {
 protected:
  explicit ServerTest(const std::string& url = "") : store(url) {}
  void SetUp() override {
    dovecot.AddUser("bob");
    dovecot.Start();
    proxy = std::make_unique<TcpProxy>(dovecot.port());
    account = AddAccount("bob");
  }
  int32_t AddAccount(const std::string& name, bool is_default = true) {
    Store::Account row;
    row.port = proxy->port();
    row.name = name;
    row.password = DovecotServer::kPassword;
    row.is_default = is_default;
    return store.Add(row);
  }
  void Deliver(int from, int to) {
    for (int i = from; i <= to; ++i) dovecot.Deliver("bob", Mail(i, i * 10));
  }
  /// "mail from" to "mail to", each once, as a sorted list.
  static std::vector<std::string> Expected(int from, int to) {
    std::vector<std::string> subjects;
    for (int i = from; i <= to; ++i) subjects.push_back("mail " + std::to_string(i));
    std::sort(subjects.begin(), subjects.end());
    return subjects;
  }
  std::vector<std::string> Stored() {
    auto subjects = store.Subjects();
    std::sort(subjects.begin(), subjects.end());
    return subjects;
  }

  Store store;
  DovecotServer dovecot;
  std::unique_ptr<TcpProxy> proxy;
  int32_t account = 0;
};

}  // namespace korvane::test
