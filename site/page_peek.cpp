// "Peek at the server": the reduced facade, straight on the POP3 server; nothing is stored here.
#include <algorithm>

#include "facade/basic_interface.h"
#include "page.h"
#include "pages.h"

namespace korvane::site {

namespace {

constexpr int32_t kPageSize = 15;

/// A session on the server of the person's default account.
std::unique_ptr<BasicInterface> Connect(Visit& visit) {
  const auto mail = visit.site.mail.Open(visit.user());
  if (!mail->has_account) throw PageFault(409, "Add an account first.");
  auto basic = std::make_unique<BasicInterface>();
  basic->MailServer(mail->web.MailServer());
  basic->ServerPort(mail->web.ServerPort());
  basic->ServerTimeout(mail->web.ServerTimeout());
  basic->Username(mail->web.Username());
  basic->Password(mail->web.Password());
  if (!basic->Init()) {
    throw PageFault(502, FaultText(basic->GetLastError(), basic->GetLastErrorDesc()));
  }
  basic->MailListPageSize(kPageSize);
  return basic;
}

}  // namespace

void ShowPeek(Visit& visit) {
  const auto basic = Connect(visit);
  const int32_t number = visit.Number("page", 1, 1);
  Any pages;
  Any mails;
  const auto list = basic->GetListMessagesInBox(1, number, &pages, &mails);
  Page page(visit, "On the server", "peek");
  page.Set("PAGE", number);
  page.Set("PAGES", std::max<int64_t>(pages.ToInt64().value_or(0), 1));
  page.Set("MAILS", mails.ToInt64().value_or(0));
  if (basic->GetLastError() != 0) {
    page.Row("FAULT").SetValue("FAULT_TEXT",
                               FaultText(basic->GetLastError(), basic->GetLastErrorDesc()));
  }
  if (list) {
    for (const auto& message : list->Items()) {
      auto& row = page.Row("MESSAGE");
      row.SetIntValue("NUMBER", message->IdOnServer());
      row.SetValue("UID", message->MessageUIDL());
      const std::string subject = message->Subject(ETextFormat::TextFormat_Normal);
      row.SetValue("WHO", message->FromName().empty() ? "(nobody)" : message->FromName());
      row.SetValue("SUBJECT", subject.empty() ? "(no subject)" : subject);
      row.SetValue("DATE", message->ReceivedDate().substr(0, 16));
      row.SetValue("SIZE", SizeText(message->Size()));
    }
  }
  if (number > 1) page.Row("PREVIOUS").SetIntValue("PREVIOUS_PAGE", number - 1);
  if (number < pages.ToInt32().value_or(0)) page.Row("NEXT").SetIntValue("NEXT_PAGE", number + 1);
  page.Answer();
}

void PeekMessage(Visit& visit) {
  const auto basic = Connect(visit);
  const auto number = ParseNumber(visit.request.matches[1].str());
  // The unique id makes sure that the number still means the same message.
  const auto message = basic->GetMessageUIDL(number.value_or(0), visit.Field("uid"));
  if (!message) throw PageFault(502, FaultText(basic->GetLastError(), basic->GetLastErrorDesc()));
  Page page(visit, "On the server", "peek_message");
  page.Set("NUMBER", number.value_or(0));
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
  const auto basic = Connect(visit);
  const auto number = ParseNumber(visit.request.matches[1].str());
  if (basic->DeleteMessageUIDL(number.value_or(0), visit.Field("uid")) && basic->Finish()) {
    visit.Tell("The message was deleted on the server.");
  } else {
    visit.TellFault("The message was not deleted. " +
                    FaultText(basic->GetLastError(), basic->GetLastErrorDesc()));
  }
  visit.GoTo("/peek");
}

}  // namespace korvane::site
