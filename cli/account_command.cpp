// korvane account: the POP3 accounts of a user.
#include <iostream>
#include <memory>
#include <optional>

#include "cli/accounts.h"
#include "cli/failure.h"
#include "cli/installation.h"
#include "cli/json.h"
#include "cli/password.h"
#include "cli/program.h"
#include "cli/table.h"
#include "cli/terminal_text.h"
#include "pop3/capabilities.h"
#include "pop3/host_scheme.h"

namespace korvane::cli {
namespace {

constexpr int32_t kPop3Port = 110;
constexpr int32_t kPop3sPort = 995;

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
  std::string read_ahead;  ///< "on", "off" or nothing
};
using Shared = std::shared_ptr<AccountOptions>;

std::string JsonOf(const AccountEntry& account) {
  return JsonObject()
      .Number("id", account.id)
      .Flag("default", account.is_default)
      .Text("server", account.server)
      .Number("port", account.port)
      .Flag("tls", IsEncrypted(account))
      .Flag("read_ahead", ReadsAhead(account))
      .Number("timeout", account.timeout)
      .Text("username", account.username)
      .Flag("password_stored", account.keeps_password)
      .Str();
}

void Say(const Options& options, const std::string& text, const AccountEntry& account) {
  if (options.json) {
    std::cout << JsonOf(account) << "\n";
  } else {
    std::cout << text << "\n";
  }
}

/// What a command line says about an account, over what the account is already.
AccountEntry Changed(AccountEntry account, const AccountOptions& wanted) {
  if (!wanted.server.empty()) account.server = wanted.server;
  if (wanted.port) account.port = wanted.port;
  if (wanted.timeout) account.timeout = wanted.timeout;
  if (!wanted.username.empty()) account.username = wanted.username;
  if (wanted.ask_always) account.keeps_password = false;
  if (!wanted.read_ahead.empty()) {
    account.server =
        ReadHostScheme(account.server, account.port).WithReadAhead(wanted.read_ahead == "on");
  }
  RefuseControls(account.server, "server");
  RefuseControls(account.username, "user name");
  return account;
}

std::string PasswordToKeep(const AccountOptions& wanted, const std::string& prompt) {
  std::string password = ReadPassword(wanted.password_file, prompt);
  RefuseControls(password, "password");
  return password;
}

Exit Add(const Options& options, const AccountOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  AccountDirectory accounts = AccountsToChange(*installation.connection);
  AccountEntry account = Changed({}, wanted);
  const bool plain = !ReadHostScheme(wanted.server, kPop3sPort).encrypted;
  if (!wanted.port) account.port = plain ? kPop3Port : kPop3sPort;
  account.is_default = wanted.make_default;
  const std::string password =
      wanted.ask_always ? "" : PasswordToKeep(wanted, "Password of " + wanted.username);
  account.id = accounts.Add(options.user, account, password);
  const std::string number = std::to_string(account.id);
  Say(options,
      "Account " + number + " is " + Printable(NameOf(account)) +
          (IsEncrypted(account) ? ", encrypted" : ", not encrypted") +
          ".\nNext: korvane account verify " + number,
      FindAccount(*installation.connection, options.user, account.id));
  return Exit::kSuccess;
}

Exit Change(const Options& options, const AccountOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  AccountDirectory accounts = AccountsToChange(*installation.connection);
  AccountEntry account =
      Changed(FindAccount(*installation.connection, options.user, wanted.id), wanted);
  std::optional<std::string> password;
  if (wanted.new_password || !wanted.password_file.empty()) {
    password = PasswordToKeep(wanted, "New password");
    account.keeps_password = true;
  }
  accounts.Change(options.user, account, password);
  if (wanted.make_default) accounts.MakeDefault(options.user, account.id);
  Say(options, "Account " + std::to_string(account.id) + " is " + Printable(NameOf(account)) + ".",
      FindAccount(*installation.connection, options.user, account.id));
  return Exit::kSuccess;
}

Exit List(const Options& options) {
  const Installation installation = OpenInstallation(options);
  const auto accounts = AccountDirectory(*installation.connection).List(options.user);
  if (options.json) {
    std::vector<std::string> items;
    items.reserve(accounts.size());
    for (const AccountEntry& account : accounts) items.push_back(JsonOf(account));
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
  for (const AccountEntry& account : accounts) {
    table.AddRow({std::to_string(account.id), account.is_default ? "default" : "", account.server,
                  std::to_string(account.port), IsEncrypted(account) ? "yes" : "no",
                  account.username, account.keeps_password ? "stored" : "asked for"});
  }
  table.Print(std::cout, TerminalWidth());
  return Exit::kSuccess;
}

Exit Remove(const Options& options, const AccountOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  AccountDirectory accounts = AccountsToChange(*installation.connection);
  const AccountEntry account = FindAccount(*installation.connection, options.user, wanted.id);
  accounts.Remove(options.user, wanted.id);
  Say(options, "Account " + std::to_string(wanted.id) + " is removed; its messages stay.", account);
  return Exit::kSuccess;
}

/// What the server says about taking commands ahead, and what to do about it.
std::string AheadWords(const AccountEntry& account, const Capabilities& abilities) {
  const std::string set = "korvane account set " + std::to_string(account.id) + " --read-ahead ";
  if (abilities.pipelining) {
    return ReadsAhead(account)
               ? "  the server takes commands ahead of its replies; reading ahead is on\n"
               : "  the server takes commands ahead of its replies; to fetch faster: " + set +
                     "on\n";
  }
  if (!ReadsAhead(account)) return "";
  return "  reading ahead is on, but the server does not say that it takes commands ahead: " + set +
         "off\n";
}

Exit Verify(const Options& options, const AccountOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  const auto web = OpenFacade(installation, options);
  std::vector<AccountEntry> accounts;
  if (wanted.id) {
    accounts = {FindAccount(*installation.connection, options.user, wanted.id)};
  } else {
    accounts = AccountDirectory(*installation.connection).List(options.user);
    if (accounts.empty()) {
      throw Failure(Exit::kAccount, "user " + std::to_string(options.user) +
                                        " has no account: korvane account add");
    }
  }
  Exit status = Exit::kSuccess;
  std::vector<std::string> results;
  for (const AccountEntry& account : accounts) {
    if (!account.keeps_password) {
      web->Password(ReadPassword(wanted.password_file, "Password of " + NameOf(account)));
    }
    const bool good = web->VerifyAccount(account.id) && web->GetLastError() == 0;
    const Failure failure(*web);
    if (!good && status == Exit::kSuccess) status = failure.status();
    JsonObject json;
    json.Number("id", account.id).Flag("works", good);
    const Capabilities abilities =
        good ? AskCapabilities(account.server, account.port, account.timeout) : Capabilities();
    if (abilities.known) json.Flag("pipelining", abilities.pipelining);
    if (!good) json.Raw("error", failure.Json());
    results.push_back(json.Str());
    if (options.json) continue;
    const std::string name =
        "Account " + std::to_string(account.id) + ", " + Printable(NameOf(account));
    if (good) {
      std::cout << name << ": the login works\n" << AheadWords(account, abilities);
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
  command
      ->add_option("--read-ahead", wanted->read_ahead,
                   "send commands ahead of the replies, for a server that takes them: see verify")
      ->check(CLI::IsMember({"on", "off"}));
  command->add_flag("--new-password", wanted->new_password, "read another password");
  command->add_flag("--ask-password", wanted->ask_always, "forget the password: ask at each use");

  add_command("list", "list the accounts",
              [](const Options& options, const AccountOptions&) { return List(options); });

  command = add_command("remove", "remove an account; its messages stay", Remove);
  command->add_option("id", wanted->id, "number of the account")->required();

  command = add_command("verify", "try to log in, and ask what the server can do", Verify);
  command->add_option("id", wanted->id, "number of the account; all when left out");
  AddPasswordFile(*command, wanted);
}

}  // namespace korvane::cli
