#include "pop3/sockets/tcp.h"

namespace korvane::sockets {

namespace {

constexpr std::chrono::milliseconds kNextAddressAfter{250};

}  // namespace

TcpSocket ConnectTcp(const std::string& name, uint16_t port, const Deadline& deadline) {
  const std::vector<Address> addresses = Resolve(name, port, deadline);
  auto next = addresses.begin();
  std::vector<TcpSocket> pending;
  Deadline patience{std::chrono::milliseconds(0)};
  while (!deadline.Passed() && (next != addresses.end() || !pending.empty())) {
    if (next != addresses.end() && (pending.empty() || patience.Passed())) {
      bool connected = false;
      TcpSocket socket = TcpSocket::Start(*next++, connected);
      if (connected) return socket;
      if (!socket.IsOpen()) continue;
      pending.push_back(std::move(socket));
      patience = Deadline(kNextAddressAfter);
    }
    auto time = deadline.Left();
    if (next != addresses.end()) time = std::min(time, patience.Left());
    const auto progress = TcpSocket::Watch(pending, time);
    if (progress.empty()) return {};
    for (size_t i = progress.size(); i-- > 0;) {
      if (progress[i] == TcpSocket::Progress::kNone) continue;
      if (progress[i] == TcpSocket::Progress::kStands) return std::move(pending[i]);
      pending.erase(pending.begin() + static_cast<std::ptrdiff_t>(i));
      patience = Deadline(std::chrono::milliseconds(0));
    }
  }
  return {};
}

}  // namespace korvane::sockets
