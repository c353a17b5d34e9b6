// A server on a loopback port whose whole behaviour is a function in the test: it gets the accepted
// connection and runs on a thread; when it returns, the connection is closed.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

#include "support/sockets.h"

namespace companion_test {

namespace test = korvane::test;

using test::SendAll;

inline std::string ReceiveSome(int connection) {
  char buffer[4096];
  const std::ptrdiff_t count = ::recv(connection, buffer, sizeof buffer, 0);
  return count > 0 ? std::string(buffer, static_cast<size_t>(count)) : std::string();
}

// Returns when the client has closed, and drops what it sends until then.
inline void AwaitEnd(int connection) {
  while (!ReceiveSome(connection).empty()) {
  }
}

class LocalServer {
 public:
  using Script = std::function<void(int connection)>;

  explicit LocalServer(Script script, int family = AF_INET, int clients = 1) {
    listener_ = test::NewSocket(family);
    sockaddr_storage address{};
    socklen_t size = 0;
    if (family == AF_INET) {
      auto* v4 = reinterpret_cast<sockaddr_in*>(&address);
      v4->sin_family = AF_INET;
      v4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      size = sizeof *v4;
    } else {
      auto* v6 = reinterpret_cast<sockaddr_in6*>(&address);
      v6->sin6_family = AF_INET6;
      v6->sin6_addr = in6addr_loopback;
      size = sizeof *v6;
    }
    EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(::listen(listener_, 16), 0);
    size = sizeof address;
    EXPECT_EQ(::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port_ = ntohs(family == AF_INET ? reinterpret_cast<sockaddr_in*>(&address)->sin_port
                                    : reinterpret_cast<sockaddr_in6*>(&address)->sin6_port);
    thread_ = std::thread([this, script = std::move(script), clients] {
      test::IgnoreDeadConnections();
      for (int i = 0; i < clients; ++i) {
        // A test that has failed may never connect: the wait ends all the same.
        if (!test::WaitForInput(listener_, 10000)) return;
        const int connection = test::AcceptOne(listener_);
        if (connection < 0) return;
        script(connection);
        test::CloseSocket(connection);
      }
    });
  }
  LocalServer(const LocalServer&) = delete;
  ~LocalServer() {
    thread_.join();
    test::CloseSocket(listener_);
  }

  int32_t port() const { return port_; }

 private:
  int listener_ = -1;
  int32_t port_ = 0;
  std::thread thread_;
};

inline bool HasIpv6() {
  const int socket = test::NewSocket(AF_INET6);
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_addr = in6addr_loopback;
  const bool bound =
      socket >= 0 && ::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  if (socket >= 0) test::CloseSocket(socket);
  return bound;
}

// A port on which nobody listens: bound, so that nobody else takes it either.
class RefusedPort {
 public:
  RefusedPort() : socket_(test::NewSocket(AF_INET)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port_ = ntohs(address.sin_port);
  }
  RefusedPort(const RefusedPort&) = delete;
  ~RefusedPort() { test::CloseSocket(socket_); }
  int32_t port() const { return port_; }

 private:
  int socket_;
  int32_t port_ = 0;
};

class Stopwatch {
 public:
  std::chrono::milliseconds Elapsed() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start_);
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace companion_test
