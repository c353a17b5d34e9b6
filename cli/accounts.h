// The POP3 accounts of a user: read through the view that the component reads, changed in the
// tables behind it. Everything here throws DatabaseError and Failure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "frame/database.h"

namespace korvane::cli {

struct Account {
  int32_t id = 0;
  bool is_default = false;
  std::string server;
  int32_t port = 0;
  int32_t timeout = 0;  ///< milliseconds
  std::string username;
  bool password_stored = false;

  /// True when the session is encrypted from its first byte.
  bool Tls() const;
  /// "maria at pop.example.org port 995"
  std::string Name() const;
};

std::vector<Account> ListAccounts(Connection& connection, int32_t user);
/// One of them. Fails with the status for accounts when the user has none of that number.
Account FindAccount(Connection& connection, int32_t user, int32_t id);

/// What a new account is made of, or what changes in one.
struct AccountChanges {
  std::optional<std::string> server;
  std::optional<int32_t> port;
  std::optional<int32_t> timeout;
  std::optional<std::string> username;
  std::optional<std::string> password;
  bool forget_password = false;  ///< asked for at each use
  bool make_default = false;
};

/// The number of the new account. The first account of a user becomes the default.
int32_t AddAccount(Connection& connection, int32_t user, const AccountChanges& account);
void ChangeAccount(Connection& connection, int32_t user, int32_t id, const AccountChanges& changes);
/// Removes the account and what is known of its downloads; the messages stay.
void RemoveAccount(Connection& connection, int32_t user, int32_t id);

}  // namespace korvane::cli
