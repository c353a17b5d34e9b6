// The platform's resolver knows no time-out: for a name it runs on a thread of its own, which is
// left behind when the deadline passes and ends by itself.
#include "pop3/sockets/resolver.h"

#include <netdb.h>
#include <sys/socket.h>

#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace korvane::sockets {

namespace {

std::vector<Address> Ask(const std::string& name, uint16_t port, int flags) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags | AI_NUMERICSERV;
  addrinfo* list = nullptr;
  std::vector<Address> addresses;
  if (getaddrinfo(name.c_str(), std::to_string(port).c_str(), &hints, &list) != 0) return addresses;
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, freeaddrinfo);
  for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    Address address;
    if (entry->ai_addrlen > address.bytes.size()) continue;
    address.family = entry->ai_family;
    address.size = entry->ai_addrlen;
    std::memcpy(address.bytes.data(), entry->ai_addr, entry->ai_addrlen);
    addresses.push_back(address);
  }
  return addresses;
}

// What the thread and the one who waits share.
struct Question {
  std::mutex mutex;
  std::condition_variable answered;
  std::optional<std::vector<Address>> addresses;
};

}  // namespace

std::vector<Address> Resolve(const std::string& name, uint16_t port, const Deadline& deadline) {
  std::vector<Address> numeric = Ask(name, port, AI_NUMERICHOST);
  if (!numeric.empty()) return numeric;

  auto question = std::make_shared<Question>();
  std::thread([question, name, port] {
    std::vector<Address> addresses = Ask(name, port, 0);
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
