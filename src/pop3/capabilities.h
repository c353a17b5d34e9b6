// What a server says that it can do (CAPA, RFC 2449), asked over a connection of its own and
// without logging in. For whoever sets up an account; the client's own dialogue never asks.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace korvane {

struct Capabilities {
  bool known = false;       ///< the server answered
  bool pipelining = false;  ///< takes commands before the replies to earlier ones
};

/// Reads the text of a reply to CAPA, one capability a line.
Capabilities ReadCapabilities(std::string_view lines);

/// Not known when the server cannot be reached or does not know the command.
Capabilities AskCapabilities(const std::string& host, int32_t port, int32_t timeout);

}  // namespace korvane
