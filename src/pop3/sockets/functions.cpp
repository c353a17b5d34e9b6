// The four socket functions as the library exports them: arguments are checked here, and nothing
// thrown passes into C.
#include <chrono>

#include "Tarsel_MailConversions.h"
#include "pop3/sockets/handle_table.h"

namespace sockets = korvane::sockets;

namespace {

constexpr int32_t kConnected = 0;
constexpr int32_t kFailed = -1;
constexpr std::chrono::milliseconds kDefaultTimeout{60000};

// Lives as long as the process: threads may still use it while others are being torn down.
sockets::HandleTable& Handles() {
  static auto& table = *new sockets::HandleTable;
  return table;
}

}  // namespace

int32_t MP_CALL MPconnect(int32_t* socket, int32_t port, const char* host, int32_t timeout) try {
  if (socket == nullptr || host == nullptr) return kFailed;
  const auto form = sockets::ParseHostForm(host, port);
  if (!form) return kFailed;
  const auto time = timeout <= 0 ? kDefaultTimeout : std::chrono::milliseconds(timeout);
  auto connection = sockets::Connection::Open(*form, time);
  if (!connection) return kFailed;
  *socket = Handles().Add(std::move(connection));
  return kConnected;
} catch (...) {
  return kFailed;
}

int32_t MP_CALL MPsend(int32_t socket, const char* bytes, int32_t count) try {
  if (bytes == nullptr || count < 1) return 0;
  const auto connection = Handles().Find(socket);
  if (!connection) return kFailed;
  return connection->Send(bytes, static_cast<size_t>(count)) ? count : kFailed;
} catch (...) {
  return kFailed;
}

int32_t MP_CALL MPrecv(int32_t socket, char* buffer, int32_t capacity) try {
  if (buffer == nullptr || capacity < 1) return kFailed;
  const auto connection = Handles().Find(socket);
  if (!connection) return kFailed;
  return static_cast<int32_t>(connection->Receive(buffer, static_cast<size_t>(capacity)));
} catch (...) {
  return kFailed;
}

int32_t MP_CALL MPclose(int32_t socket) try {
  Handles().Remove(socket);
  return 0;
} catch (...) {
  return kFailed;
}
