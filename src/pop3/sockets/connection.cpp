#include "pop3/sockets/connection.h"

#include <cstdio>

namespace korvane::sockets {

std::shared_ptr<Connection> Connection::Open(const HostForm& host,
                                             std::chrono::milliseconds timeout) {
  const Deadline deadline(timeout);
  TcpSocket socket = ConnectTcp(host.name, host.port, deadline);
  if (!socket.IsOpen()) return nullptr;
  auto connection = std::make_shared<Connection>(std::move(socket), timeout);
  if (host.security == Security::kPlain) return connection;
  if (host.security == Security::kUnverified) {
    std::fprintf(stderr,
                 "Tarsel_MailConversions: %s port %u: TLS without verifying the server's "
                 "certificate\n",
                 host.name.c_str(), unsigned{host.port});
  }
  connection->tls_ = Tls::Handshake(connection->socket_, host.name,
                                    host.security == Security::kVerified, deadline);
  return connection->tls_ ? connection : nullptr;
}

Connection::Connection(TcpSocket socket, std::chrono::milliseconds timeout)
    : socket_(std::move(socket)), timeout_(timeout) {}

Connection::~Connection() {
  if (tls_) tls_->End();
}

bool Connection::Send(const char* bytes, size_t count) {
  const Deadline deadline(timeout_);
  while (count > 0) {
    const Moved moved = tls_ ? tls_->Write(bytes, count) : socket_.Write(bytes, count);
    switch (moved.result) {
      case Moved::Result::kDone:
        bytes += moved.count;
        count -= moved.count;
        break;
      case Moved::Result::kWantsRead:
      case Moved::Result::kWantsWrite:
        if (!socket_.Wait(moved.result, deadline)) return false;
        break;
      default:
        return false;
    }
  }
  return true;
}

std::ptrdiff_t Connection::Receive(char* buffer, size_t capacity) {
  const Deadline deadline(timeout_);
  for (;;) {
    const Moved moved = tls_ ? tls_->Read(buffer, capacity) : socket_.Read(buffer, capacity);
    switch (moved.result) {
      case Moved::Result::kDone:
        return static_cast<std::ptrdiff_t>(moved.count);
      case Moved::Result::kClosed:
        return 0;
      case Moved::Result::kWantsRead:
      case Moved::Result::kWantsWrite:
        if (!socket_.Wait(moved.result, deadline)) return -1;
        break;
      default:
        return -1;
    }
  }
}

}  // namespace korvane::sockets
