// A POP3 server without a network: the program's socket functions reach it in place of real ones
// while it is in use. It has no clock either, so a silence costs nothing. What it says to a command
// depends on that command alone, so two clients that ask differently can be compared.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace korvane::test {

/// What a command is answered.
struct ModelReply {
  std::string bytes;
  enum class Then {
    kNothing,
    kClose,    ///< the connection ends behind the bytes
    kSilence,  ///< nothing comes for one time-out, then `rest`
    kDead,     ///< nothing ever comes again
  };
  Then then = Then::kNothing;
  std::string rest;
};

class ModelServer {
 public:
  /// From now on connections come here, up to the end of this object's life.
  ModelServer();
  ~ModelServer();
  ModelServer(const ModelServer&) = delete;
  ModelServer& operator=(const ModelServer&) = delete;

  /// The answer to a command line, without its line end. USER, PASS and QUIT are answered here,
  /// STAT and DELE as well when this has nothing to say.
  std::function<std::optional<ModelReply>(const std::string& line)> answer;
  int32_t messages = 0;
  int64_t all_bytes = 1000;  ///< of all messages, as STAT tells
  /// Where replies to commands sent ahead wait, a receive may bring any number of bytes of them.
  std::mt19937* pieces = nullptr;

  /// Command lines in the order in which they came, over all connections.
  std::vector<std::string> commands;
  /// The same to the byte.
  std::string heard;
  int connections = 0;
  /// Deletions that a QUIT made final.
  std::set<int32_t> deleted;
  /// True when a command other than TOP, RETR, LIST or UIDL came while replies waited.
  bool sent_ahead_of_turn = false;
  /// The most bytes of commands whose replies waited.
  size_t most_waiting = 0;

  // What the socket functions do.
  int32_t Connect(int32_t* socket);
  int32_t Send(const std::string& bytes);
  int32_t Receive(char* buffer, int32_t capacity);
  void Close();

 private:
  struct Piece {
    ModelReply reply;
    size_t command_bytes;
  };
  void Take(const std::string& line);
  ModelReply Answer(const std::string& line);

  std::deque<Piece> waiting_;
  std::string input_;
  std::set<int32_t> doomed_;
  bool open_ = false;
  bool closing_ = false;  ///< nothing is heard any more
};

}  // namespace korvane::test
