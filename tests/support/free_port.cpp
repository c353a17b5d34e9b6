#include "support/free_port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>
#include <stdexcept>

namespace korvane::test {

int FreePort() {
  // Below those that a system gives to whoever asks for any: between the choice and the start of a
  // server that has to be told its port nobody takes it by chance.
  constexpr int kLowest = 10'240;
  constexpr int kHighest = 32'000;
  constexpr int kTries = 1000;
  std::random_device random;
  std::uniform_int_distribution<int> ports(kLowest, kHighest);
  for (int i = 0; i < kTries; ++i) {
    const int port = ports(random);
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) break;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    const bool bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    if (bound) return port;
  }
  throw std::runtime_error("no free port");
}

}  // namespace korvane::test
