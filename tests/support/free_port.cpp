#include "support/free_port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace korvane::test {

int FreePort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  const bool bound = fd >= 0 &&
                     ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                     ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0;
  if (fd >= 0) ::close(fd);
  if (!bound) throw std::runtime_error("no free port");
  return ntohs(address.sin_port);
}

}  // namespace korvane::test
