#include "pop3/sockets/tcp.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "pop3/sockets/resolver.h"

namespace korvane::sockets {

namespace {

constexpr std::chrono::milliseconds kNextAddressAfter{250};

// A connection under way, already standing, or (not open) refused.
struct Attempt {
  TcpSocket socket;
  bool connected = false;
};

Attempt Start(const Address& address) {
  TcpSocket socket(
      ::socket(address.family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
  if (!socket.IsOpen()) return {};
  // A command is one small packet: it must not wait for the acknowledgement of the one before.
  const int on = 1;
  setsockopt(socket.descriptor(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const auto* name = reinterpret_cast<const sockaddr*>(address.bytes.data());
  if (::connect(socket.descriptor(), name, address.size) == 0) return {std::move(socket), true};
  // An interrupted connect goes on by itself.
  if (errno == EINPROGRESS || errno == EINTR) return {std::move(socket), false};
  return {};
}

bool Stands(int descriptor) {
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

int PollTime(std::chrono::milliseconds time) {
  return static_cast<int>(std::min<long long>(time.count(), 0x7FFFFFFF));
}

}  // namespace

TcpSocket& TcpSocket::operator=(TcpSocket&& other) noexcept {
  if (this != &other) {
    if (IsOpen()) ::close(descriptor_);
    descriptor_ = other.Release();
  }
  return *this;
}

TcpSocket::~TcpSocket() {
  if (IsOpen()) ::close(descriptor_);
}

int TcpSocket::Release() { return std::exchange(descriptor_, -1); }

Moved TcpSocket::Read(char* buffer, size_t capacity) const {
  ssize_t count;
  do {
    count = ::recv(descriptor_, buffer, capacity, 0);
  } while (count < 0 && errno == EINTR);
  if (count > 0) return {Moved::Result::kDone, static_cast<size_t>(count)};
  if (count == 0) return {Moved::Result::kClosed};
  if (errno == EAGAIN || errno == EWOULDBLOCK) return {Moved::Result::kWantsRead};
  return {Moved::Result::kFailed};
}

Moved TcpSocket::Write(const char* bytes, size_t count) const {
  ssize_t sent;
  do {
    sent = ::send(descriptor_, bytes, count, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  if (sent > 0) return {Moved::Result::kDone, static_cast<size_t>(sent)};
  if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return {Moved::Result::kWantsWrite};
  return {Moved::Result::kFailed};
}

bool TcpSocket::Wait(Moved::Result wanted, const Deadline& deadline) const {
  pollfd wait{descriptor_, wanted == Moved::Result::kWantsRead ? short{POLLIN} : short{POLLOUT}, 0};
  while (!deadline.Passed()) {
    const int ready = ::poll(&wait, 1, PollTime(deadline.Left()));
    // An error of the socket is ready too: the next attempt to move bytes reports it.
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
  return false;
}

TcpSocket ConnectTcp(const std::string& name, uint16_t port, const Deadline& deadline) {
  const std::vector<Address> addresses = Resolve(name, port, deadline);
  auto next = addresses.begin();
  std::vector<TcpSocket> pending;
  Deadline patience{std::chrono::milliseconds(0)};
  while (!deadline.Passed() && (next != addresses.end() || !pending.empty())) {
    if (next != addresses.end() && (pending.empty() || patience.Passed())) {
      Attempt attempt = Start(*next++);
      if (attempt.connected) return std::move(attempt.socket);
      if (!attempt.socket.IsOpen()) continue;
      pending.push_back(std::move(attempt.socket));
      patience = Deadline(kNextAddressAfter);
    }
    std::vector<pollfd> waits;
    waits.reserve(pending.size());
    for (const TcpSocket& socket : pending) waits.push_back({socket.descriptor(), POLLOUT, 0});
    auto time = deadline.Left();
    if (next != addresses.end()) time = std::min(time, patience.Left());
    if (::poll(waits.data(), waits.size(), PollTime(time)) < 0 && errno != EINTR) return {};
    for (size_t i = waits.size(); i-- > 0;) {
      if (waits[i].revents == 0) continue;
      if (Stands(waits[i].fd)) return std::move(pending[i]);
      pending.erase(pending.begin() + static_cast<std::ptrdiff_t>(i));
      patience = Deadline(std::chrono::milliseconds(0));
    }
  }
  return {};
}

}  // namespace korvane::sockets
