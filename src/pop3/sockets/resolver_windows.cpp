#include <winsock2.h>
// Behind the one that it needs.
#include <ws2tcpip.h>

#include <cstring>
#include <memory>

#include "pop3/sockets/resolver.h"
#include "pop3/sockets/winsock.h"

namespace korvane::sockets {

std::vector<Address> AskPlatform(const std::string& name, uint16_t port, Lookup lookup) {
  std::vector<Address> addresses;
  if (!StartWinsock()) return addresses;
  ADDRINFOW hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = lookup == Lookup::kAddressesOnly ? AI_NUMERICHOST : 0;
  ADDRINFOW* list = nullptr;
  if (GetAddrInfoW(Utf16(name).c_str(), std::to_wstring(port).c_str(), &hints, &list) != 0) {
    return addresses;
  }
  const std::unique_ptr<ADDRINFOW, decltype(&FreeAddrInfoW)> owner(list, FreeAddrInfoW);
  for (const ADDRINFOW* entry = list; entry != nullptr; entry = entry->ai_next) {
    Address address;
    if (entry->ai_addrlen > address.bytes.size()) continue;
    address.family = entry->ai_family;
    address.size = static_cast<unsigned>(entry->ai_addrlen);
    std::memcpy(address.bytes.data(), entry->ai_addr, entry->ai_addrlen);
    addresses.push_back(address);
  }
  return addresses;
}

}  // namespace korvane::sockets
