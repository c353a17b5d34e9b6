// The numbers that stand for open connections. A number is never the platform's own and is not
// given out again while 2,147,483,647 others are left, so that one kept for too long reaches
// nobody else's connection.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "pop3/sockets/connection.h"

namespace korvane::sockets {

class HandleTable {
 public:
  int32_t Add(std::shared_ptr<Connection> connection);
  /// None where the handle is not open.
  std::shared_ptr<Connection> Find(int32_t handle) const;
  /// Takes the connection out. It ends when the last call that uses it has returned.
  std::shared_ptr<Connection> Remove(int32_t handle);

 private:
  mutable std::mutex mutex_;
  std::unordered_map<int32_t, std::shared_ptr<Connection>> open_;
  int32_t last_ = 0;
};

}  // namespace korvane::sockets
