// What a list page asks of the component, and nothing else: BossObject.Init, WebInterface.Init,
// GetListMessagesInBox over an open connection, and the texts of the page's messages read.
//
// bench_listing_call alone ROUNDS: user 1, one call after the other; milliseconds, one a line.
// bench_listing_call together THREADS SECONDS USERS: as many users in turn; calls a second.
// Each thread has a connection that it keeps, as the site's have.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "korvane.h"

using namespace korvane;

namespace {

using Clock = std::chrono::steady_clock;

std::string ConnectionString() {
  BossObject boss;
  if (!boss.Init(1)) std::exit(1);
  return boss.DbConnectionString();
}

/// The bytes of what the page shows; 0 when there is no page.
size_t Call(const std::shared_ptr<Connection>& database, int32_t user) {
  const auto boss = std::make_shared<BossObject>();
  WebInterface web;
  web.ConnDataBase(database);
  web.UserId(user);
  if (!boss->Init(1) || !web.Init(boss)) return 0;
  Any pages;
  Any mails;
  const auto page = web.GetListMessagesInBox(1, -1, true, false, "", false, EMailOrder::ORDER_DATA,
                                             EMailOrderDirection::ORDER_DESC, 1, &pages, &mails);
  if (!page || page->Count() != 25) return 0;
  size_t bytes = 0;
  for (const auto& message : page->Items()) {
    bytes += message->FromName().size() + message->ReceivedDate().size() +
             message->Subject(ETextFormat::TextFormat_Normal).size() +
             static_cast<size_t>(message->Size()) + message->Letto() + message->ExistAttachments();
  }
  return bytes;
}

int Alone(int rounds) {
  const auto database = OpenDatabase(ConnectionString());
  for (int round = 0; round < rounds; ++round) {
    const auto begin = Clock::now();
    if (Call(database, 1) == 0) return 1;
    std::printf("%.6f\n", std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
  }
  return 0;
}

int Together(int threads, int seconds, int users) {
  std::atomic<int64_t> calls = 0;
  std::atomic<bool> failed = false;
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  std::vector<std::thread> all;
  for (int number = 0; number < threads; ++number) {
    all.emplace_back([&, number] {
      const auto database = OpenDatabase(ConnectionString());
      for (int32_t turn = number; Clock::now() < end; turn += threads) {
        if (Call(database, turn % users + 1) == 0) failed = true;
        ++calls;
      }
    });
  }
  for (std::thread& one : all) one.join();
  std::printf("%.0f\n", static_cast<double>(calls) / seconds);
  return failed ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  if (what == "alone" && argc == 3) return Alone(std::atoi(argv[2]));
  if (what == "together" && argc == 5) {
    return Together(std::atoi(argv[2]), std::atoi(argv[3]), std::atoi(argv[4]));
  }
  std::fprintf(stderr, "listing_call alone ROUNDS | together THREADS SECONDS USERS\n");
  return 2;
}
