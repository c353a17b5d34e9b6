// What the scheme of an account's host says: "pop3://", "pop3s://", "pop3s-insecure://", each of
// them also with "+ahead" before the colon. The sockets read the rest of the host themselves.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace korvane {

struct HostScheme {
  bool encrypted = false;
  bool verified = false;     ///< the server's certificate and name
  bool reads_ahead = false;  ///< commands may be sent before the replies to earlier ones are there
  std::string_view host;     ///< what follows the scheme

  /// The same with reading ahead switched on or off.
  std::string WithReadAhead(bool on) const;
};

/// Schemes are read in any case. Without one, port 995 is encrypted.
HostScheme ReadHostScheme(std::string_view host, int32_t port);

}  // namespace korvane
