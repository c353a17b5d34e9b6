// One connection to a server, plain or TLS, with the time-out it was opened with.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

#include "pop3/sockets/host_form.h"
#include "pop3/sockets/tcp.h"
#include "pop3/sockets/tls.h"

namespace korvane::sockets {

class Connection {
 public:
  /// Resolves, connects and shakes hands within the time-out. None on any failure.
  static std::shared_ptr<Connection> Open(const HostForm& host, std::chrono::milliseconds timeout);
  Connection(TcpSocket socket, std::chrono::milliseconds timeout);
  Connection(const Connection&) = delete;
  ~Connection();

  /// Sends everything within the time-out, or fails.
  bool Send(const char* bytes, size_t count);

  /// Bytes received, at least 1; 0 when the peer has closed; below 0 on a failure or a time-out.
  std::ptrdiff_t Receive(char* buffer, size_t capacity);

 private:
  TcpSocket socket_;
  std::unique_ptr<Tls> tls_;  ///< none for plain text; uses socket_
  std::chrono::milliseconds timeout_;
};

}  // namespace korvane::sockets
