// korvane list: a page of a box.
#include <cstdio>
#include <ctime>
#include <iostream>
#include <map>
#include <memory>

#include "cli/failure.h"
#include "cli/installation.h"
#include "cli/json.h"
#include "cli/message_date.h"
#include "cli/program.h"
#include "cli/table.h"
#include "cli/terminal_text.h"
#include "frame/error_numbers.h"

namespace korvane::cli {
namespace {

constexpr int32_t kInbox = 1;
constexpr int32_t kNoSynchronisation = -1;

const std::map<std::string, EMailOrder> kOrders = {{"date", EMailOrder::ORDER_DATA},
                                                   {"from", EMailOrder::ORDER_NAME},
                                                   {"subject", EMailOrder::ORDER_OBJECT},
                                                   {"size", EMailOrder::ORDER_SIZE},
                                                   {"to", EMailOrder::ORDER_NAME_TO}};

struct ListOptions {
  int32_t box = kInbox;
  int32_t page = 1;
  int32_t page_size = 25;
  EMailOrder order = EMailOrder::ORDER_DATA;
  bool ascending = false;
};

std::string HumanSize(int32_t bytes) {
  if (bytes < 1000) return std::to_string(bytes) + " B";
  const double thousands = bytes / 1000.0;
  char text[32];
  if (thousands < 999.5) {
    std::snprintf(text, sizeof text, thousands < 9.95 ? "%.1f kB" : "%.0f kB", thousands);
  } else {
    std::snprintf(text, sizeof text, "%.1f MB", thousands / 1000);
  }
  return text;
}

/// The name where there is one, else the address.
std::string Who(const std::string& name, const std::string& address, const std::string& whole) {
  if (!name.empty()) return name;
  return address.empty() ? whole : address;
}

void PrintJson(const ListOptions& wanted, const MailMessages& page, const Any& pages,
               const Any& mails) {
  std::vector<std::string> items;
  for (const auto& message : page.Items()) {
    items.push_back(JsonObject()
                        .Number("id", message->Id())
                        .Text("date", IsoDate(message->ReceivedDate()))
                        .Text("from", message->From())
                        .Text("to", message->MessageTo())
                        .Text("subject", message->Subject(ETextFormat::TextFormat_Normal))
                        .Number("size", message->Size())
                        .Flag("attachments", message->ExistAttachments())
                        .Flag("read", message->Letto())
                        .Str());
  }
  std::cout << JsonObject()
                   .Number("box", wanted.box)
                   .Number("page", wanted.page)
                   .Number("pages", pages.ToInt64().value_or(0))
                   .Number("messages", mails.ToInt64().value_or(0))
                   .Raw("items", JsonArray(items))
                   .Str()
            << "\n";
}

void PrintTable(const ListOptions& wanted, const MailMessages& page, const Any& pages,
                const Any& mails) {
  const bool to = wanted.order == EMailOrder::ORDER_NAME_TO;
  Table table({{"Id", true},
               {""},
               {"Date"},
               {to ? "To" : "From", false, 8, 28},
               {"Subject", false, 10},
               {""},
               {"Size", true}});
  const std::time_t now = std::time(nullptr);
  for (const auto& message : page.Items()) {
    const std::string who =
        to ? Who(message->MessageToName(), message->MessageToAddress(), message->MessageTo())
           : Who(message->FromName(), message->FromMailAddress(), message->From());
    table.AddRow({std::to_string(message->Id()), message->Letto() ? "" : "*",
                  ReadableDate(message->ReceivedDate(), now), who,
                  message->Subject(ETextFormat::TextFormat_Normal),
                  message->ExistAttachments() ? "+" : "", HumanSize(message->Size())});
  }
  if (page.Count() > 0) table.Print(std::cout, TerminalWidth());
  std::cout << "Box " << wanted.box << ", page " << wanted.page << " of "
            << std::max<int64_t>(1, pages.ToInt64().value_or(0)) << ", "
            << mails.ToInt64().value_or(0) << " messages";
  if (page.Count() > 0) std::cout << "  (* not read, + attachments)";
  std::cout << "\n";
}

Exit List(const Options& options, const ListOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  const auto web = OpenFacade(installation, options);
  web->MailListPageSize(wanted.page_size);
  Any pages(0);
  Any mails(0);
  const auto direction =
      wanted.ascending ? EMailOrderDirection::ORDER_ASC : EMailOrderDirection::ORDER_DESC;
  const auto page =
      web->GetListMessagesInBox(wanted.box, kNoSynchronisation, true, false, "", false,
                                wanted.order, direction, wanted.page, &pages, &mails);
  // The page knows better than the facade what was wrong.
  if (page && page->GetLastError() == error::PageOutOfRange) {
    throw Failure(Exit::kNotFound, "there is no page " + std::to_string(wanted.page) + ": box " +
                                       std::to_string(wanted.box) + " has " + pages.ToText());
  }
  if (!page || web->GetLastError() != 0) throw Failure(*web);
  if (options.json) {
    PrintJson(wanted, *page, pages, mails);
  } else {
    PrintTable(wanted, *page, pages, mails);
  }
  return Exit::kSuccess;
}

}  // namespace

void AddListCommand(Program& program) {
  auto wanted = std::make_shared<ListOptions>();
  CLI::App* command =
      program.AddCommand(program.app, "list", "list a page of a box; newest first",
                         [&program, wanted] { return List(program.options, *wanted); });
  command->add_option("--box", wanted->box, "the box; 1 is the inbox")->capture_default_str();
  command->add_option("--page", wanted->page, "the page, from 1")
      ->capture_default_str()
      ->check(CLI::Range(1, INT32_MAX));
  command->add_option("--page-size", wanted->page_size, "messages a page")
      ->capture_default_str()
      ->check(CLI::Range(1, 1'000'000));
  command->add_option("--order", wanted->order, "date, from, subject, size or to")
      ->transform(CLI::CheckedTransformer(kOrders, CLI::ignore_case).description(""))
      ->type_name("ORDER");
  command->add_flag("--asc", wanted->ascending, "from the smallest up");
}

}  // namespace korvane::cli
