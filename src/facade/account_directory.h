// The mail accounts of the users, as set-up programs keep them: the tables behind the view
// "Query1_account" that the component reads (docs/database.md). The component itself never writes
// them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "../frame/database.h"

namespace korvane {

struct AccountEntry {
  int32_t id = 0;
  std::string server;  ///< host, or one of the forms that choose TLS (Tarsel_MailConversions.h)
  int32_t port = 110;
  int32_t timeout = 60000;  ///< milliseconds
  std::string username;
  bool keeps_password = true;  ///< false: whoever opens the account gives the password
  bool is_default = false;
};

/// Throws DatabaseError.
class AccountDirectory {
 public:
  explicit AccountDirectory(Connection& database) : database_(database) {}

  /// The user's accounts by number.
  std::vector<AccountEntry> List(int32_t user);
  std::optional<AccountEntry> Find(int32_t user, int32_t account);

  /// Adds an account and returns its number, one that no message carries yet. A user's first one
  /// becomes the default.
  int32_t Add(int32_t user, const AccountEntry& account, const std::string& password);
  /// Changes the user's own account `account.id`; no password keeps the one that is there. False
  /// when the user has no such account.
  bool Change(int32_t user, const AccountEntry& account,
              const std::optional<std::string>& password);
  /// Mail that was downloaded from it stays; the time of its last download goes. Where it was the
  /// default, the oldest of the others becomes it. False when the user has no such account.
  bool Remove(int32_t user, int32_t account);
  bool MakeDefault(int32_t user, int32_t account);

 private:
  int32_t AddOnce(int32_t user, const AccountEntry& account, const std::string& password);
  bool ChangeOnce(int32_t user, const AccountEntry& account,
                  const std::optional<std::string>& password);
  bool RemoveOnce(int32_t user, int32_t account);
  void SetDefault(int32_t user, int32_t link);

  Connection& database_;
};

}  // namespace korvane
