// Plays a dialogue to a client that reads ahead. Such a client may ask beyond what the dialogue
// holds and may ask again, over another connection too: a command that is not the next of the
// dialogue is answered as it was, or will be, elsewhere in it, and a harmless one that is nowhere
// in it is answered as by any server. In the end the dialogue must have been gone through.
#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "pop3/dialogue.h"
#include "support/sockets.h"

namespace korvane::test {

class AheadServer {
 public:
  explicit AheadServer(const Dialogue& dialogue) {
    turns_.push_back({});
    for (const Exchange& exchange : dialogue.exchanges) {
      if (exchange.kind == Exchange::Kind::kHear || exchange.kind == Exchange::Kind::kAccept) {
        turns_.push_back({exchange.text, exchange.kind == Exchange::Kind::kAccept, {}});
      } else {
        turns_.back().answer.push_back(exchange);
      }
    }
    if (turns_.size() == 1 && turns_[0].answer.empty()) next_ = 1;
  }
  AheadServer(const AheadServer&) = delete;
  AheadServer& operator=(const AheadServer&) = delete;
  ~AheadServer() { Finish(); }

  /// Returns the port.
  int32_t Start() {
    const int port = ListenHere(listener_);
    if (port != 0) thread_ = std::thread([this] { Work(); });
    return port;
  }

  /// After the client is gone. Returns what the dialogue wanted otherwise, or "".
  std::string Finish() {
    ending_ = true;
    if (thread_.joinable()) thread_.join();
    if (listener_ >= 0) CloseSocket(std::exchange(listener_, -1));
    if (fault_.empty() && next_ < turns_.size()) {
      fault_ = "wanted \"" + turns_[next_].heard + "\", the client said no more";
    }
    return fault_;
  }

 private:
  struct Turn {
    std::string heard;
    bool new_connection = false;
    std::vector<Exchange> answer;
  };

  bool Waits(int socket) const {
    for (int i = 0; i < 500 && !(ending_ && i > 2); ++i) {
      if (WaitForInput(socket, 10)) return true;
    }
    return false;
  }

  void Work() {
    IgnoreDeadConnections();
    while (fault_.empty() && Waits(listener_)) {
      client_ = AcceptOne(listener_);
      SendAtOnce(client_);
      std::string input;
      const bool goes_on = next_ < turns_.size() && turns_[next_].new_connection;
      Do(goes_on || next_ == 0 ? turns_[next_++] : turns_[0]);
      for (std::string line; client_ >= 0 && fault_.empty() && ReadLine(input, line);) Take(line);
      if (client_ >= 0) CloseSocket(std::exchange(client_, -1));
    }
  }

  void Take(const std::string& line) {
    if (next_ < turns_.size() && !turns_[next_].new_connection && turns_[next_].heard == line) {
      return Do(turns_[next_++]);
    }
    for (size_t i = next_; i-- > 0;) {
      if (turns_[i].heard == line) return Do(turns_[i]);
    }
    for (size_t i = next_; i < turns_.size(); ++i) {
      const std::string verb = line.substr(0, 4);
      if (turns_[i].heard == line && verb != "DELE" && verb != "STAT" && verb != "QUIT") {
        return Do(turns_[i]);
      }
    }
    const std::string number = line.size() > 5 ? line.substr(line.find(' ') + 1) : "";
    if (line.starts_with("TOP ") || line.starts_with("RETR ")) {
      Say("+OK\r\nSubject: asked for ahead\r\n\r\n.\r\n");
    } else if (line.starts_with("LIST ")) {
      Say("+OK " + number + " 1\r\n");
    } else if (line.starts_with("UIDL ")) {
      Say("+OK " + number + " ahead\r\n");
    } else if (line == "QUIT" && next_ == turns_.size()) {
      Say("+OK bye\r\n");
    } else {
      fault_ = "the client said \"" + line + "\"";
    }
  }

  void Do(const Turn& turn) {
    std::string said;  // in one piece, so that it arrives in one
    for (const Exchange& exchange : turn.answer) {
      if (exchange.kind == Exchange::Kind::kSay) {
        said += exchange.text;
        continue;
      }
      Say(std::exchange(said, ""));
      switch (exchange.kind) {
        case Exchange::Kind::kSayOften:
          for (int64_t i = 0; i < exchange.number && Say(exchange.text); ++i) {
          }
          break;
        case Exchange::Kind::kDrip:
          for (const char c : exchange.text) {
            if (!Say(std::string(1, c))) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(exchange.number));
          }
          break;
        case Exchange::Kind::kPause:
          std::this_thread::sleep_for(std::chrono::milliseconds(exchange.number));
          break;
        case Exchange::Kind::kClose:
          if (client_ >= 0) CloseSocket(std::exchange(client_, -1));
          break;
        default:
          break;
      }
    }
    Say(said);
  }

  bool Say(std::string_view bytes) { return client_ >= 0 && SendAll(client_, bytes); }

  bool ReadLine(std::string& input, std::string& line) {
    size_t end;
    while ((end = input.find("\r\n")) == std::string::npos) {
      char buffer[4096];
      if (!Waits(client_)) return false;
      const auto count = recv(client_, buffer, sizeof buffer, 0);
      if (count <= 0) return false;
      input.append(buffer, static_cast<size_t>(count));
    }
    line = input.substr(0, end);
    input.erase(0, end + 2);
    return true;
  }

  std::vector<Turn> turns_;  ///< the first is what is said unasked
  size_t next_ = 0;
  int listener_ = -1;
  int client_ = -1;
  std::atomic<bool> ending_ = false;
  std::string fault_;
  std::thread thread_;
};

}  // namespace korvane::test
