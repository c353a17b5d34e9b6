#include "pop3/sockets/handle_table.h"

#include <limits>

namespace korvane::sockets {

int32_t HandleTable::Add(std::shared_ptr<Connection> connection) {
  const std::lock_guard lock(mutex_);
  do {
    last_ = last_ == std::numeric_limits<int32_t>::max() ? 1 : last_ + 1;
  } while (open_.contains(last_));
  open_.emplace(last_, std::move(connection));
  return last_;
}

std::shared_ptr<Connection> HandleTable::Find(int32_t handle) const {
  const std::lock_guard lock(mutex_);
  const auto found = open_.find(handle);
  return found == open_.end() ? nullptr : found->second;
}

std::shared_ptr<Connection> HandleTable::Remove(int32_t handle) {
  const std::lock_guard lock(mutex_);
  const auto node = open_.extract(handle);
  return node.empty() ? nullptr : std::move(node.mapped());
}

}  // namespace korvane::sockets
