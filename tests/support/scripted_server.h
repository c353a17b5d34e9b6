// A server on the loopback that says and hears what it is told, in one thread of its own. It stands
// for a POP3 server in tests that need every byte and every silence under control.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "sockets.h"

namespace korvane::test {

class ScriptedServer {
 public:
  ScriptedServer() = default;
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;
  ~ScriptedServer() { Finish(); }

  ScriptedServer& Say(std::string bytes) {
    if (!steps_.empty() && steps_.back().kind == Kind::kSay) {
      steps_.back().text += bytes;  // in one piece, so that it arrives in one
    } else {
      steps_.push_back({Kind::kSay, std::move(bytes), 0});
    }
    return *this;
  }
  ScriptedServer& SayLine(const std::string& line) { return Say(line + "\r\n"); }
  /// Says the same bytes again and again, without ever holding them all.
  ScriptedServer& SayOften(std::string bytes, int64_t times) {
    steps_.push_back({Kind::kSayOften, std::move(bytes), times});
    return *this;
  }
  /// Says one byte, waits, says the next.
  ScriptedServer& Drip(std::string bytes, int64_t milliseconds_each) {
    steps_.push_back({Kind::kDrip, std::move(bytes), milliseconds_each});
    return *this;
  }
  /// The client must send exactly this line.
  ScriptedServer& Hear(std::string line) {
    steps_.push_back({Kind::kHear, std::move(line), 0});
    return *this;
  }
  ScriptedServer& Pause(int64_t milliseconds) {
    steps_.push_back({Kind::kPause, {}, milliseconds});
    return *this;
  }
  ScriptedServer& Close() {
    steps_.push_back({Kind::kClose, {}, 0});
    return *this;
  }
  /// Waits for the next connection; the first needs no such step.
  ScriptedServer& Accept() {
    steps_.push_back({Kind::kAccept, {}, 0});
    return *this;
  }
  ScriptedServer& Login(const std::string& user, const std::string& password) {
    return SayLine("+OK ready")
        .Hear("USER " + user)
        .SayLine("+OK")
        .Hear("PASS " + password)
        .SayLine("+OK");
  }

  /// Listens and starts the script. Returns the port.
  int32_t Start() {
    const int32_t port = Listen();
    if (port != 0) thread_ = std::thread([this] { Work(); });
    return port;
  }

  /// Listens only. Returns the port.
  int32_t Listen() {
    const int port = ListenHere(listener_);
    if (port == 0) fault_ = "cannot listen";
    return port;
  }

  /// True when somebody connected and was not taken yet.
  bool Visited() const { return WaitForInput(listener_, 0); }

  /// Waits for the end of the script, which comes when the client has closed. Returns what went
  /// otherwise than written, or "".
  std::string Finish() {
    if (thread_.joinable()) thread_.join();
    if (listener_ >= 0) CloseSocket(std::exchange(listener_, -1));
    return fault_;
  }

 private:
  enum class Kind { kSay, kSayOften, kDrip, kHear, kPause, kClose, kAccept };
  struct Step {
    Kind kind;
    std::string text;
    int64_t number;
  };
  static constexpr int kPatience = 5000;

  void Work() {
    if (!TakeConnection()) return;
    for (const Step& step : steps_) {
      if (!Do(step)) break;
    }
    if (client_ >= 0 && fault_.empty()) AwaitEnd();
    Drop();
  }

  bool Do(const Step& step) {
    switch (step.kind) {
      case Kind::kSay:
        Send(step.text);
        return true;
      case Kind::kSayOften:
        for (int64_t i = 0; i < step.number && Send(step.text); ++i) {
        }
        return true;
      case Kind::kDrip:
        for (const char c : step.text) {
          if (!Send({&c, 1})) break;
          Sleep(step.number);
        }
        return true;
      case Kind::kHear: {
        std::string line;
        if (!ReadLine(line)) {
          fault_ = "wanted \"" + step.text + "\", the client said no more";
        } else if (line != step.text) {
          fault_ = "wanted \"" + step.text + "\", the client said \"" + line + "\"";
        }
        return fault_.empty();
      }
      case Kind::kPause:
        Sleep(step.number);
        return true;
      case Kind::kClose:
        Drop();
        return true;
      case Kind::kAccept:
        Drop();
        return TakeConnection();
    }
    return false;
  }

  // When nothing is left to say, the client may end the session or just close.
  void AwaitEnd() {
    std::string line;
    while (ReadLine(line)) {
      if (line == "QUIT") {
        Send("+OK bye\r\n");
      } else {
        fault_ = "the client went on with \"" + line + "\"";
        return;
      }
    }
    if (!input_.empty()) fault_ = "the client went on with \"" + input_ + "\"";
  }

  bool TakeConnection() {
    if (!WaitForInput(listener_, kPatience)) {
      fault_ = "nobody connected";
      return false;
    }
    client_ = AcceptOne(listener_);
    SendAtOnce(client_);
    input_.clear();
    return client_ >= 0;
  }

  // The client may give up, as some scripts want.
  bool Send(std::string_view bytes) { return client_ < 0 || SendAll(client_, bytes); }

  bool ReadLine(std::string& line) {
    for (size_t end; (end = input_.find("\r\n")) == std::string::npos;) {
      char buffer[4096];
      if (client_ < 0 || !WaitForInput(client_, kPatience)) return false;
      const std::ptrdiff_t count = recv(client_, buffer, sizeof buffer, 0);
      if (count <= 0) return false;
      input_.append(buffer, static_cast<size_t>(count));
    }
    const size_t end = input_.find("\r\n");
    line = input_.substr(0, end);
    input_.erase(0, end + 2);
    return true;
  }

  static void Sleep(int64_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  }
  void Drop() {
    if (client_ >= 0) CloseSocket(std::exchange(client_, -1));
  }

  std::vector<Step> steps_;
  int listener_ = -1;
  int client_ = -1;
  std::string input_;
  std::string fault_;
  std::thread thread_;
};

}  // namespace korvane::test
