// The person's POP3 accounts: add, edit, verify, remove, choose the default.
#include <cctype>

#include "facade/account_directory.h"
#include "page.h"
#include "pages.h"
#include "passwords.h"
#include "pop3/capabilities.h"
#include "pop3/host_scheme.h"

namespace korvane::site {

namespace {

/// What a form says of an account. Throws PageFault with what is wrong.
AccountEntry ReadForm(const Visit& visit) {
  AccountEntry account;
  account.id = visit.Number("account", 0, 0);
  account.server = visit.Field("server");
  account.port = visit.Number("port", 0, 1, 65535);
  account.username = visit.Field("username");
  account.timeout = visit.Number("timeout", 60, 1, 600) * 1000;
  // The scheme is a choice of the form; the host is nothing but a host.
  for (const char c : account.server) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-' && c != ':' &&
        c != '[' && c != ']') {
      throw PageFault(400, "The server must be a host name or an address.");
    }
  }
  if (account.server.empty()) throw PageFault(400, "Name the mail server.");
  if (account.port == 0) throw PageFault(400, "The port must be a number from 1 to 65535.");
  if (account.username.empty() || account.username.size() > 255) {
    throw PageFault(400, "Give the user name of the account.");
  }
  account.keeps_password = !visit.Ticked("ask");
  account.server = (visit.Ticked("tls") ? "pop3s://" : "pop3://") + account.server;
  return account;
}

struct HostForm {
  std::string host;
  bool tls = false;
  bool reads_ahead = false;
};
HostForm SplitHost(const AccountEntry& account) {
  const HostScheme scheme = ReadHostScheme(account.server, account.port);
  return {std::string(scheme.host), scheme.encrypted, scheme.reads_ahead};
}

std::string WithReadAhead(const AccountEntry& account, bool on) {
  return ReadHostScheme(account.server, account.port).WithReadAhead(on);
}

/// What the server says about taking commands ahead of its replies.
std::string AheadWords(const Visit& visit, int32_t account) {
  const auto entry = AccountDirectory(*visit.site.mail.Database()).Find(visit.user(), account);
  if (!entry) return "";
  const bool on = SplitHost(*entry).reads_ahead;
  if (AskCapabilities(entry->server, entry->port, entry->timeout).pipelining) {
    return on ? " It takes commands ahead of its replies, and so mail is fetched."
              : " It takes commands ahead of its replies: \u201cFetch faster\u201d makes use of "
                "that.";
  }
  return on ? " It does not say that it takes commands ahead of its replies: better fetch one by "
              "one."
            : "";
}

void Verify(Visit& visit, int32_t account, const std::string& password_given = "") {
  const auto mail = visit.site.mail.Open(visit.user(), account);
  if (!password_given.empty()) mail->web.Password(password_given);
  if (mail->web.VerifyAccount()) {
    visit.Tell("The account works: the server accepted name and password." +
               AheadWords(visit, account));
  } else {
    visit.TellFault("The account does not work. " +
                    FaultText(mail->web.GetLastError(), mail->web.GetLastErrorDesc()));
  }
}

/// With the password of the form, where it is not kept: without one there is nothing to try.
void VerifySaved(Visit& visit, int32_t account, const AccountEntry& entry,
                 const std::string& password) {
  if (entry.keeps_password) return Verify(visit, account);
  if (!password.empty()) return Verify(visit, account, password);
  visit.Tell("The account was saved. Its password is asked for each time.");
}

}  // namespace

void ShowAccounts(Visit& visit) {
  const auto database = visit.site.mail.Database();
  Page page(visit, "Accounts", "accounts");
  const auto accounts = AccountDirectory(*database).List(visit.user());
  page.ShowIf(accounts.empty(), "NONE");
  const int32_t edited = visit.Number("edit", 0, 1);
  for (const AccountEntry& account : accounts) {
    const HostForm host = SplitHost(account);
    auto& row = page.Row("ACCOUNT");
    row.SetIntValue("ACCOUNT_ID", account.id);
    row.SetValue("SERVER", host.host);
    row.SetIntValue("PORT", account.port);
    row.SetValue("USERNAME", account.username);
    row.ShowSection(host.tls ? "WITH_TLS" : "WITHOUT_TLS");
    row.ShowSection(host.reads_ahead ? "AHEAD" : "NOT_AHEAD");
    if (!account.keeps_password) row.ShowSection("ASKS");
    row.ShowSection(account.is_default ? "IS_DEFAULT" : "NOT_DEFAULT");
    if (account.id != edited) continue;
    page.Set("FORM_ID", account.id);
    page.Set("FORM_SERVER", host.host);
    page.Set("FORM_PORT", account.port);
    page.Set("FORM_USERNAME", account.username);
    page.Set("FORM_TIMEOUT", account.timeout / 1000);
    page.ShowIf(host.tls, "FORM_TLS");
    page.ShowIf(!account.keeps_password, "FORM_ASK");
    page.Show("EDITING");
  }
  page.ShowIf(edited == 0, "ADDING");
  page.Answer();
}

void ChangeAccounts(Visit& visit) {
  const auto lock = visit.site.mail.LockUser(visit.user());
  const auto database = visit.site.mail.Database();
  AccountDirectory accounts(*database);
  const std::string what = visit.request.matches[1].str();
  const int32_t account = visit.Number("account", 0, 1);
  bool found = true;
  if (what == "add") {
    const std::string password = visit.Field("password");
    const AccountEntry entry = ReadForm(visit);
    const int32_t added = accounts.Add(visit.user(), entry, password);
    VerifySaved(visit, added, entry, password);
  } else if (what == "change") {
    const std::string password = visit.Field("password");
    AccountEntry entry = ReadForm(visit);
    const auto before = accounts.Find(visit.user(), account);
    if (before) entry.server = WithReadAhead(entry, SplitHost(*before).reads_ahead);
    if (entry.keeps_password && password.empty() && before && !before->keeps_password) {
      throw PageFault(400, "Give the password that is to be kept.");
    }
    found = accounts.Change(visit.user(), entry,
                            password.empty() ? std::nullopt : std::optional(password));
    if (found) VerifySaved(visit, account, entry, password);
  } else if (what == "remove") {
    found = accounts.Remove(visit.user(), account);
    if (found) visit.Tell("The account was removed. Its mail stays here.");
  } else if (what == "ahead") {
    auto entry = accounts.Find(visit.user(), account);
    found = entry.has_value();
    if (found) {
      entry->server = WithReadAhead(*entry, visit.Ticked("on"));
      accounts.Change(visit.user(), *entry, std::nullopt);
    }
  } else if (what == "default") {
    found = accounts.MakeDefault(visit.user(), account);
  } else {
    const auto entry = accounts.Find(visit.user(), account);
    found = entry.has_value();
    if (found && AsksForPasswords(visit, {*entry}, "/accounts/verify")) return;
    if (found) Verify(visit, account, entry->keeps_password ? "" : GivenPassword(visit, account));
  }
  if (!found) throw PageFault(404, "There is no such account.");
  visit.GoTo("/accounts");
}

}  // namespace korvane::site
