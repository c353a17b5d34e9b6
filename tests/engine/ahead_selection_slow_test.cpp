// The comparison of ahead_selection_test.cpp over many more servers.
#include <gtest/gtest.h>

#include "engine/ahead_selection.h"

namespace korvane::test {
namespace {

TEST(AheadSelection, IsTheSameAsLockStepOver100000RandomServers) {
  for (uint64_t seed = 1'000'001; seed <= 1'100'000; ++seed) {
    if (!CompareSelections(seed)) break;
  }
}

}  // namespace
}  // namespace korvane::test
