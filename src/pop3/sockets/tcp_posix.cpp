#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "pop3/sockets/tcp.h"

namespace korvane::sockets {

namespace {

int Descriptor(std::intptr_t socket) { return static_cast<int>(socket); }

bool Stands(int descriptor) {
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

int PollTime(std::chrono::milliseconds time) {
  return static_cast<int>(std::min<long long>(time.count(), 0x7FFFFFFF));
}

}  // namespace

TcpSocket TcpSocket::Start(const Address& address, bool& connected) {
  TcpSocket socket(
      ::socket(address.family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
  if (!socket.IsOpen()) return {};
  const int descriptor = Descriptor(socket.socket_);
  // A command is one small packet: it must not wait for the acknowledgement of the one before.
  const int on = 1;
  setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const auto* name = reinterpret_cast<const sockaddr*>(address.bytes.data());
  connected = ::connect(descriptor, name, address.size) == 0;
  // An interrupted connect goes on by itself.
  if (connected || errno == EINPROGRESS || errno == EINTR) return socket;
  return {};
}

std::vector<TcpSocket::Progress> TcpSocket::Watch(const std::vector<TcpSocket>& started,
                                                  std::chrono::milliseconds time) {
  std::vector<pollfd> waits;
  waits.reserve(started.size());
  for (const TcpSocket& socket : started) {
    waits.push_back({Descriptor(socket.socket_), POLLOUT, 0});
  }
  const bool waited = ::poll(waits.data(), waits.size(), PollTime(time)) >= 0;
  if (!waited && errno != EINTR) return {};
  std::vector<Progress> progress(waits.size(), Progress::kNone);
  for (size_t i = 0; waited && i < waits.size(); ++i) {
    if (waits[i].revents == 0) continue;
    progress[i] = Stands(waits[i].fd) ? Progress::kStands : Progress::kFailed;
  }
  return progress;
}

void TcpSocket::Close() {
  if (IsOpen()) ::close(Descriptor(std::exchange(socket_, kNone)));
}

Moved TcpSocket::Read(char* buffer, size_t capacity) const {
  ssize_t count;
  do {
    count = ::recv(Descriptor(socket_), buffer, capacity, 0);
  } while (count < 0 && errno == EINTR);
  if (count > 0) return {Moved::Result::kDone, static_cast<size_t>(count)};
  if (count == 0) return {Moved::Result::kClosed};
  if (errno == EAGAIN || errno == EWOULDBLOCK) return {Moved::Result::kWantsRead};
  return {Moved::Result::kFailed};
}

Moved TcpSocket::Write(const char* bytes, size_t count) const {
  ssize_t sent;
  do {
    sent = ::send(Descriptor(socket_), bytes, count, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  if (sent > 0) return {Moved::Result::kDone, static_cast<size_t>(sent)};
  if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return {Moved::Result::kWantsWrite};
  return {Moved::Result::kFailed};
}

bool TcpSocket::Wait(Moved::Result wanted, const Deadline& deadline) const {
  pollfd wait{Descriptor(socket_),
              wanted == Moved::Result::kWantsRead ? short{POLLIN} : short{POLLOUT}, 0};
  while (!deadline.Passed()) {
    const int ready = ::poll(&wait, 1, PollTime(deadline.Left()));
    // An error of the socket is ready too: the next attempt to move bytes reports it.
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
  return false;
}

}  // namespace korvane::sockets
