// The platform's resolver knows no time-out: for a name it runs on a thread of its own, which is
// left behind when the deadline passes and ends by itself.
#include "pop3/sockets/resolver.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace korvane::sockets {

namespace {

// What the thread and the one who waits share.
struct Question {
  std::mutex mutex;
  std::condition_variable answered;
  std::optional<std::vector<Address>> addresses;
};

}  // namespace

std::vector<Address> Resolve(const std::string& name, uint16_t port, const Deadline& deadline) {
  std::vector<Address> numeric = AskPlatform(name, port, Lookup::kAddressesOnly);
  if (!numeric.empty()) return numeric;

  auto question = std::make_shared<Question>();
  std::thread([question, name, port] {
    std::vector<Address> addresses = AskPlatform(name, port, Lookup::kNames);
    const std::lock_guard lock(question->mutex);
    question->addresses = std::move(addresses);
    question->answered.notify_one();
  }).detach();
  std::unique_lock lock(question->mutex);
  question->answered.wait_for(lock, deadline.Left(),
                              [&] { return question->addresses.has_value(); });
  return question->addresses.value_or(std::vector<Address>());
}

}  // namespace korvane::sockets
