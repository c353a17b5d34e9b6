// The least that a download can cost: the commands of a synchronisation, many ahead of their
// replies, and the replies read to their ends and forgotten. Says how many messages and bytes came.
//        bench_bare_client PORT USER PASSWORD headers|whole
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

// Commands under way: enough for a long line, and their replies fit into no server's patience.
constexpr size_t kWindow = 400;

class Session {
 public:
  explicit Session(int port) : socket_(socket(AF_INET, SOCK_STREAM, 0)), buffer_(1 << 20, '\0') {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    const int on = 1;
    setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) Fail();
  }

  void Send(std::string_view bytes) {
    if (send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(bytes.size())) {
      Fail();
    }
  }

  std::string Line() {
    std::string line;
    for (;;) {
      const char* const start = buffer_.data() + at_;
      const auto* const end = static_cast<const char*>(std::memchr(start, '\n', filled_ - at_));
      if (end != nullptr) {
        line.append(start, end + 1);
        at_ = static_cast<size_t>(end + 1 - buffer_.data());
        break;
      }
      line.append(start, filled_ - at_);
      Fill();
    }
    if (line[0] != '+') Fail();
    return line;
  }

  // Up to and with a line that holds a full stop only.
  void Text() {
    Line();
    static constexpr char kEnd[] = "\r\n.\r\n";
    size_t matched = 2;
    for (;;) {
      while (at_ < filled_) {
        if (matched == 0) {
          const auto* const next =
              static_cast<const char*>(std::memchr(buffer_.data() + at_, '\r', filled_ - at_));
          if (next == nullptr) {
            bytes_ += filled_ - at_;
            at_ = filled_;
            break;
          }
          bytes_ += static_cast<size_t>(next - buffer_.data()) - at_;
          at_ = static_cast<size_t>(next - buffer_.data());
        }
        const char c = buffer_[at_++];
        ++bytes_;
        matched = c == kEnd[matched] ? matched + 1 : c == '\r' ? 1 : 0;
        if (matched == 5) return;
      }
      Fill();
    }
  }

  size_t Bytes() const { return bytes_; }

  [[noreturn]] static void Fail() {
    std::fprintf(stderr, "bench_bare_client: the session failed\n");
    std::exit(1);
  }

 private:
  void Fill() {
    const ssize_t count = recv(socket_, buffer_.data(), buffer_.size(), 0);
    if (count <= 0) Fail();
    at_ = 0;
    filled_ = static_cast<size_t>(count);
  }

  const int socket_;
  std::string buffer_;
  size_t at_ = 0, filled_ = 0, bytes_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "bench_bare_client PORT USER PASSWORD headers|whole\n");
    return 2;
  }
  Session session(std::atoi(argv[1]));
  session.Line();
  session.Send("USER " + std::string(argv[2]) + "\r\n");
  session.Line();
  session.Send("PASS " + std::string(argv[3]) + "\r\n");
  session.Line();
  session.Send("STAT\r\n");
  const int messages = std::atoi(session.Line().c_str() + 4);

  const std::vector<const char*> verbs =
      std::string_view(argv[4]) == "whole"
          ? std::vector<const char*>{"TOP", "LIST", "UIDL", "RETR", "LIST", "UIDL"}
          : std::vector<const char*>{"TOP", "LIST", "UIDL"};
  const size_t commands = static_cast<size_t>(messages) * verbs.size();
  size_t sent = 0;
  for (size_t done = 0; done < commands; ++done) {
    if (sent - done <= kWindow / 2) {
      std::string more;
      for (; sent < commands && sent - done < kWindow; ++sent) {
        const int message = messages - static_cast<int>(sent / verbs.size());
        const std::string_view verb = verbs[sent % verbs.size()];
        more.append(verb).append(" ").append(std::to_string(message));
        more.append(verb == "TOP" ? " 0\r\n" : "\r\n");
      }
      session.Send(more);
    }
    const std::string_view verb = verbs[done % verbs.size()];
    if (verb == "TOP" || verb == "RETR") {
      session.Text();
    } else {
      session.Line();
    }
  }
  session.Send("QUIT\r\n");
  session.Line();
  std::printf("%d messages, %zu bytes\n", messages, session.Bytes());
}
