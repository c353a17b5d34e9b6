// A line of a given round trip: passes the bytes of each connection on to a server on 127.0.0.1,
// half of the round trip later in each direction, in any amount. Says its port, then how many lines
// each connection's client has sent when it is at its end; serves until it is ended.
//        bench_delaying_proxy PORT MILLISECONDS
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

void AtOnce(int socket) {
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// What is under way in one direction.
class Line {
 public:
  explicit Line(Clock::duration delay) : delay_(delay) {}

  void Put(std::string bytes) {
    std::unique_lock lock(mutex_);
    // As much as a long line with large windows holds; the sender waits meanwhile.
    room_.wait(lock, [this] { return held_ < kMost; });
    held_ += bytes.size();
    blocks_.push_back({Clock::now() + delay_, std::move(bytes)});
    more_.notify_one();
  }

  // Empty at the end of the connection.
  std::string Take() {
    std::unique_lock lock(mutex_);
    more_.wait(lock, [this] { return !blocks_.empty(); });
    Block block = std::move(blocks_.front());
    blocks_.pop_front();
    held_ -= block.bytes.size();
    room_.notify_one();
    lock.unlock();
    std::this_thread::sleep_until(block.due);
    return std::move(block.bytes);
  }

 private:
  static constexpr size_t kMost = 64 << 20;
  struct Block {
    Clock::time_point due;
    std::string bytes;
  };
  const Clock::duration delay_;
  std::mutex mutex_;
  std::condition_variable more_, room_;
  std::deque<Block> blocks_;
  size_t held_ = 0;
};

// Adds to `lines` how many came.
void Read(int from, Line& line, std::ptrdiff_t& lines) {
  std::string buffer(256 << 10, '\0');
  for (;;) {
    const ssize_t count = recv(from, buffer.data(), buffer.size(), 0);
    if (count <= 0) break;
    lines += std::count(buffer.begin(), buffer.begin() + count, '\n');
    line.Put(buffer.substr(0, static_cast<size_t>(count)));
  }
  line.Put({});
}

void Write(int to, Line& line) {
  for (std::string bytes = line.Take(); !bytes.empty(); bytes = line.Take()) {
    for (size_t sent = 0; sent < bytes.size();) {
      const ssize_t count = send(to, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (count <= 0) break;
      sent += static_cast<size_t>(count);
    }
  }
  shutdown(to, SHUT_WR);
}

void Serve(int client, int port, Clock::duration delay) {
  const int server = socket(AF_INET, SOCK_STREAM, 0);
  const sockaddr_in address = Loopback(port);
  // The greeting of a distant server is a whole round trip away.
  std::this_thread::sleep_for(delay);
  if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    AtOnce(server);
    AtOnce(client);
    Line there(delay), back(delay);
    std::ptrdiff_t commands = 0, replies = 0;
    std::thread threads[] = {std::thread([&] { Read(client, there, commands); }),
                             std::thread([&] { Write(server, there); }),
                             std::thread([&] { Read(server, back, replies); }),
                             std::thread([&] { Write(client, back); })};
    for (std::thread& thread : threads) thread.join();
    std::printf("%td\n", commands);
    std::fflush(stdout);
  }
  close(server);
  close(client);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "bench_delaying_proxy PORT MILLISECONDS\n");
    return 2;
  }
  const int port = std::atoi(argv[1]);
  const auto delay = std::chrono::microseconds(static_cast<int>(std::atof(argv[2]) * 1000 / 2));
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof address;
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      listen(listener, 16) != 0 ||
      getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    std::perror("bench_delaying_proxy");
    return 1;
  }
  std::printf("%d\n", ntohs(address.sin_port));
  std::fflush(stdout);
  for (;;) {
    const int client = accept(listener, nullptr, nullptr);
    if (client < 0) return 1;
    std::thread(Serve, client, port, delay).detach();
  }
}
