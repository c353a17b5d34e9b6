// Waiting is by select: the system's poll does not tell of a connection that was refused before
// Windows 10 2004.
#define FD_SETSIZE 512  // sockets that one select takes; more are not watched

#include <winsock2.h>

#include "pop3/sockets/tcp.h"
#include "pop3/sockets/winsock.h"

namespace korvane::sockets {

namespace {

SOCKET Socket(std::intptr_t socket) { return static_cast<SOCKET>(socket); }

timeval SelectTime(std::chrono::milliseconds time) {
  const auto count = std::min<long long>(time.count(), 0x7FFFFFFF);
  return {static_cast<long>(count / 1000), static_cast<long>(count % 1000 * 1000)};
}

int Piece(size_t size) { return static_cast<int>(std::min<size_t>(size, 0x40000000)); }

}  // namespace

TcpSocket TcpSocket::Start(const Address& address, bool& connected) {
  if (!StartWinsock()) return {};
  TcpSocket socket(
      static_cast<std::intptr_t>(WSASocketW(address.family, SOCK_STREAM, IPPROTO_TCP, nullptr, 0,
                                            WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT)));
  if (!socket.IsOpen()) return {};
  unsigned long on = 1;
  if (ioctlsocket(Socket(socket.socket_), FIONBIO, &on) != 0) return {};
  // A command is one small packet: it must not wait for the acknowledgement of the one before.
  setsockopt(Socket(socket.socket_), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on),
             sizeof on);
  const auto* name = reinterpret_cast<const sockaddr*>(address.bytes.data());
  connected = ::connect(Socket(socket.socket_), name, static_cast<int>(address.size)) == 0;
  if (connected || WSAGetLastError() == WSAEWOULDBLOCK) return socket;
  return {};
}

std::vector<TcpSocket::Progress> TcpSocket::Watch(const std::vector<TcpSocket>& started,
                                                  std::chrono::milliseconds time) {
  fd_set stand, failed;
  FD_ZERO(&stand);
  FD_ZERO(&failed);
  for (const TcpSocket& socket : started) {
    FD_SET(Socket(socket.socket_), &stand);
    FD_SET(Socket(socket.socket_), &failed);
  }
  timeval left = SelectTime(time);
  if (::select(0, nullptr, &stand, &failed, &left) == SOCKET_ERROR) return {};
  std::vector<Progress> progress;
  progress.reserve(started.size());
  for (const TcpSocket& socket : started) {
    progress.push_back(FD_ISSET(Socket(socket.socket_), &failed)  ? Progress::kFailed
                       : FD_ISSET(Socket(socket.socket_), &stand) ? Progress::kStands
                                                                  : Progress::kNone);
  }
  return progress;
}

void TcpSocket::Close() {
  if (IsOpen()) ::closesocket(Socket(std::exchange(socket_, kNone)));
}

Moved TcpSocket::Read(char* buffer, size_t capacity) const {
  const int count = ::recv(Socket(socket_), buffer, Piece(capacity), 0);
  if (count > 0) return {Moved::Result::kDone, static_cast<size_t>(count)};
  if (count == 0) return {Moved::Result::kClosed};
  if (WSAGetLastError() == WSAEWOULDBLOCK) return {Moved::Result::kWantsRead};
  return {Moved::Result::kFailed};
}

Moved TcpSocket::Write(const char* bytes, size_t count) const {
  const int sent = ::send(Socket(socket_), bytes, Piece(count), 0);
  if (sent > 0) return {Moved::Result::kDone, static_cast<size_t>(sent)};
  if (sent < 0 && WSAGetLastError() == WSAEWOULDBLOCK) return {Moved::Result::kWantsWrite};
  return {Moved::Result::kFailed};
}

bool TcpSocket::Wait(Moved::Result wanted, const Deadline& deadline) const {
  while (!deadline.Passed()) {
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(Socket(socket_), &ready);
    const bool read = wanted == Moved::Result::kWantsRead;
    timeval left = SelectTime(deadline.Left());
    // An error of the socket is ready too: the next attempt to move bytes reports it.
    const int count = ::select(0, read ? &ready : nullptr, read ? nullptr : &ready, nullptr, &left);
    if (count != 0) return count > 0;
  }
  return false;
}

}  // namespace korvane::sockets
