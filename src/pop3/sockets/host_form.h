// How a host is written: a bare name or address, or one with a prefix that says what is spoken.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvane::sockets {

enum class Security {
  kPlain,
  kVerified,    ///< TLS, the peer's certificate and name verified
  kUnverified,  ///< TLS with whoever answers
};

struct HostForm {
  std::string name;  ///< a name or an address, without brackets
  uint16_t port = 0;
  Security security = Security::kPlain;

  bool operator==(const HostForm&) const = default;
};

/// Reads "name", "address", or one of "pop3://", "pop3s://" and "pop3s-insecure://" in any case,
/// with or without "+ahead" before the colon (which is the client's business, not the sockets'),
/// followed by "name", "name:port", "address", "[address]" or "[address]:port". `port` counts where
/// the host has none of its own. Nothing where the host is none of these or the port is no port.
std::optional<HostForm> ParseHostForm(std::string_view host, int32_t port);

}  // namespace korvane::sockets
