// Synchronisations that read ahead against such in lock-step, over servers that behave as a seed
// says: the rows, the bytes of the message file and of the attachments, the bookkeeping, the error
// and what stays on the server are the same.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "engine/engine_fixture.h"
#include "engine/random_servers.h"

namespace korvane::test {
namespace {

/// The store in memory where there is such a place: this is about what is written, not about when.
class InMemory {
 public:
  InMemory() {
    if (std::filesystem::is_directory("/dev/shm")) ::setenv("TMPDIR", "/dev/shm", 1);
  }
  ~InMemory() { ::unsetenv("TMPDIR"); }
};

std::string Bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class Side {
 public:
  Side(Store& store, bool ahead) : store_(store), connection_(store.Connect()), ahead_(ahead) {
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
    for (const auto& name : store_.AttachmentFiles()) std::filesystem::remove(PathOf(name));
    std::mt19937 random(seed + 99);
    RandomServer server(seed, ahead_);
    server.every_message_is_dated = server.with_files = true;
    std::ostringstream story;
    for (int i = 0; i < 2; ++i) {
      MailEngine::SyncRequest sync;
      sync.header_only = random() % 4 == 0;
      sync.first_download = i == 0 && random() % 2 == 0;
      sync.delete_on_server = random() % 3 == 0;
      Request request(store_, connection_, account_);
      MailServer::Limits limits;
      if (random() % 3 == 0) limits.in_memory = 300;
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
      story << Bytes(store_.MessageFile()) << "\n";
      for (const auto& name : store_.AttachmentFiles())
        story << name << Bytes(PathOf(name)) << "\n";
    }
    for (const int32_t number : server.model.deleted) story << "deleted " << number << "\n";
    return story.str();
  }

 private:
  std::string PathOf(const std::string& name) const {
    return store_.AttachmentFolder() + "/" + name;
  }

  Store& store_;
  std::shared_ptr<Connection> connection_;
  bool ahead_;
  int32_t account_ = 0;
};

TEST(AheadStore, HoldsTheSameAsLockStepOver10000RandomServers) {
  const InMemory in_memory;
  Store store;
  Side lock_step(store, false);
  Side ahead(store, true);
  int with_files = 0;
  int failed = 0;
  for (uint64_t seed = 1; seed <= 10'000; ++seed) {
    const std::string story = lock_step.Run(seed);
    ASSERT_EQ(story, ahead.Run(seed)) << "seed " << seed;
    with_files += !store.AttachmentFiles().empty();
    failed += !story.starts_with("error 0");
  }
  // The servers are of every kind.
  EXPECT_GT(with_files, 1'000);
  EXPECT_GT(failed, 1'000);
  EXPECT_LT(failed, 9'000);
}

}  // namespace
}  // namespace korvane::test
