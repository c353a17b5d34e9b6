// Passwords that are not kept: a page that needs one asks for it, and what it was asked to do comes
// back together with the password. It is used for this once.
#pragma once

#include <string>
#include <vector>

#include "facade/account_directory.h"
#include "visit.h"

namespace korvane::site {

/// What came with the form; "" when nothing did. Never taken from an address, which would be
/// logged.
std::string GivenPassword(const Visit& visit, int32_t account);

/// True when the password of one of the accounts is neither kept nor given: the answer is then a
/// form that sends this request's fields and the passwords to `action`.
bool AsksForPasswords(Visit& visit, const std::vector<AccountEntry>& accounts,
                      const std::string& action);

}  // namespace korvane::site
