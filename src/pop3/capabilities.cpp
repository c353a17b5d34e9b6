#include "pop3/capabilities.h"

#include <algorithm>
#include <chrono>
#include <optional>

#include "Tarsel_MailConversions.h"
#include "pop3/replies.h"

namespace korvane {
namespace {

constexpr int32_t kBlock = 16384;
/// What servers say is a few hundred bytes.
constexpr size_t kLongest = 65536;
/// What the sockets take for a time-out of 0 or less.
constexpr int32_t kUsualTimeout = 60'000;

class Connection {
 public:
  Connection(const std::string& host, int32_t port, int32_t timeout)
      : open_(host.find('\0') == std::string::npos &&
              MPconnect(&socket_, port, host.c_str(), timeout) == 0),
        patience_(timeout > 0 ? timeout : kUsualTimeout) {}
  ~Connection() {
    if (open_) MPclose(socket_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  bool Send(std::string_view line) {
    return open_ && MPsend(socket_, line.data(), static_cast<int32_t>(line.size())) > 0;
  }

  /// What comes up to `end`, or to the end of a refusal. Nothing when it does not come: a server
  /// that says a byte at a time must not hold the asker.
  std::optional<std::string> Receive(std::string_view end) {
    const auto until = Clock::now() + patience_;
    std::string came;
    std::string block(kBlock, '\0');
    while (open_ && Clock::now() < until && came.size() < kLongest) {
      const int32_t count = MPrecv(socket_, block.data(), kBlock);
      if (count <= 0) break;
      came.append(block, 0, static_cast<size_t>(count));
      // A refusal is one line.
      if (came.ends_with(end) || (!IsPositiveReply(came) && came.ends_with('\n'))) return came;
    }
    return std::nullopt;
  }

 private:
  using Clock = std::chrono::steady_clock;

  int32_t socket_ = 0;
  bool open_;
  std::chrono::milliseconds patience_;
};

char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

Capabilities ReadCapabilities(std::string_view lines) {
  constexpr std::string_view kPipelining = "PIPELINING";
  Capabilities capabilities{.known = true};
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    std::string_view line = lines.substr(0, end);
    line = line.substr(0, line.find_first_of(" \t\r"));
    if (line == ".") break;
    capabilities.pipelining =
        capabilities.pipelining ||
        std::equal(line.begin(), line.end(), kPipelining.begin(), kPipelining.end(),
                   [](char a, char b) { return Upper(a) == b; });
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  return capabilities;
}

Capabilities AskCapabilities(const std::string& host, int32_t port, int32_t timeout) {
  Connection server(host, port, timeout);
  const auto greeting = server.Receive("\n");
  if (!greeting || !IsPositiveReply(*greeting) || !server.Send("CAPA\r\n")) return {};
  const auto reply = server.Receive("\n.\r\n");
  if (!reply || !IsPositiveReply(*reply)) return {};
  if (server.Send("QUIT\r\n")) server.Receive("\n");
  return ReadCapabilities(std::string_view(*reply).substr(reply->find('\n') + 1));
}

}  // namespace korvane
