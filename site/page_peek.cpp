// "Peek at the server": the reduced facade, straight on the POP3 server; nothing is stored here.
#include <algorithm>

#include "facade/basic_interface.h"
#include "page.h"
#include "pages.h"
#include "passwords.h"

namespace korvane::site {

namespace {

constexpr int32_t kPageSize = 15;

std::string AddressOf(const AccountEntry& account) {
  return "account=" + std::to_string(account.id);
}

/// The account that the address names, else the default one.
AccountEntry ChosenAccount(const Visit& visit) {
  const auto accounts = AccountDirectory(*visit.site.mail.Database()).List(visit.user());
  if (accounts.empty()) throw PageFault(409, "Add an account first.");
  const int32_t number = visit.Number("account", 0, 1);
  for (const AccountEntry& account : accounts) {
    if (number == 0 ? account.is_default : account.id == number) return account;
  }
  if (number != 0) throw PageFault(404, "There is no such account.");
  return accounts.front();
}

/// A session on the account's server; none when its password was asked for instead.
std::unique_ptr<BasicInterface> Connect(Visit& visit, const AccountEntry& account) {
  if (AsksForPasswords(visit, {account}, visit.request.path)) return nullptr;
  const auto mail = visit.site.mail.Open(visit.user(), account.id);
  if (!mail->has_account) throw PageFault(409, "Add an account first.");
  auto basic = std::make_unique<BasicInterface>();
  basic->MailServer(mail->web.MailServer());
  basic->ServerPort(mail->web.ServerPort());
  basic->ServerTimeout(mail->web.ServerTimeout());
  basic->Username(mail->web.Username());
  basic->Password(account.keeps_password ? mail->web.Password() : GivenPassword(visit, account.id));
  if (!basic->Init()) {
    throw PageFault(502, FaultText(basic->GetLastError(), basic->GetLastErrorDesc()));
  }
  basic->MailListPageSize(kPageSize);
  return basic;
}

/// The accounts to choose from; one that is alone needs no choice.
void FillAccounts(Page& page, const Visit& visit, const AccountEntry& chosen) {
  const auto accounts = AccountDirectory(*visit.site.mail.Database()).List(visit.user());
  if (accounts.size() < 2) return;
  page.Show("CHOICE");
  for (const AccountEntry& account : accounts) {
    auto& row = page.Row("ACCOUNT");
    row.SetIntValue("ACCOUNT_ID", account.id);
    row.SetValue("ACCOUNT_NAME", account.username + " at " + account.server);
    if (account.id == chosen.id) row.ShowSection("ACCOUNT_CHOSEN");
  }
}

}  // namespace

void ShowPeek(Visit& visit) {
  const AccountEntry account = ChosenAccount(visit);
  const auto basic = Connect(visit, account);
  if (!basic) return;
  const int32_t number = visit.Number("page", 1, 1);
  Any pages;
  Any mails;
  const auto list = basic->GetListMessagesInBox(1, number, &pages, &mails);
  Page page(visit, "On the server", "peek");
  page.Set("PAGE", number);
  page.Set("ACCOUNT_NOW", account.id);
  FillAccounts(page, visit, account);
  page.Set("PAGES", std::max<int64_t>(pages.ToInt64().value_or(0), 1));
  page.Set("MAILS", mails.ToInt64().value_or(0));
  if (basic->GetLastError() != 0) {
    page.Row("FAULT").SetValue("FAULT_TEXT",
                               FaultText(basic->GetLastError(), basic->GetLastErrorDesc()));
  }
  if (list) {
    const RowDates dates;
    for (const auto& message : list->Items()) {
      auto& row = page.Row("MESSAGE");
      row.SetIntValue("NUMBER", message->IdOnServer());
      row.SetValue("UID", message->MessageUIDL());
      const std::string subject = message->Subject(ETextFormat::TextFormat_Normal);
      row.SetValue("WHO", message->FromName().empty() ? "(nobody)" : message->FromName());
      row.SetValue("SUBJECT", subject.empty() ? "(no subject)" : subject);
      dates.Fill(row, *message);
      row.SetValue("SIZE", SizeText(message->Size()));
    }
  }
  if (number > 1) page.Row("PREVIOUS").SetIntValue("PREVIOUS_PAGE", number - 1);
  if (number < pages.ToInt32().value_or(0)) page.Row("NEXT").SetIntValue("NEXT_PAGE", number + 1);
  page.Answer();
}

void PeekMessage(Visit& visit) {
  const AccountEntry account = ChosenAccount(visit);
  const auto basic = Connect(visit, account);
  if (!basic) return;
  const auto number = ParseNumber(visit.request.matches[1].str());
  // The unique id makes sure that the number still means the same message.
  const auto message = basic->GetMessageUIDL(number.value_or(0), visit.Field("uid"));
  if (!message) throw PageFault(502, FaultText(basic->GetLastError(), basic->GetLastErrorDesc()));
  Page page(visit, "On the server", "peek_message");
  page.Set("NUMBER", number.value_or(0));
  page.Set("ACCOUNT_NOW", account.id);
  page.Set("UID", message->MessageUIDL());
  const std::string subject = message->Subject(ETextFormat::TextFormat_Normal);
  page.Set("SUBJECT", subject.empty() ? "(no subject)" : subject);
  page.Set("FROM_NAME", message->FromName());
  page.Set("FROM_ADDRESS", message->FromMailAddress());
  page.Set("DATE", DateText(*message));
  std::string text;
  message->MessageBody(text, ETextAlternativeType::AlterType_Text, ETextFormat::TextFormat_Normal);
  page.Set("TEXT_BODY", text);
  page.Answer();
}

void PeekDelete(Visit& visit) {
  const AccountEntry account = ChosenAccount(visit);
  const auto basic = Connect(visit, account);
  if (!basic) return;
  const auto number = ParseNumber(visit.request.matches[1].str());
  if (basic->DeleteMessageUIDL(number.value_or(0), visit.Field("uid")) && basic->Finish()) {
    visit.Tell("The message was deleted on the server.");
  } else {
    visit.TellFault("The message was not deleted. " +
                    FaultText(basic->GetLastError(), basic->GetLastErrorDesc()));
  }
  visit.GoTo("/peek?" + AddressOf(account));
}

}  // namespace korvane::site
