// korvane-sample-server: a small POP3 server over folders of messages, to try things with and to
// test against. It listens on the loopback address only, speaks plain text, and changes no file: a
// message that is deleted stays away until the server ends.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "cli/sample_server/session.h"

namespace korvane::sample {
namespace {

constexpr int kMostSessions = 64;
constexpr size_t kLongestCommand = 512;
constexpr timeval kPatience{600, 0};

bool Send(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

/// "PASS secret" does not go into the log.
std::string ForTheLog(const std::string& line) {
  const bool password = line.size() > 4 && strncasecmp(line.c_str(), "PASS", 4) == 0;
  return password ? line.substr(0, 4) + " ***" : line;
}

void Serve(int socket, Users& users, bool log) {
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
  Session session(users);
  std::string received;
  bool alive = Send(socket, Session::Greeting());
  char block[4096];
  while (alive && !session.Ended()) {
    const ssize_t count = recv(socket, block, sizeof block, 0);
    if (count <= 0) break;
    received.append(block, static_cast<size_t>(count));
    size_t end;
    while (alive && !session.Ended() && (end = received.find('\n')) != std::string::npos) {
      std::string line = received.substr(0, end);
      received.erase(0, end + 1);
      if (line.ends_with('\r')) line.pop_back();
      const std::string reply = session.Answer(line);
      if (log) {
        std::cerr << ForTheLog(line) + "  ->  " + reply.substr(0, reply.find('\r')) + "\n";
      }
      alive = Send(socket, reply);
    }
    if (received.size() > kLongestCommand) break;
  }
  close(socket);
}

int Listen(uint16_t& port) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  const int yes = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  socklen_t length = sizeof address;
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      listen(listener, 16) != 0 ||
      getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    close(listener);
    return -1;
  }
  port = ntohs(address.sin_port);
  return listener;
}

/// "name:password:folder[,folder...]". False when it is none of that form.
bool AddUser(Users& users, const std::string& text) {
  const size_t first = text.find(':');
  const size_t second = first == std::string::npos ? first : text.find(':', first + 1);
  if (first == 0 || second == std::string::npos || second + 1 == text.size()) return false;
  std::vector<std::string> folders = CLI::detail::split(text.substr(second + 1), ',');
  users.Add(text.substr(0, first), text.substr(first + 1, second - first - 1), std::move(folders));
  return true;
}

int Main(int argc, char** argv) {
  CLI::App app("A small POP3 server over folders of messages, on the loopback address.");
  uint16_t port = 0;
  bool log = false;
  std::vector<std::string> mailboxes;
  app.add_option("--port", port, "the port; 0 takes a free one")->capture_default_str();
  app.add_flag("--log", log, "write commands and replies to the standard error");
  app.add_option("mailbox", mailboxes, "NAME:PASSWORD:FOLDER[,FOLDER...]")->required();
  CLI11_PARSE(app, argc, argv);

  static Users users;
  for (const std::string& mailbox : mailboxes) {
    if (!AddUser(users, mailbox)) {
      std::cerr << "korvane-sample-server: not NAME:PASSWORD:FOLDER: " << mailbox << "\n";
      return 2;
    }
  }
  const int listener = Listen(port);
  if (listener < 0) {
    std::cerr << "korvane-sample-server: port " << port << ": " << std::strerror(errno) << "\n";
    return 1;
  }
  // Whoever started the server reads the port from this line.
  std::cout << "listening on 127.0.0.1 port " << port << std::endl;

  static std::atomic<int> sessions{0};
  while (true) {
    const int socket = accept(listener, nullptr, nullptr);
    if (socket < 0) {
      if (errno == EMFILE || errno == ENFILE) std::this_thread::sleep_for(std::chrono::seconds(1));
      continue;
    }
    if (sessions >= kMostSessions) {
      Send(socket, "-ERR too many sessions\r\n");
      close(socket);
      continue;
    }
    ++sessions;
    std::thread([socket, log] {
      Serve(socket, users, log);
      --sessions;
    }).detach();
  }
}

}  // namespace
}  // namespace korvane::sample

int main(int argc, char** argv) { return korvane::sample::Main(argc, argv); }
