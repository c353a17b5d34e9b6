#include <winsock2.h>
// Behind the one that it needs.
#include <windows.h>

#include "pop3/sockets/winsock.h"

namespace korvane::sockets {

bool StartWinsock() {
  static const bool started = [] {
    HMODULE itself = nullptr;
    WSADATA data;
    return GetModuleHandleExW(
               GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
               reinterpret_cast<const wchar_t*>(&StartWinsock), &itself) != 0 &&
           WSAStartup(MAKEWORD(2, 2), &data) == 0;
  }();
  return started;
}

std::wstring Utf16(const std::string& name) {
  const int size = static_cast<int>(name.size());
  std::wstring wide(name.size(), L'\0');
  wide.resize(static_cast<size_t>(
      size == 0 ? 0 : MultiByteToWideChar(CP_UTF8, 0, name.data(), size, wide.data(), size)));
  return wide;
}

}  // namespace korvane::sockets
