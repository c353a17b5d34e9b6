// TLS over a connected socket, 1.2 or later.
#pragma once

#include <memory>
#include <string>

#include "pop3/sockets/tcp.h"

namespace korvane::sockets {

class Tls {
 public:
  /// The handshake. With `verify` the peer must present a certificate for `name` that the system's
  /// store (or, where that is OpenSSL's, what SSL_CERT_FILE and SSL_CERT_DIR name) vouches for.
  /// None on any failure.
  static std::unique_ptr<Tls> Handshake(const TcpSocket& socket, const std::string& name,
                                        bool verify, const Deadline& deadline);
  virtual ~Tls() = default;

  virtual Moved Read(char* buffer, size_t capacity) = 0;
  virtual Moved Write(const char* bytes, size_t count) = 0;
  /// Says farewell, without waiting for an answer.
  virtual void End() = 0;
};

}  // namespace korvane::sockets
