#include "pop3/transport_tap.h"

#include <dlfcn.h>

#include <algorithm>
#include <utility>

#include "Tarsel_MailConversions.h"

namespace {

using korvane::test::TransportTap;

template <class Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

int32_t MPsend(int32_t socket, const char* bytes, int32_t count) {
  static const auto real = Real<decltype(&MPsend)>("MPsend");
  const std::string_view all(bytes, static_cast<size_t>(count));
  const std::string_view sent = all.substr(0, TransportTap::Through(all));
  if (sent.empty()) return 0;
  TransportTap::sent.append(sent);
  const int32_t result = real(socket, bytes, static_cast<int32_t>(sent.size()));
  return sent.size() == all.size() ? result : 0;
}

int32_t MPrecv(int32_t socket, char* buffer, int32_t capacity) {
  static const auto real = Real<decltype(&MPrecv)>("MPrecv");
  TransportTap::capacity = capacity;
  if (const auto instead = std::exchange(TransportTap::instead_of_receive, nullptr)) {
    instead();
    return -1;
  }
  const int32_t count = real(socket, buffer, std::min(capacity, TransportTap::piece));
  TransportTap::longest_block = std::max(TransportTap::longest_block, count);
  return count;
}
