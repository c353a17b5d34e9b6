// The objects that were handed out, by number. A number is never used twice, so one that was
// released, or was never handed out, finds nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <unordered_map>

#include "frame/any.h"
#include "frame/object_model.h"

namespace korvane::automation {

class Handles {
 public:
  struct Entry {
    std::shared_ptr<Object> object;
    const model::Class* type = nullptr;
  };

  Handles();
  uint64_t Add(std::shared_ptr<Object> object, const model::Class& type);
  /// An empty entry when there is no such object.
  Entry Find(uint64_t handle) const;
  /// False when there is no such object. The object is destroyed outside the table's lock, because
  /// a facade's end talks to its server.
  bool Release(uint64_t handle);
  size_t size() const;

  /// The one table of the process.
  static Handles& Instance();

 private:
  mutable std::mutex mutex_;
  std::unordered_map<uint64_t, Entry> entries_;
  std::mt19937_64 random_;
  uint64_t last_ = 0;
};

}  // namespace korvane::automation
