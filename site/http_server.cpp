#include "http_server.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace korvane::site {

namespace {

constexpr size_t kMostHeldBack = 64u << 10;

class CollectingStream;
/// Where this thread answers.
thread_local CollectingStream* answering = nullptr;
/// See DropAfterAnswer.
thread_local std::vector<std::shared_ptr<const void>> used_up;

/// Collects what is written until somebody reads, until the answer is complete, or until it is
/// much.
class CollectingStream final : public httplib::Stream {
 public:
  explicit CollectingStream(socket_t socket) : socket_(socket) { answering = this; }
  CollectingStream(const CollectingStream&) = delete;
  CollectingStream& operator=(const CollectingStream&) = delete;
  ~CollectingStream() override { answering = nullptr; }

  bool is_readable() const override { return true; }
  bool is_writable() const override { return !broken_; }
  socket_t socket() const override { return socket_; }

  ssize_t read(char* to, size_t size) override {
    if (next_ == end_) {
      Flush();
      const ssize_t read = Receive();
      if (read <= 0) return read;
    }
    const size_t count = std::min(size, end_ - next_);
    std::copy_n(held_.data() + next_, count, to);
    next_ += count;
    return static_cast<ssize_t>(count);
  }

  ssize_t write(const char* from, size_t size) override {
    if (broken_) return -1;
    out_.append(from, size);
    if (out_.size() >= kMostHeldBack) Flush();
    return broken_ ? -1 : static_cast<ssize_t>(size);
  }

  void Flush() {
    for (size_t sent = 0; sent < out_.size() && !broken_;) {
      const ssize_t count = send(socket_, out_.data() + sent, out_.size() - sent, MSG_NOSIGNAL);
      if (count > 0) {
        sent += static_cast<size_t>(count);
      } else if (errno != EINTR) {
        broken_ = true;
      }
    }
    out_.clear();
  }

  /// Something of a next request is here already.
  bool HasMore() const { return next_ < end_; }

  void get_remote_ip_and_port(std::string& ip, int& port) const override {
    if (remote_.ip.empty()) Name(getpeername, remote_);
    ip = remote_.ip;
    port = remote_.port;
  }
  void get_local_ip_and_port(std::string& ip, int& port) const override {
    if (local_.ip.empty()) Name(getsockname, local_);
    ip = local_.ip;
    port = local_.port;
  }

 private:
  struct End {
    std::string ip;
    int port = 0;
  };

  ssize_t Receive() {
    for (;;) {
      const ssize_t count = recv(socket_, held_.data(), held_.size(), 0);
      if (count < 0 && errno == EINTR) continue;
      next_ = 0;
      end_ = count > 0 ? static_cast<size_t>(count) : 0;
      return count;
    }
  }

  template <class Ask>
  void Name(Ask ask, End& end) const {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (ask(socket_, reinterpret_cast<sockaddr*>(&address), &length) != 0) return;
    char host[NI_MAXHOST] = {};
    if (getnameinfo(reinterpret_cast<sockaddr*>(&address), length, host, sizeof host, nullptr, 0,
                    NI_NUMERICHOST) != 0) {
      return;
    }
    end.ip = host;
    end.port =
        ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&address)->sin6_port
                                            : reinterpret_cast<sockaddr_in*>(&address)->sin_port);
  }

  socket_t socket_;
  // Asked for with every request; they do not change while the connection lasts.
  mutable End remote_;
  mutable End local_;
  std::array<char, 8192> held_;
  size_t next_ = 0;
  size_t end_ = 0;
  std::string out_;
  bool broken_ = false;
};

void SetTimeouts(socket_t socket, time_t read_seconds, time_t write_seconds) {
  const timeval read{read_seconds, 0};
  const timeval write{write_seconds, 0};
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &read, sizeof read);
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &write, sizeof write);
}

/// Answers are not compressed: the library would take 13 milliseconds for what the page itself took
/// a tenth of one, and a page that holds a secret beside what others wrote is better not
/// compressed.
void SendPlainly(httplib::Request& request) { request.headers.erase("Accept-Encoding"); }

}  // namespace

HttpServer::HttpServer() {
  // The library calls this when it has written the answer, and drops the request after it.
  set_logger([](const httplib::Request&, const httplib::Response&) {
    if (answering) answering->Flush();
  });
}

void DropAfterAnswer(std::shared_ptr<const void> used) { used_up.push_back(std::move(used)); }

bool HttpServer::process_and_close_socket(socket_t socket) {
  SetTimeouts(socket, read_timeout_sec_, write_timeout_sec_);
  CollectingStream stream(socket);
  // True when a next request begins in time. In short waits, so that a server that is told to stop
  // does.
  const auto begins = [&] {
    using Clock = std::chrono::steady_clock;
    if (stream.HasMore()) return true;
    const auto end = Clock::now() + std::chrono::seconds(keep_alive_timeout_sec_);
    while (svr_sock_ != INVALID_SOCKET && Clock::now() < end) {
      pollfd one{socket, POLLIN, 0};
      const int ready = poll(&one, 1, 50);
      if (ready > 0) return true;
      if (ready < 0 && errno != EINTR) return false;
    }
    return false;
  };
  bool served = false;
  bool closed = false;
  for (size_t left = keep_alive_max_count_; left > 0 && !closed && begins(); --left) {
    served = process_request(stream, left == 1, closed, SendPlainly);
    stream.Flush();
    used_up.clear();
    if (!served) break;
  }
  shutdown(socket, SHUT_RDWR);
  close(socket);
  return served;
}

}  // namespace korvane::site
