// The addresses of a host, within a deadline.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "pop3/sockets/deadline.h"

namespace korvane::sockets {

/// An address as the platform's connect takes it.
struct Address {
  int family = 0;
  unsigned size = 0;
  alignas(8) std::array<unsigned char, 128> bytes{};
};

enum class Lookup { kAddressesOnly, kNames };

/// The platform's own resolver, which takes the time it takes. Empty where it finds nothing.
std::vector<Address> AskPlatform(const std::string& name, uint16_t port, Lookup lookup);

/// In the resolver's order; empty where the name is unknown or the deadline passes first.
std::vector<Address> Resolve(const std::string& name, uint16_t port, const Deadline& deadline);

}  // namespace korvane::sockets
