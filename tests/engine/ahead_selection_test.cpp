// A selection that reads ahead against one in lock-step, over servers that behave as a seed says:
// what comes back, the errors and what stays on the server are the same.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "engine/ahead_selection.h"

namespace korvane::test {
namespace {

TEST(AheadSelection, IsTheSameAsLockStepOverRandomServers) {
  for (uint64_t seed = 1; seed <= 5'000; ++seed) {
    if (!CompareSelections(seed)) break;
  }
}

}  // namespace
}  // namespace korvane::test
