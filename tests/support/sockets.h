// The platform's sockets as the servers of the tests use them: blocking ones, with numbers that fit
// an int on every platform.
#pragma once

#ifdef _WIN32
#include <winsock2.h>
// Behind the one that it needs.
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include <cstddef>
#include <string_view>

namespace korvane::test {

#ifdef _WIN32

inline int NewSocket(int family) {
  static const bool started = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
  }();
  return started ? static_cast<int>(::socket(family, SOCK_STREAM, 0)) : -1;
}

inline void CloseSocket(int socket) { ::closesocket(static_cast<SOCKET>(socket)); }

/// Waits until there is something to read, or somebody to accept, or the end.
inline bool WaitForInput(int socket, int milliseconds) {
  fd_set input;
  FD_ZERO(&input);
  FD_SET(static_cast<SOCKET>(socket), &input);
  timeval time{milliseconds / 1000, milliseconds % 1000 * 1000};
  return ::select(0, &input, nullptr, nullptr, &time) == 1;
}

inline std::ptrdiff_t SendSome(int socket, std::string_view bytes) {
  return ::send(static_cast<SOCKET>(socket), bytes.data(), static_cast<int>(bytes.size()), 0);
}

inline int AcceptOne(int listener) {
  return static_cast<int>(::accept(static_cast<SOCKET>(listener), nullptr, nullptr));
}

inline void IgnoreDeadConnections() {}

#else

inline int NewSocket(int family) { return ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0); }

inline void CloseSocket(int socket) { ::close(socket); }

/// Waits until there is something to read, or somebody to accept, or the end.
inline bool WaitForInput(int socket, int milliseconds) {
  pollfd waiting{socket, POLLIN, 0};
  return ::poll(&waiting, 1, milliseconds) == 1;
}

inline std::ptrdiff_t SendSome(int socket, std::string_view bytes) {
  return ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

inline int AcceptOne(int listener) { return ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC); }

/// A signal that the client under test must not raise would still end the test; one that this
/// thread raises would not tell anything.
inline void IgnoreDeadConnections() {
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
}

#endif

/// Listens on a free port of 127.0.0.1, which it returns; 0 when it cannot.
inline int ListenHere(int& listener, int backlog = 4) {
  listener = NewSocket(AF_INET);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener, generic, length) != 0 || listen(listener, backlog) != 0 ||
      getsockname(listener, generic, &length) != 0) {
    return 0;
  }
  return ntohs(address.sin_port);
}

/// False when the peer gave up.
inline bool SendAll(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const std::ptrdiff_t sent = SendSome(socket, bytes);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

/// A command is one small packet: it must not wait for the acknowledgement of the one before.
inline void SendAtOnce(int socket) {
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
}

}  // namespace korvane::test
