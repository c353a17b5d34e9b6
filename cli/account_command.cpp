// korvane account: the POP3 accounts of a user.
#include <iostream>
#include <memory>

#include "cli/accounts.h"
#include "cli/failure.h"
#include "cli/installation.h"
#include "cli/json.h"
#include "cli/password.h"
#include "cli/program.h"
#include "cli/table.h"
#include "cli/terminal_text.h"

namespace korvane::cli {
namespace {

constexpr int32_t kPop3Port = 110;
constexpr int32_t kPop3sPort = 995;
constexpr int32_t kTimeout = 60'000;

struct AccountOptions {
  int32_t id = 0;
  std::string server;
  int32_t port = 0;
  int32_t timeout = 0;
  std::string username;
  std::string password_file;
  bool ask_always = false;
  bool new_password = false;
  bool make_default = false;
};
using Shared = std::shared_ptr<AccountOptions>;

std::string JsonOf(const Account& account) {
  return JsonObject()
      .Number("id", account.id)
      .Flag("default", account.is_default)
      .Text("server", account.server)
      .Number("port", account.port)
      .Flag("tls", account.Tls())
      .Number("timeout", account.timeout)
      .Text("username", account.username)
      .Flag("password_stored", account.password_stored)
      .Str();
}

void Say(const Options& options, const std::string& text, const Account& account) {
  if (options.json) {
    std::cout << JsonOf(account) << "\n";
  } else {
    std::cout << text << "\n";
  }
}

Exit Add(const Options& options, const AccountOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  AccountChanges account;
  account.server = wanted.server;
  const bool plain = wanted.server.starts_with("pop3://");
  account.port = wanted.port ? wanted.port : plain ? kPop3Port : kPop3sPort;
  account.timeout = wanted.timeout ? wanted.timeout : kTimeout;
  account.username = wanted.username;
  account.make_default = wanted.make_default;
  if (wanted.ask_always) {
    account.forget_password = true;
  } else {
    account.password = ReadPassword(wanted.password_file, "Password of " + wanted.username);
  }
  const int32_t id = AddAccount(*installation.connection, options.user, account);
  const Account added = FindAccount(*installation.connection, options.user, id);
  Say(options,
      "Account " + std::to_string(id) + " is " + Printable(added.Name()) +
          (added.Tls() ? ", encrypted" : ", not encrypted") + ".\nNext: korvane account verify " +
          std::to_string(id),
      added);
  return Exit::kSuccess;
}

Exit Change(const Options& options, const AccountOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  AccountChanges changes;
  if (!wanted.server.empty()) changes.server = wanted.server;
  if (wanted.port) changes.port = wanted.port;
  if (wanted.timeout) changes.timeout = wanted.timeout;
  if (!wanted.username.empty()) changes.username = wanted.username;
  changes.make_default = wanted.make_default;
  changes.forget_password = wanted.ask_always;
  if (wanted.new_password || !wanted.password_file.empty()) {
    changes.password = ReadPassword(wanted.password_file, "New password");
  }
  ChangeAccount(*installation.connection, options.user, wanted.id, changes);
  const Account account = FindAccount(*installation.connection, options.user, wanted.id);
  Say(options, "Account " + std::to_string(account.id) + " is " + Printable(account.Name()) + ".",
      account);
  return Exit::kSuccess;
}

Exit List(const Options& options) {
  const Installation installation = OpenInstallation(options);
  const auto accounts = ListAccounts(*installation.connection, options.user);
  if (options.json) {
    std::vector<std::string> items;
    items.reserve(accounts.size());
    for (const Account& account : accounts) items.push_back(JsonOf(account));
    std::cout << JsonObject().Raw("accounts", JsonArray(items)).Str() << "\n";
    return Exit::kSuccess;
  }
  if (accounts.empty()) {
    std::cout << "User " << options.user << " has no account.\n";
    return Exit::kSuccess;
  }
  Table table({{"Id", true},
               {""},
               {"Server", false, 12},
               {"Port", true},
               {"Encrypted"},
               {"User name", false, 8},
               {"Password"}});
  for (const Account& account : accounts) {
    table.AddRow({std::to_string(account.id), account.is_default ? "default" : "", account.server,
                  std::to_string(account.port), account.Tls() ? "yes" : "no", account.username,
                  account.password_stored ? "stored" : "asked for"});
  }
  table.Print(std::cout, TerminalWidth());
  return Exit::kSuccess;
}

Exit Remove(const Options& options, const AccountOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  const Account account = FindAccount(*installation.connection, options.user, wanted.id);
  RemoveAccount(*installation.connection, options.user, wanted.id);
  Say(options, "Account " + std::to_string(wanted.id) + " is removed; its messages stay.", account);
  return Exit::kSuccess;
}

Exit Verify(const Options& options, const AccountOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  const auto web = OpenFacade(installation, options);
  std::vector<Account> accounts;
  if (wanted.id) {
    accounts = {FindAccount(*installation.connection, options.user, wanted.id)};
  } else {
    accounts = ListAccounts(*installation.connection, options.user);
    if (accounts.empty()) {
      throw Failure(Exit::kAccount, "user " + std::to_string(options.user) +
                                        " has no account: korvane account add");
    }
  }
  Exit status = Exit::kSuccess;
  std::vector<std::string> results;
  for (const Account& account : accounts) {
    if (!account.password_stored) {
      web->Password(ReadPassword(wanted.password_file, "Password of " + account.Name()));
    }
    const bool good = web->VerifyAccount(account.id) && web->GetLastError() == 0;
    const Failure failure(*web);
    if (!good && status == Exit::kSuccess) status = failure.status();
    JsonObject json;
    json.Number("id", account.id).Flag("works", good);
    if (!good) json.Raw("error", failure.Json());
    results.push_back(json.Str());
    if (options.json) continue;
    const std::string name =
        "Account " + std::to_string(account.id) + ", " + Printable(account.Name());
    if (good) {
      std::cout << name << ": the login works\n";
    } else {
      std::cerr << name << ": " << failure.Text() << "\n";
    }
  }
  if (options.json) {
    std::cout << JsonObject().Raw("accounts", JsonArray(results)).Str() << "\n";
  }
  return status;
}

void AddServerOptions(CLI::App& command, const Shared& wanted, bool required) {
  command
      .add_option("--server", wanted->server,
                  "POP3 server; encrypted unless written pop3://HOST or given another port")
      ->type_name("HOST")
      ->required(required);
  command.add_option("--username", wanted->username, "user name there")->required(required);
  command.add_option("--port", wanted->port, "by default 995, or 110 for pop3://")
      ->check(CLI::Range(1, 65535));
  command.add_option("--timeout", wanted->timeout, "milliseconds to wait for the server")
      ->check(CLI::Range(1, 86'400'000));
  command.add_flag("--default", wanted->make_default, "make it the user's default account");
}

void AddPasswordFile(CLI::App& command, const Shared& wanted) {
  command
      .add_option("--password-file", wanted->password_file,
                  "file whose first line is the password; - is the standard input. Without it: "
                  "$KORVANE_PASSWORD, else a question, else the standard input")
      ->type_name("FILE");
}

}  // namespace

void AddAccountCommand(Program& program) {
  CLI::App* group = program.AddCommand(program.app, "account", "the POP3 accounts of a user", {});
  group->require_subcommand(1);
  auto wanted = std::make_shared<AccountOptions>();
  const auto add_command = [&](const char* name, const char* what, auto action) {
    return program.AddCommand(*group, name, what, [&program, wanted, action] {
      return action(program.options, *wanted);
    });
  };

  CLI::App* command = add_command("add", "add an account", Add);
  AddServerOptions(*command, wanted, true);
  AddPasswordFile(*command, wanted);
  command->add_flag("--ask-password", wanted->ask_always,
                    "do not keep the password: ask at each use");

  command = add_command("set", "change an account", Change);
  command->add_option("id", wanted->id, "number of the account")->required();
  AddServerOptions(*command, wanted, false);
  AddPasswordFile(*command, wanted);
  command->add_flag("--new-password", wanted->new_password, "read another password");
  command->add_flag("--ask-password", wanted->ask_always, "forget the password: ask at each use");

  add_command("list", "list the accounts",
              [](const Options& options, const AccountOptions&) { return List(options); });

  command = add_command("remove", "remove an account; its messages stay", Remove);
  command->add_option("id", wanted->id, "number of the account")->required();

  command = add_command("verify", "try to log in", Verify);
  command->add_option("id", wanted->id, "number of the account; all when left out");
  AddPasswordFile(*command, wanted);
}

}  // namespace korvane::cli
