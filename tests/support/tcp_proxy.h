// A TCP proxy before a server on 127.0.0.1 that notes the commands passing through and cuts or
// delays connections where a test says. Faults hold for every connection made after they are set.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace korvane::test {

class TcpProxy {
 public:
  explicit TcpProxy(int target_port);
  ~TcpProxy();
  TcpProxy(const TcpProxy&) = delete;
  TcpProxy& operator=(const TcpProxy&) = delete;

  int port() const { return port_; }
  void Target(int port) { target_ = port; }

  struct Fault {
    int64_t cut_after_bytes = -1;  ///< of what the server sends on one connection
    int cut_at_command = 0;        ///< the n-th command (from 1) is not passed on
    int cut_before_reply = 0;      ///< the n-th command is passed on, its reply is not
    std::string cut_at_verb = {};  ///< as cut_at_command, for the first line that starts so
    std::string cut_before_reply_to =
        {};                              ///< as cut_before_reply, for the first line that starts so
    std::chrono::milliseconds delay{0};  ///< before each block from the server
  };
  void Set(Fault fault);
  void Clear() { Set({}); }

  /// The command lines of all connections so far; a password is not kept.
  std::vector<std::string> Commands() const;
  /// How many of them start with `verb`.
  int Count(const std::string& verb) const;
  /// Bytes that servers sent, over all connections.
  int64_t BytesFromServer() const { return bytes_; }
  int Connections() const { return connections_; }
  /// Forgets commands, bytes and connections counted so far.
  void Forget();
  /// Called with each command line before it is passed on, on the connection's thread.
  void OnCommand(std::function<void(const std::string&)> hook);

 private:
  void Accept();
  void Serve(int client, Fault fault);

  int listener_ = -1;
  int port_ = 0;
  std::atomic<int> target_;
  std::atomic<bool> ending_ = false;
  std::atomic<int64_t> bytes_ = 0;
  std::atomic<int> connections_ = 0;
  mutable std::mutex mutex_;
  Fault fault_;
  std::vector<std::string> commands_;
  std::set<int> sockets_;
  std::function<void(const std::string&)> hook_;
  std::vector<std::thread> sessions_;
  std::thread acceptor_;
};

}  // namespace korvane::test
