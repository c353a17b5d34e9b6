// The program calls the companion through two pointers that the import library would bring. These
// come before them.
#include <windows.h>

#include <algorithm>
#include <utility>

#include "Tarsel_MailConversions.h"
#include "pop3/transport_tap.h"

namespace {

using korvane::test::TransportTap;

template <class Function>
Function Real(const char* name) {
  const HMODULE companion = GetModuleHandleA("Tarsel_MailConversions.dll");
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(companion, name)));
}

int32_t MP_CALL Send(int32_t socket, const char* bytes, int32_t count) {
  static const auto real = Real<decltype(&MPsend)>("MPsend");
  const std::string_view all(bytes, static_cast<size_t>(count));
  const std::string_view sent = all.substr(0, TransportTap::Through(all));
  if (sent.empty()) return 0;
  TransportTap::sent.append(sent);
  const int32_t result = real(socket, bytes, static_cast<int32_t>(sent.size()));
  return sent.size() == all.size() ? result : 0;
}

int32_t MP_CALL Receive(int32_t socket, char* buffer, int32_t capacity) {
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

}  // namespace

extern "C" {
extern decltype(&MPsend) __imp_MPsend;
extern decltype(&MPrecv) __imp_MPrecv;
decltype(&MPsend) __imp_MPsend = Send;
decltype(&MPrecv) __imp_MPrecv = Receive;
}
