// Synchronisations that read ahead against such in lock-step, over servers that behave as a seed
// says: the rows, the bytes of the message file, the bookkeeping, the error and what stays on the
// server are the same.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "engine/engine_fixture.h"
#include "engine/random_servers.h"

namespace korvane::test {
namespace {

class Side {
 public:
  Side(Store& store, bool ahead) : store_(store), ahead_(ahead) {
    Store::Account row;
    row.host = ahead ? "pop3+ahead://pop.example" : "pop3://pop.example";
    row.name = "bob";
    row.password = "secret";
    account_ = store_.Add(row);
  }

  /// Two runs, and what they led to as text.
  std::string Run(uint64_t seed) {
    store_.db().Execute("DELETE FROM mail");
    store_.db().Execute("DELETE FROM ultimi_scaricamenti");
    std::filesystem::remove(store_.MessageFile());
    std::mt19937 random(seed + 99);
    RandomServer server(seed, ahead_);
    server.every_message_is_dated = true;
    std::ostringstream story;
    for (int i = 0; i < 2; ++i) {
      MailEngine::SyncRequest sync;
      sync.header_only = random() % 4 == 0;
      sync.first_download = i == 0 && random() % 2 == 0;
      sync.delete_on_server = random() % 3 == 0;
      Request request(store_, account_);
      MailServer::Limits limits;
      if (random() % 3 == 0) limits.selection_bytes = 300;
      request.server->SetLimits(limits);
      request.engine.SetOptions({.settle = random() % 2 == 0});
      request.Sync(sync);
      story << "error " << request.Error() << " " << request.engine.GetLastErrorDesc() << "\n";
      for (const Store::Row& row : store_.Rows()) {
        story << row.id << " " << row.number << " " << row.position << " " << row.size << " "
              << row.subject << " " << row.received << " " << row.message_id << " " << row.deleted
              << row.known_with_older << row.attachments << "\n";
      }
      if (const auto kept = store_.Kept(account_))
        story << kept->time << " " << kept->error << "\n";
      std::ifstream file(store_.MessageFile(), std::ios::binary);
      story << file.rdbuf() << "\n";
    }
    for (const int32_t number : server.model.deleted) story << "deleted " << number << "\n";
    return story.str();
  }

 private:
  Store& store_;
  bool ahead_;
  int32_t account_ = 0;
};

TEST(AheadStore, HoldsTheSameAsLockStepOver1500RandomServers) {
  Store store;
  Side lock_step(store, false);
  Side ahead(store, true);
  for (uint64_t seed = 1; seed <= 1'500; ++seed) {
    ASSERT_EQ(lock_step.Run(seed), ahead.Run(seed)) << "seed " << seed;
  }
}

}  // namespace
}  // namespace korvane::test
