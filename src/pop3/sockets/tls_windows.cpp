// No TLS here: such a connection is refused, never made in plain text instead.
#include "pop3/sockets/tls.h"

namespace korvane::sockets {

std::unique_ptr<Tls> Tls::Handshake(const TcpSocket&, const std::string&, bool, const Deadline&) {
  return nullptr;
}

}  // namespace korvane::sockets
