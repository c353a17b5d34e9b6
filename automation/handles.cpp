#include "handles.h"

#include <utility>

namespace korvane::automation {

Handles::Handles() : random_(std::random_device{}()) {}

uint64_t Handles::Add(std::shared_ptr<Object> object, const model::Class& type) {
  const std::lock_guard lock(mutex_);
  // The running part keeps numbers apart for good, the random part keeps a guess from hitting one.
  // They stay below 2^53, so that languages whose only number is a double can hold them.
  const uint64_t handle = (++last_ << 20) | (random_() & 0xfffff);
  entries_.emplace(handle, Entry{std::move(object), &type});
  return handle;
}

Handles::Entry Handles::Find(uint64_t handle) const {
  const std::lock_guard lock(mutex_);
  const auto found = entries_.find(handle);
  return found == entries_.end() ? Entry{} : found->second;
}

bool Handles::Release(uint64_t handle) {
  Entry released;
  const std::lock_guard lock(mutex_);
  const auto found = entries_.find(handle);
  if (found == entries_.end()) return false;
  released = std::move(found->second);
  entries_.erase(found);
  return true;
}

size_t Handles::size() const {
  const std::lock_guard lock(mutex_);
  return entries_.size();
}

Handles& Handles::Instance() {
  // Never destroyed: a script's objects may be released while the process ends.
  static auto* const table = new Handles;
  return *table;
}

}  // namespace korvane::automation
