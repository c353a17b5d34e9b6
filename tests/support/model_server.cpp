#include "support/model_server.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>

#include "Tarsel_MailConversions.h"

namespace {

using korvane::test::ModelServer;

constexpr int32_t kSocket = 1;
ModelServer* in_use = nullptr;

template <class Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

int32_t MPconnect(int32_t* socket, int32_t port, const char* host, int32_t timeout) {
  static const auto real = Real<decltype(&MPconnect)>("MPconnect");
  return in_use ? in_use->Connect(socket) : real(socket, port, host, timeout);
}

int32_t MPsend(int32_t socket, const char* bytes, int32_t count) {
  static const auto real = Real<decltype(&MPsend)>("MPsend");
  return in_use ? in_use->Send({bytes, static_cast<size_t>(count)}) : real(socket, bytes, count);
}

int32_t MPrecv(int32_t socket, char* buffer, int32_t capacity) {
  static const auto real = Real<decltype(&MPrecv)>("MPrecv");
  return in_use ? in_use->Receive(buffer, capacity) : real(socket, buffer, capacity);
}

int32_t MPclose(int32_t socket) {
  static const auto real = Real<decltype(&MPclose)>("MPclose");
  if (!in_use) return real(socket);
  in_use->Close();
  return 0;
}

namespace korvane::test {

ModelServer::ModelServer() { in_use = this; }
ModelServer::~ModelServer() { in_use = nullptr; }

int32_t ModelServer::Connect(int32_t* socket) {
  ++connections;
  *socket = kSocket;
  input_.clear();
  doomed_.clear();
  waiting_.clear();
  waiting_.push_back({{"+OK ready\r\n", ModelReply::Then::kNothing, {}}, 0});
  open_ = true;
  closing_ = false;
  return 0;
}

void ModelServer::Close() { open_ = false; }

int32_t ModelServer::Send(const std::string& bytes) {
  if (!open_) return -1;
  heard += bytes;
  if (!closing_) {
    input_ += bytes;
    for (size_t end; !closing_ && (end = input_.find("\r\n")) != std::string::npos;) {
      const std::string line = input_.substr(0, end);
      input_.erase(0, end + 2);
      Take(line);
    }
  }
  return static_cast<int32_t>(bytes.size());
}

void ModelServer::Take(const std::string& line) {
  commands.push_back(line);
  const std::string verb = line.substr(0, 4);
  const bool harmless = verb == "TOP " || verb == "RETR" || verb == "LIST" || verb == "UIDL";
  if (!harmless && !waiting_.empty()) sent_ahead_of_turn = true;
  ModelReply reply = Answer(line);
  closing_ = reply.then == ModelReply::Then::kClose || reply.then == ModelReply::Then::kDead;
  waiting_.push_back({std::move(reply), line.size() + 2});
  size_t bytes = 0;
  for (const Piece& piece : waiting_) bytes += piece.command_bytes;
  most_waiting = std::max(most_waiting, bytes);
}

ModelReply ModelServer::Answer(const std::string& line) {
  std::optional<ModelReply> reply = answer ? answer(line) : std::nullopt;
  const bool good =
      !reply || (reply->bytes.starts_with('+') && reply->then == ModelReply::Then::kNothing);
  if (line.starts_with("DELE ") && good) doomed_.insert(std::stoi(line.substr(5)));
  if (line == "QUIT" && good) deleted.insert(doomed_.begin(), doomed_.end());
  if (reply) return *reply;
  if (line == "STAT") {
    const auto left = messages - static_cast<int32_t>(doomed_.size());
    return {"+OK " + std::to_string(left) + " " + std::to_string(all_bytes) + "\r\n",
            ModelReply::Then::kNothing,
            {}};
  }
  return {"+OK\r\n", ModelReply::Then::kNothing, {}};
}

int32_t ModelServer::Receive(char* buffer, int32_t capacity) {
  if (!open_) return -1;
  size_t most = static_cast<size_t>(capacity);
  // In lock-step no more than the rest of one reply and the next can wait.
  if (pieces && waiting_.size() > 2) {
    most = std::uniform_int_distribution<size_t>(1, 60)(*pieces) * ((*pieces)() % 4 == 0 ? 300 : 1);
    most = std::min(most, static_cast<size_t>(capacity));
  }
  size_t count = 0;
  while (!waiting_.empty() && count < most) {
    ModelReply& first = waiting_.front().reply;
    // The last reply comes in one, as it does in lock-step: what is too much in it is known by
    // that.
    if (waiting_.size() == 1) most = static_cast<size_t>(capacity);
    const size_t taken = std::min(most - count, first.bytes.size());
    std::memcpy(buffer + count, first.bytes.data(), taken);
    first.bytes.erase(0, taken);
    count += taken;
    if (!first.bytes.empty()) break;
    if (first.then != ModelReply::Then::kNothing) {
      if (count > 0) break;
      if (first.then == ModelReply::Then::kClose) return 0;
      if (first.then == ModelReply::Then::kDead) return -1;
      first.bytes = std::move(first.rest);
      first.then = ModelReply::Then::kNothing;
      if (first.bytes.empty()) waiting_.pop_front();
      return -1;
    }
    waiting_.pop_front();
  }
  return count > 0 ? static_cast<int32_t>(count) : -1;
}

}  // namespace korvane::test
