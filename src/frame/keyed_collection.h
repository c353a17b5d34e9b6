// An ordered collection whose items also have a number as key.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace korvane {

/// The error numbers that a collection reports for a key and for a position that it lacks; they are
/// the ones that automation clients know.
inline constexpr int32_t kNoSuchKey = 5;
inline constexpr int32_t kNoSuchPosition = 9;

template <class T>
class KeyedCollection {
 public:
  /// Appends. A key that is already there stays with the earlier item.
  void Add(std::shared_ptr<T> item, int32_t key) {
    by_key_.emplace(key, items_.size());
    items_.push_back(std::move(item));
  }
  size_t size() const { return items_.size(); }
  /// By position, counted from 1; null when there is none.
  std::shared_ptr<T> AtPosition(int32_t position) const {
    return position >= 1 && static_cast<size_t>(position) <= items_.size() ? items_[position - 1]
                                                                           : nullptr;
  }
  std::shared_ptr<T> WithKey(int32_t key) const {
    const auto found = by_key_.find(key);
    return found == by_key_.end() ? nullptr : items_[found->second];
  }
  const std::vector<std::shared_ptr<T>>& items() const { return items_; }

 private:
  std::vector<std::shared_ptr<T>> items_;
  std::unordered_map<int32_t, size_t> by_key_;
};

}  // namespace korvane
