// A box: one page of its messages, getting new ones, deleting.
#include <algorithm>
#include <array>
#include <cmath>
#include <map>

#include "box_rows.h"
#include "facade/account_directory.h"
#include "http_server.h"
#include "page.h"
#include "pages.h"
#include "passwords.h"

namespace korvane::site {

namespace {

struct Order {
  const char* name;
  const char* label;
  EMailOrder order;
};
constexpr std::array kOrders = {Order{"date", "Date", EMailOrder::ORDER_DATA},
                                Order{"from", "Sender", EMailOrder::ORDER_NAME},
                                Order{"subject", "Subject", EMailOrder::ORDER_OBJECT},
                                Order{"size", "Size", EMailOrder::ORDER_SIZE},
                                Order{"to", "Recipient", EMailOrder::ORDER_NAME_TO}};

/// What a page of a box is asked for by its address.
struct BoxView {
  int32_t box = kInbox;
  int32_t page = 1;
  int32_t size = 25;
  const Order* order = &kOrders[0];
  bool ascending = false;

  std::string Address(int32_t at_page) const { return Address(at_page, *order, ascending); }
  std::string Address(int32_t at_page, const Order& by, bool up) const {
    std::string address = "/box/" + std::to_string(box) + "?page=" + std::to_string(at_page);
    if (&by != &kOrders[0]) address += std::string("&order=") + by.name;
    if (up) address += "&dir=asc";
    if (size != 25) address += "&size=" + std::to_string(size);
    return address;
  }
};

BoxView ReadView(const Visit& visit) {
  BoxView view;
  if (visit.request.matches.size() > 1) {
    view.box = ParseNumber(visit.request.matches[1].str()).value_or(kInbox);
  }
  view.page = visit.Number("page", 1, 1);
  view.size = visit.Number("size", 25, 5, 200);
  const std::string order = visit.Field("order");
  for (const Order& one : kOrders) {
    if (order == one.name) view.order = &one;
  }
  view.ascending = visit.Field("dir") == "asc";
  return view;
}

void FillRow(TemplateValues& row, const MailMessage& message, const RowDates& dates, int32_t box) {
  const bool outgoing = box == kDrafts;
  std::string who = outgoing ? message.MessageToName() : message.FromName();
  if (who.empty()) who = outgoing ? message.MessageToAddress() : message.FromMailAddress();
  if (who.empty()) who = "(nobody)";
  std::string subject = message.Subject(ETextFormat::TextFormat_Normal);
  if (subject.empty()) subject = "(no subject)";
  row.SetIntValue("ID", message.Id());
  row.SetValue("WHO", std::move(who));
  row.SetValue("SUBJECT", std::move(subject));
  dates.Fill(row, message);
  row.SetValue("SIZE", SizeText(message.Size()));
  if (!message.Letto()) row.ShowSection("UNREAD_ROW");
  if (message.ExistAttachments()) row.ShowSection("HAS_ATTACHMENTS");
}

void FillOrders(Page& page, const BoxView& view) {
  for (const Order& order : kOrders) {
    const bool current = &order == view.order;
    auto& row = page.Row("ORDER");
    row.SetValue("ORDER_LABEL", order.label);
    row.SetValue("ORDER_ADDRESS", view.Address(1, order, current ? !view.ascending : false));
    row.SetValue("ORDER_SORT", !current ? "none" : view.ascending ? "ascending" : "descending");
    if (current) row.ShowSection(view.ascending ? "ORDER_UP" : "ORDER_DOWN");
  }
}

void FillPaging(Page& page, const BoxView& view, int32_t pages) {
  const auto link = [&](const char* section, const char* name, bool there, int32_t to) {
    if (there) page.Row(section).SetValue(name, view.Address(to));
  };
  link("FIRST", "FIRST_ADDRESS", view.page > 1, 1);
  link("PREVIOUS", "PREVIOUS_ADDRESS", view.page > 1, view.page - 1);
  link("NEXT", "NEXT_ADDRESS", view.page < pages, view.page + 1);
  link("LAST", "LAST_ADDRESS", view.page < pages, pages);
}

void FillProgress(Page& page, const FetchJobs::Progress& progress) {
  if (!progress.running) return;
  auto& row = page.Row("FETCHING");
  row.SetIntValue("LOOKED_AT", progress.selection.looked_at);
  row.SetIntValue("TOTAL", progress.selection.total);
  row.SetValue("ACCOUNT", progress.account);
}

/// The accounts to choose from; one that is alone needs no choice.
void FillFetchForm(Page& page, const Visit& visit) {
  const auto accounts = AccountDirectory(*visit.site.mail.Database()).List(visit.user());
  if (accounts.empty()) return page.Show("NO_ACCOUNT");
  page.Show("FETCH_FORM");
  for (const AccountEntry& account : accounts) {
    auto& row = page.Row("FETCH_ACCOUNT");
    row.SetIntValue("ACCOUNT_ID", account.id);
    row.SetValue("ACCOUNT_NAME", account.username + " at " + account.server);
    if (account.is_default) row.ShowSection("ACCOUNT_DEFAULT");
  }
}

void TellEnd(const Visit& visit, const FetchJobs::Progress& progress) {
  if (!progress.just_ended) return;
  if (!progress.fault.empty()) {
    const std::string fetched = progress.stored == 0 ? ""
                                                     : std::to_string(progress.stored) +
                                                           " new messages came all the same. ";
    visit.TellFault("Mail could not be fetched completely. " + progress.fault + ' ' + fetched +
                    "What is stored here is listed below.");
    return;
  }
  const int64_t fresh = progress.stored;
  visit.Tell(fresh == 0
                 ? "There is no new mail."
                 : std::to_string(fresh) + (fresh == 1 ? " new message." : " new messages."));
}

}  // namespace

void ShowBox(Visit& visit) {
  BoxView view = ReadView(visit);
  // Asked for once: a run that ends while the page is made is told by the next one, which this one
  // fetches as long as it shows progress.
  const FetchJobs::Progress progress = visit.site.jobs.TakeEnd(visit.user());
  TellEnd(visit, progress);

  const auto lock = visit.site.mail.LockUser(visit.user());
  const ReadScope reading(*visit.site.mail.Database());
  const std::shared_ptr<Mail> mail = visit.site.mail.Open(visit.user());
  DropAfterAnswer(mail);
  mail->web.MailListPageSize(view.size);
  Any pages;
  Any mails;
  const auto direction =
      view.ascending ? EMailOrderDirection::ORDER_ASC : EMailOrderDirection::ORDER_DESC;
  const auto list = [&] {
    return mail->web.GetListMessagesInBox(view.box, -1, true, false, "", false, view.order->order,
                                          direction, view.page, &pages, &mails);
  };
  auto messages = list();
  int32_t page_count = pages.ToInt32().value_or(0);
  if (view.page > std::max(page_count, 1)) {
    // The last page went with a deletion: show the one that is the last now.
    view.page = std::max(page_count, 1);
    messages = list();
  }
  if (!messages || mail->web.GetLastError() != 0) {
    throw PageFault(503, FaultText(mail->web.GetLastError(), mail->web.GetLastErrorDesc()));
  }

  DropAfterAnswer(messages);

  const auto made = std::make_shared<Page>(visit, BoxName(view.box), "box");
  DropAfterAnswer(made);
  Page& page = *made;
  page.AtBox(view.box);
  page.Set("BOX_ID", view.box);
  page.Set("BOX_TITLE", BoxName(view.box));
  page.Set("PAGE", view.page);
  page.Set("PAGES", std::max(page_count, 1));
  page.Set("MAILS", mails.ToInt64().value_or(0));
  page.Set("HERE", view.Address(view.page));
  page.Set("SIZE_NOW", view.size);
  page.Set("ORDER_NOW", view.order->name);
  page.Set("DIR_NOW", view.ascending ? "asc" : "desc");
  if (view.box == kInbox) FillFetchForm(page, visit);
  page.ShowIf(messages->Count() == 0, "EMPTY");
  page.ShowIf(messages->Count() > 0, "FILLED");
  FillOrders(page, view);
  FillPaging(page, view, page_count);
  FillProgress(page, progress);
  const RowDates dates;
  for (const auto& message : messages->Items()) {
    FillRow(page.Row("MESSAGE"), *message, dates, view.box);
  }
  page.Answer();
}

void StartFetch(Visit& visit) {
  if (visit.Field("which") == "none") return visit.GoTo("/box/1");
  FetchRequest request;
  request.account = visit.Field("which") == "all" ? -100 : visit.Number("which", -10, 1);
  request.header_only = visit.Field("what") != "whole";
  request.delete_on_server = visit.Ticked("delete") && !request.header_only;
  const auto accounts = AccountsOf(*visit.site.mail.Database(), visit.user(), request.account);
  if (AsksForPasswords(visit, accounts, "/fetch")) return;
  for (const AccountEntry& account : accounts) {
    if (!account.keeps_password) request.passwords[account.id] = GivenPassword(visit, account.id);
  }
  if (!visit.site.jobs.Start(visit.user(), request)) visit.Tell("Mail is being fetched already.");
  visit.GoTo("/box/1");
}

void ShowProgress(Visit& visit) {
  const auto progress = visit.site.jobs.Look(visit.user());
  const SelectionProgress& now = progress.selection;
  const std::string left =
      progress.seconds_left ? std::to_string(std::llround(*progress.seconds_left)) : "null";
  visit.response.set_content(
      std::string("{\"running\":") + (progress.running ? "true" : "false") +
          ",\"looked_at\":" + std::to_string(now.looked_at) +
          ",\"total\":" + std::to_string(now.total) + ",\"taken\":" + std::to_string(now.taken) +
          ",\"bytes\":" + std::to_string(now.whole ? now.bytes : 0) +
          ",\"all_bytes\":" + std::to_string(now.whole ? now.all_bytes : 0) + ",\"to_the_end\":" +
          (now.to_the_end ? "true" : "false") + ",\"seconds_left\":" + left + "}",
      "application/json");
}

namespace {

std::string Joined(const std::vector<int32_t>& ids) {
  std::string text;
  for (const int32_t id : ids) text += (text.empty() ? "" : ",") + std::to_string(id);
  return text;
}

/// Of messages that are to go from the server but to stay here, those of which only the header is
/// here are fetched first; what cannot be fetched is left out, and told.
void FetchBeforeDeletion(const Visit& visit, Mail& mail, std::vector<int32_t>& ids) {
  size_t kept = 0;
  std::string why;
  for (const int32_t id : HeadersOnly(*mail.database, visit.user(), ids)) {
    if (mail.web.GetMessage(id)) continue;
    why = FaultText(mail.web.GetLastError(), mail.web.GetLastErrorDesc());
    std::erase(ids, id);
    ++kept;
  }
  if (kept == 0) return;
  visit.TellFault(std::to_string(kept) + (kept == 1 ? " message was" : " messages were") +
                  " left on the server, because only the header is here and the rest could not be"
                  " fetched. " +
                  why);
}

/// The messages by the account whose password has to be asked for; those that need none together.
std::map<std::optional<int32_t>, std::vector<int32_t>> ByAskedAccount(
    const Visit& visit, Mail& mail, const std::vector<int32_t>& ids,
    std::vector<AccountEntry>& asked) {
  std::map<std::optional<int32_t>, std::vector<int32_t>> groups;
  const auto accounts = AccountDirectory(*mail.database).List(visit.user());
  for (const int32_t id : ids) {
    const int32_t number = AccountOfMessage(*mail.database, visit.user(), id);
    const auto account = std::ranges::find(accounts, number, &AccountEntry::id);
    if (account == accounts.end() || account->keeps_password) {
      groups[std::nullopt].push_back(id);
      continue;
    }
    auto& group = groups[number];
    if (group.empty()) asked.push_back(*account);
    group.push_back(id);
  }
  return groups;
}

std::string DeletionText(size_t count, EDelType type) {
  const std::string what =
      count == 1 ? "The message was " : std::to_string(count) + " messages were ";
  return what + (type == EDelType::DEL_TYPE_LOCALE   ? "deleted here."
                 : type == EDelType::DEL_TYPE_SERVER ? "deleted on the server and kept here."
                                                     : "deleted here and on the server.");
}

}  // namespace

void DeleteMessages(Visit& visit) {
  std::vector<int32_t> ids;
  for (const std::string& id : visit.Fields("id")) {
    const auto number = ParseNumber(id);
    if (!number || *number < 1) throw PageFault(400, "That is no message number.");
    ids.push_back(*number);
  }
  std::string back = visit.Field("back");
  // Only a path of this site.
  if (!back.starts_with("/box/") || back.find_first_of("\r\n\\") != std::string::npos) {
    back = "/box/1";
  }
  if (ids.empty()) {
    visit.TellFault("No message was chosen.");
    return visit.GoTo(back);
  }
  const std::string where = visit.Field("where");
  const EDelType type = where == "server" ? EDelType::DEL_TYPE_SERVER
                        : where == "both" ? EDelType::DEL_TYPE_LOCALE_SERVER
                                          : EDelType::DEL_TYPE_LOCALE;
  const auto lock = visit.site.mail.LockUser(visit.user());
  const auto mail = visit.site.mail.Open(visit.user());
  std::map<std::optional<int32_t>, std::vector<int32_t>> groups;
  std::vector<AccountEntry> asked;
  if (type == EDelType::DEL_TYPE_LOCALE) {
    groups[std::nullopt] = ids;
  } else {
    groups = ByAskedAccount(visit, *mail, ids, asked);
    if (AsksForPasswords(visit, asked, "/delete")) return;
  }
  size_t deleted = 0;
  for (auto& [account, group] : groups) {
    if (account) mail->web.Password(GivenPassword(visit, *account));
    if (type == EDelType::DEL_TYPE_SERVER) FetchBeforeDeletion(visit, *mail, group);
    if (group.empty()) continue;
    if (mail->web.DeleteMessage(Joined(group), type)) {
      deleted += group.size();
    } else {
      visit.TellFault("Not everything could be deleted. " +
                      FaultText(mail->web.GetLastError(), mail->web.GetLastErrorDesc()));
    }
  }
  if (deleted > 0) {
    visit.login->Tell(
        {DeletionText(deleted, type), false, type == EDelType::DEL_TYPE_LOCALE ? Joined(ids) : ""});
  }
  visit.GoTo(back);
}

void UndoDelete(Visit& visit) {
  std::vector<int32_t> ids;
  const std::string given = visit.Field("ids");
  for (size_t at = 0; at <= given.size();) {
    const size_t end = std::min(given.find(',', at), given.size());
    if (const auto id = ParseNumber(std::string_view(given).substr(at, end - at)))
      ids.push_back(*id);
    at = end + 1;
  }
  const auto lock = visit.site.mail.LockUser(visit.user());
  const int32_t undone = UndoDeletion(*visit.site.mail.Database(), visit.user(), ids);
  if (undone > 0) {
    visit.Tell(undone == 1 ? "The message is back."
                           : std::to_string(undone) + " messages are back.");
  } else {
    visit.TellFault("There was nothing to bring back: the store was compacted since.");
  }
  const auto box = ParseNumber(visit.Field("box"));
  visit.GoTo("/box/" + std::to_string(box.value_or(kInbox)));
}

}  // namespace korvane::site
