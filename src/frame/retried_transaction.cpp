#include "frame/retried_transaction.h"

#include <algorithm>
#include <random>
#include <thread>

namespace korvane {

bool Attempts::Next(bool waited) {
  if (!first_fault_) first_fault_ = Clock::now();
  if (--left_ <= 0 || Clock::now() > (waited ? begin_ : *first_fault_) + patience_) return false;
  constexpr int kLongest = 250;
  const int longest = done_ < 6 ? std::min(10 << done_, kLongest) : kLongest;
  ++done_;
  thread_local std::minstd_rand random{std::random_device{}()};
  std::this_thread::sleep_for(
      std::chrono::milliseconds(std::uniform_int_distribution<int>(1, longest)(random)));
  return true;
}

}  // namespace korvane
