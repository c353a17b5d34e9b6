// What the commands say about an account, and what they refuse to put into one.
#pragma once

#include <cstdint>
#include <string>

#include "facade/account_directory.h"
#include "frame/database.h"

namespace korvane::cli {

/// True when the session is encrypted from its first byte.
bool IsEncrypted(const AccountEntry& account);
/// True when commands may be sent ahead of the replies to earlier ones.
bool ReadsAhead(const AccountEntry& account);

/// "maria at pop.example.org port 995"
std::string NameOf(const AccountEntry& account);

/// One account of a user; throws Failure, with the status for accounts, when there is none.
AccountEntry FindAccount(Connection& connection, int32_t user, int32_t id);

/// The accounts for changing them. Throws Failure where the database keeps them in tables of the
/// site's own, behind the view that the component reads.
AccountDirectory AccountsToChange(Connection& connection);

/// Throws Failure when a text holds a control character: a line break in a name or a password would
/// be a second command.
void RefuseControls(const std::string& text, const char* what);

}  // namespace korvane::cli
