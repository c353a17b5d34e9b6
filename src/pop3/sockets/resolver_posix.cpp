#include <netdb.h>
#include <sys/socket.h>

#include <cstring>
#include <memory>

#include "pop3/sockets/resolver.h"

namespace korvane::sockets {

std::vector<Address> AskPlatform(const std::string& name, uint16_t port, Lookup lookup) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV | (lookup == Lookup::kAddressesOnly ? AI_NUMERICHOST : 0);
  addrinfo* list = nullptr;
  std::vector<Address> addresses;
  if (getaddrinfo(name.c_str(), std::to_string(port).c_str(), &hints, &list) != 0) return addresses;
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, freeaddrinfo);
  for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    Address address;
    if (entry->ai_addrlen > address.bytes.size()) continue;
    address.family = entry->ai_family;
    address.size = entry->ai_addrlen;
    std::memcpy(address.bytes.data(), entry->ai_addr, entry->ai_addrlen);
    addresses.push_back(address);
  }
  return addresses;
}

}  // namespace korvane::sockets
