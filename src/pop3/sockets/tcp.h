// TCP of the platform: a connection to the first address of a host that answers, bytes without
// signals. Sockets are never blocking; whoever must wait says until when.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "pop3/sockets/deadline.h"
#include "pop3/sockets/resolver.h"

namespace korvane::sockets {

/// How one attempt to move bytes ended.
struct Moved {
  enum class Result { kDone, kWantsRead, kWantsWrite, kClosed, kFailed };
  Result result;
  size_t count = 0;  ///< bytes moved, with kDone at least 1
};

/// A connected socket, closed with the object.
class TcpSocket {
 public:
  TcpSocket() = default;
  TcpSocket(TcpSocket&& other) noexcept : socket_(std::exchange(other.socket_, kNone)) {}
  TcpSocket& operator=(TcpSocket&& other) noexcept {
    if (this != &other) {
      Close();
      socket_ = std::exchange(other.socket_, kNone);
    }
    return *this;
  }
  ~TcpSocket() { Close(); }

  bool IsOpen() const { return socket_ != kNone; }

  Moved Read(char* buffer, size_t capacity) const;
  Moved Write(const char* bytes, size_t count) const;

  /// Waits until what `moved` wants can be tried again; false when the deadline has passed first.
  bool Wait(Moved::Result wanted, const Deadline& deadline) const;

  /// Starts to connect; `connected` where that was done at once. Not open where it was refused.
  static TcpSocket Start(const Address& address, bool& connected);
  enum class Progress { kNone, kStands, kFailed };
  /// Waits until one of the started connections stands or has failed, or the time is over, and
  /// says how far each is. Empty where there is no way to wait.
  static std::vector<Progress> Watch(const std::vector<TcpSocket>& started,
                                     std::chrono::milliseconds time);

 private:
  static constexpr std::intptr_t kNone = -1;  // of a descriptor and of a SOCKET alike
  explicit TcpSocket(std::intptr_t socket) : socket_(socket) {}
  void Close();
  std::intptr_t socket_ = kNone;
};

/// Connects to the first address of the host that answers. They are tried in the resolver's order,
/// the next one as soon as one fails or has kept silent for a quarter of a second, so that a dead
/// IPv6 route does not use up the time of an IPv4 address that works.
TcpSocket ConnectTcp(const std::string& name, uint16_t port, const Deadline& deadline);

}  // namespace korvane::sockets
