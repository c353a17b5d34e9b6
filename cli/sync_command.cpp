// korvane sync: brings the store up to date with the POP3 accounts.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>

#include "cli/accounts.h"
#include "cli/failure.h"
#include "cli/installation.h"
#include "cli/json.h"
#include "cli/password.h"
#include "cli/program.h"
#include "cli/progress.h"
#include "cli/terminal_text.h"
#include "engine/mail_engine.h"
#include "frame/sql_text.h"
#include "pop3/mail_server.h"

namespace korvane::cli {
namespace {

constexpr int32_t kInbox = 1;

struct SyncOptions {
  int32_t account = 0;
  bool all = false;
  bool headers = false;
  bool delete_on_server = false;
  bool deep = false;
  std::string password_file;
};

std::vector<AccountEntry> Chosen(Connection& connection, const Options& options,
                                 const SyncOptions& wanted) {
  if (wanted.account) return {FindAccount(connection, options.user, wanted.account)};
  std::vector<AccountEntry> accounts = AccountDirectory(connection).List(options.user);
  if (accounts.empty()) {
    throw Failure(Exit::kAccount,
                  "user " + std::to_string(options.user) + " has no account: korvane account add");
  }
  if (wanted.all) return accounts;
  for (AccountEntry& account : accounts) {
    if (account.is_default) return {std::move(account)};
  }
  throw Failure(Exit::kAccount, "user " + std::to_string(options.user) +
                                    " has no default account: give --account or --all");
}

/// How many messages of an account are here, and of how many of them only the header.
struct Stock {
  int64_t messages = 0;
  int64_t headers = 0;
};

Stock StockOf(Connection& connection, const Options& options, const AccountEntry& account) {
  const auto count = [&](const char* more) {
    const std::string statement =
        "SELECT COUNT(*) FROM mail WHERE id_utente=" + std::to_string(options.user) +
        " AND id_server=" + std::to_string(account.id) + more;
    return FirstValue(connection, statement).ToInt64().value_or(0);
  };
  return {count(""), count(" AND body_scaricato=-1")};
}

struct Outcome {
  int64_t stored = 0;
  int64_t without_content = 0;  ///< wanted whole, but only the row could be written
  double seconds = 0;
  Failure failure;

  Exit Status() const {
    if (failure.number() != 0) return failure.status();
    return without_content > 0 ? Exit::kFiles : Exit::kSuccess;
  }
};

/// "120 new, 3.4 of at most 20.1 MB, at most 12 s left". A selection may end early, at the first
/// message that is known.
std::string Words(const SelectionProgress& progress, double elapsed) {
  const std::string most = progress.to_the_end ? "" : "at most ";
  std::string words = std::to_string(progress.taken) + " new";
  char text[64];
  if (progress.whole && progress.all_bytes > 0) {
    constexpr double kMegabyte = 1e6;
    std::snprintf(text, sizeof text, ", %.1f of %s%.1f MB",
                  static_cast<double>(progress.bytes) / kMegabyte, most.c_str(),
                  static_cast<double>(progress.all_bytes) / kMegabyte);
    words += text;
  }
  if (const auto left = progress.SecondsLeft(elapsed)) {
    std::snprintf(text, sizeof text, ", %s%.0f s left", most.c_str(), *left);
    words += text;
  }
  return words;
}

Outcome SyncOne(const Installation& installation, WebInterface& web, const Options& options,
                const SyncOptions& wanted, const AccountEntry& account) {
  if (!account.keeps_password) {
    web.Password(ReadPassword(wanted.password_file, "Password of " + NameOf(account)));
  }
  ProgressLine progress("Account " + std::to_string(account.id), options.json);
  const auto begin = std::chrono::steady_clock::now();
  web.Server()->OnProgress([&](const SelectionProgress& now) {
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    progress.Show(now.looked_at, now.total, Words(now, elapsed.count()));
  });
  web.Engine()->OnStored(
      [&](int32_t stored, int32_t total) { progress.Show(stored, total, "stored"); });
  const Stock before = StockOf(*installation.connection, options, account);
  web.MailListPageSize(1);
  // Nothing of this account is here: then nothing has to be looked up.
  const bool first_download = before.messages == 0;
  web.GetListMessagesInBox(kInbox, account.id, wanted.headers, wanted.delete_on_server, "",
                           first_download, EMailOrder::ORDER_DATA, EMailOrderDirection::ORDER_DESC,
                           1);
  const Failure failure(web);
  web.Server()->OnProgress({});
  web.Engine()->OnStored({});
  progress.Clear();
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
  const Stock after = StockOf(*installation.connection, options, account);
  return {after.messages - before.messages,
          wanted.headers ? 0 : std::max<int64_t>(0, after.headers - before.headers),
          seconds.count(), failure};
}

std::string JsonOf(const AccountEntry& account, const Outcome& outcome) {
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.3f", outcome.seconds);
  JsonObject json;
  json.Number("id", account.id).Number("new", outcome.stored).Raw("seconds", seconds);
  if (outcome.without_content > 0) json.Number("without_content", outcome.without_content);
  if (outcome.failure.number() != 0) json.Raw("error", outcome.failure.Json());
  return json.Str();
}

void Print(const AccountEntry& account, const Outcome& outcome) {
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.1f", outcome.seconds);
  const std::string name =
      "Account " + std::to_string(account.id) + ", " + Printable(NameOf(account)) + ": ";
  const bool failed = outcome.failure.number() != 0;
  if (failed) std::cerr << name << outcome.failure.Text() << std::endl;
  if (failed && outcome.stored == 0) return;
  std::cout << name << outcome.stored
            << (outcome.stored == 1 ? " new message, " : " new messages, ") << seconds << " s"
            << std::endl;
  if (outcome.without_content > 0) {
    std::cerr << name << outcome.without_content
              << " of them without their content, which could not be written; it is fetched again "
                 "when they are opened\n  check the free space and the rights of the message folder"
              << std::endl;
  }
}

Exit Sync(const Options& options, const SyncOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  const auto web = OpenFacade(installation, options);
  web->Engine()->SetOptions({.settle = true, .deep = wanted.deep});
  Exit status = Exit::kSuccess;
  std::vector<std::string> results;
  for (const AccountEntry& account : Chosen(*installation.connection, options, wanted)) {
    const Outcome outcome = SyncOne(installation, *web, options, wanted, account);
    if (status == Exit::kSuccess) status = outcome.Status();
    results.push_back(JsonOf(account, outcome));
    if (!options.json) Print(account, outcome);
  }
  if (options.json) {
    std::cout << JsonObject().Raw("accounts", JsonArray(results)).Str() << "\n";
  }
  return status;
}

}  // namespace

void AddSyncCommand(Program& program) {
  auto wanted = std::make_shared<SyncOptions>();
  CLI::App* command =
      program.AddCommand(program.app, "sync", "download the new messages of the default account",
                         [&program, wanted] { return Sync(program.options, *wanted); });
  auto* account = command->add_option("--account", wanted->account, "this account instead");
  command->add_flag("--all", wanted->all, "all accounts of the user")->excludes(account);
  auto* headers = command->add_flag("--headers", wanted->headers,
                                    "headers only; a message is fetched when it is opened");
  command
      ->add_flag("--delete-on-server", wanted->delete_on_server,
                 "delete on the server what was downloaded whole")
      ->excludes(headers);
  command->add_flag("--deep", wanted->deep,
                    "look every message on the server up, whatever the last download says");
  AddPasswordFile(*command, wanted->password_file);
}

}  // namespace korvane::cli
