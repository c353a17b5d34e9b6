// What pages of boxes of different sizes take, in every order and direction, with the count.
//   bench_listing_pages schema URL          makes the tables and indexes
//   bench_listing_pages measure URL USER…   box 1 of these users; one line a page:
//                                           order direction user page microseconds
// The times are medians; the boxes take turns, so that what else the machine does falls on all.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "facade/mail_user.h"
#include "frame/database.h"
#include "frame/schema.h"
#include "message/mail_messages.h"

namespace {

using namespace korvane;
using Clock = std::chrono::steady_clock;

constexpr int kPageSize = 25;
constexpr const char* kOrders[] = {"data", "mittente", "oggetto", "dimensione", "destinatario"};
constexpr const char* kPages[] = {"first", "middle", "last"};
/// The first page is what the sizes are compared by; the others only need a figure.
constexpr int kTurns[] = {25, 5, 5};

struct Box {
  std::shared_ptr<MailUser> account = std::make_shared<MailUser>();
  int32_t pages = 0;
};

int64_t List(Connection& connection, const Box& box, MailMessages::ListRequest request) {
  const auto start = Clock::now();
  MailMessages list;
  Any pages;
  Any mails;
  if (!list.ListBox(box.account, connection, request, &pages, &mails) || list.Count() == 0) {
    std::fprintf(stderr, "error %d\n", list.GetLastError());
    std::exit(1);
  }
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start).count();
}

void Measure(Connection& connection, const std::vector<Box>& boxes) {
  for (int order = 0; order < 5; ++order) {
    for (int direction = 0; direction < 2; ++direction) {
      MailMessages::ListRequest request;
      request.order = static_cast<EMailOrder>(order);
      request.direction = static_cast<EMailOrderDirection>(direction);
      for (int which = 0; which < 3; ++which) {
        std::vector<std::vector<int64_t>> times(boxes.size());
        // The first turn fills the caches.
        for (int turn = 0; turn <= kTurns[which]; ++turn) {
          for (size_t i = 0; i < boxes.size(); ++i) {
            request.page = which == 0 ? 1 : which == 1 ? (boxes[i].pages + 1) / 2 : boxes[i].pages;
            const int64_t time = List(connection, boxes[i], request);
            if (turn > 0) times[i].push_back(time);
          }
        }
        for (size_t i = 0; i < boxes.size(); ++i) {
          std::ranges::sort(times[i]);
          std::printf("%s %s %d %s %.1f\n", kOrders[order], direction == 0 ? "asc" : "desc",
                      boxes[i].account->UserId(), kPages[which],
                      static_cast<double>(times[i][times[i].size() / 2]) / 1000);
        }
      }
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  const std::string what = count > 2 ? arguments[1] : "";
  try {
    if (what == "schema") {
      CreateSchema(arguments[2]);
    } else if (what == "measure" && count > 3) {
      const auto connection = OpenDatabase(arguments[2]);
      std::vector<Box> boxes;
      for (int i = 3; i < count; ++i) {
        Box box;
        box.account->UserId(std::atoi(arguments[i]));
        box.account->BoxId(1);
        box.account->MailListPageSize(kPageSize);
        MailMessages list;
        Any pages;
        Any mails;
        list.ListBox(box.account, *connection, {.page = 1}, &pages, &mails);
        box.pages = pages.ToInt32().value_or(0);
        boxes.push_back(std::move(box));
      }
      Measure(*connection, boxes);
    } else {
      std::fputs("bench_listing_pages schema URL | measure URL USER...\n", stderr);
      return 2;
    }
  } catch (const DatabaseError& fault) {
    std::fprintf(stderr, "%s\n", fault.what());
    return 1;
  }
  return 0;
}
