// TCP of the platform: addresses of a host, a connection to the first that answers, bytes without
// signals. Sockets are never blocking; whoever must wait says until when.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "pop3/sockets/deadline.h"

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
  explicit TcpSocket(int descriptor) : descriptor_(descriptor) {}
  TcpSocket(TcpSocket&& other) noexcept : descriptor_(other.Release()) {}
  TcpSocket& operator=(TcpSocket&& other) noexcept;
  ~TcpSocket();

  bool IsOpen() const { return descriptor_ >= 0; }
  int descriptor() const { return descriptor_; }
  int Release();

  Moved Read(char* buffer, size_t capacity) const;
  Moved Write(const char* bytes, size_t count) const;

  /// Waits until what `moved` wants can be tried again; false when the deadline has passed first.
  bool Wait(Moved::Result wanted, const Deadline& deadline) const;

 private:
  int descriptor_ = -1;
};

/// Connects to the first address of the host that answers. They are tried in the resolver's order,
/// the next one as soon as one fails or has kept silent for a quarter of a second, so that a dead
/// IPv6 route does not use up the time of an IPv4 address that works.
TcpSocket ConnectTcp(const std::string& name, uint16_t port, const Deadline& deadline);

}  // namespace korvane::sockets
