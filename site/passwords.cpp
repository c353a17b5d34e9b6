#include "passwords.h"

#include "page.h"

namespace korvane::site {

namespace {
constexpr std::string_view kPrefix = "password_";

std::string FieldOf(int32_t account) { return std::string(kPrefix) + std::to_string(account); }
}  // namespace

std::string GivenPassword(const Visit& visit, int32_t account) {
  return visit.request.method == "POST" ? visit.Field(FieldOf(account)) : "";
}

bool AsksForPasswords(Visit& visit, const std::vector<AccountEntry>& accounts,
                      const std::string& action) {
  std::vector<const AccountEntry*> missing;
  std::vector<const AccountEntry*> asked;
  for (const AccountEntry& account : accounts) {
    if (account.keeps_password) continue;
    asked.push_back(&account);
    if (GivenPassword(visit, account.id).empty()) missing.push_back(&account);
  }
  if (missing.empty()) return false;
  Page page(visit, "Password", "password");
  page.Set("ACTION", action);
  for (const auto& [name, value] : visit.request.params) {
    if (name == "csrf" || name.starts_with(kPrefix)) continue;
    auto& row = page.Row("PASSED");
    row.SetValue("PASSED_NAME", name);
    row.SetValue("PASSED_VALUE", value);
  }
  for (const AccountEntry* account : asked) {
    auto& row = page.Row("ACCOUNT");
    row.SetIntValue("ACCOUNT_ID", account->id);
    row.SetValue("ACCOUNT_NAME", account->username + " at " + account->server);
  }
  page.Answer();
  return true;
}

}  // namespace korvane::site
