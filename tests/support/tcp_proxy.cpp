#include "support/tcp_proxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace korvane::test {

namespace {

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool SendAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = ::send(fd, data, size, MSG_NOSIGNAL);
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool StartsWith(const std::string& line, const std::string& verb) {
  return !verb.empty() && line.compare(0, verb.size(), verb) == 0;
}

}  // namespace

TcpProxy::TcpProxy(int target_port) : target_(target_port) {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof address;
  if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener_, 16) != 0 ||
      ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("the proxy cannot listen");
  }
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { Accept(); });
}

TcpProxy::~TcpProxy() {
  ending_ = true;
  ::shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  ::close(listener_);
  {
    const std::lock_guard lock(mutex_);
    for (const int fd : sockets_) ::shutdown(fd, SHUT_RDWR);
  }
  for (auto& session : sessions_) session.join();
}

void TcpProxy::Set(Fault fault) {
  const std::lock_guard lock(mutex_);
  fault_ = std::move(fault);
}

void TcpProxy::OnCommand(std::function<void(const std::string&)> hook) {
  const std::lock_guard lock(mutex_);
  hook_ = std::move(hook);
}

std::vector<std::string> TcpProxy::Commands() const {
  const std::lock_guard lock(mutex_);
  return commands_;
}

int TcpProxy::Count(const std::string& verb) const {
  const std::lock_guard lock(mutex_);
  return static_cast<int>(std::count_if(commands_.begin(), commands_.end(),
                                        [&](const auto& line) { return StartsWith(line, verb); }));
}

void TcpProxy::Forget() {
  const std::lock_guard lock(mutex_);
  commands_.clear();
  bytes_ = 0;
  connections_ = 0;
}

void TcpProxy::Accept() {
  for (;;) {
    const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0 || ending_) {
      if (client >= 0) ::close(client);
      return;
    }
    ++connections_;
    const std::lock_guard lock(mutex_);
    sockets_.insert(client);
    sessions_.emplace_back([this, client, fault = fault_] { Serve(client, fault); });
  }
}

void TcpProxy::Serve(int client, Fault fault) {
  const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(target_);
  bool open = ::connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  int64_t sent = 0;
  int commands = 0;
  bool withhold = false;  // the next block from the server is cut off
  bool cut = false;       // what the server still says to earlier commands is the last
  std::string line;
  std::vector<char> buffer(65'536);
  pollfd polls[2] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
  while (open && !ending_) {
    const int ready = ::poll(polls, 2, cut ? 50 : 200);
    if (ready < 0 || (cut && ready == 0)) break;
    if (polls[0].revents) {
      const ssize_t n = ::recv(client, buffer.data(), buffer.size(), 0);
      if (n <= 0) break;
      ssize_t passed_on = n;
      ssize_t line_begin = 0;
      for (ssize_t i = 0; i < n && !cut; ++i) {
        line += buffer[static_cast<size_t>(i)];
        if (line.back() != '\n') continue;
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        ++commands;
        std::function<void(const std::string&)> hook;
        {
          const std::lock_guard lock(mutex_);
          commands_.push_back(StartsWith(line, "PASS") ? "PASS" : line);
          hook = hook_;
        }
        if (hook) hook(line);
        if (commands == fault.cut_at_command || StartsWith(line, fault.cut_at_verb)) {
          cut = true;
          passed_on = line_begin;
        }
        line_begin = i + 1;
        if (commands == fault.cut_before_reply || StartsWith(line, fault.cut_before_reply_to)) {
          withhold = true;
        }
        line.clear();
      }
      if (!SendAll(server, buffer.data(), static_cast<size_t>(passed_on))) break;
      if (cut) polls[0].fd = -1;
    }
    if (open && polls[1].revents) {
      const ssize_t n = ::recv(server, buffer.data(), buffer.size(), 0);
      if (n <= 0 || withhold) break;
      if (fault.delay.count() > 0) std::this_thread::sleep_for(fault.delay);
      int64_t size = n;
      if (fault.cut_after_bytes >= 0 && sent + size >= fault.cut_after_bytes) {
        size = fault.cut_after_bytes - sent;
        open = false;
      }
      sent += size;
      bytes_ += size;
      if (!SendAll(client, buffer.data(), static_cast<size_t>(size))) break;
    }
  }
  {
    const std::lock_guard lock(mutex_);
    sockets_.erase(client);
  }
  // The sender's last bytes arrive before the end of the connection does.
  ::shutdown(client, SHUT_WR);
  ::close(client);
  ::close(server);
}

}  // namespace korvane::test
