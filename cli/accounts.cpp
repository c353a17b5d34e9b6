#include "cli/accounts.h"

#include "cli/failure.h"
#include "pop3/host_scheme.h"

namespace korvane::cli {
bool IsEncrypted(const AccountEntry& account) {
  return ReadHostScheme(account.server, account.port).encrypted;
}

bool ReadsAhead(const AccountEntry& account) {
  return ReadHostScheme(account.server, account.port).reads_ahead;
}

std::string NameOf(const AccountEntry& account) {
  return account.username + " at " + account.server + " port " + std::to_string(account.port);
}

AccountEntry FindAccount(Connection& connection, int32_t user, int32_t id) {
  if (auto account = AccountDirectory(connection).Find(user, id)) return *std::move(account);
  throw Failure(Exit::kAccount, "user " + std::to_string(user) + " has no account " +
                                    std::to_string(id) + "; korvane account list shows them");
}

AccountDirectory AccountsToChange(Connection& connection) {
  if (connection.HasTable("account_email") && connection.HasTable("account_email_utenti")) {
    return AccountDirectory(connection);
  }
  throw Failure(Exit::kDatabase,
                "this database keeps its accounts in tables of the site's own: change them there");
}

void RefuseControls(const std::string& text, const char* what) {
  for (const unsigned char c : text) {
    if (c < 0x20 || c == 0x7F) {
      throw Failure(Exit::kUsage, std::string("the ") + what + " holds a control character");
    }
  }
}

}  // namespace korvane::cli
