#include "identifiers.h"

namespace korvane::test {
namespace {

TEST(Identifiers, ProcessesThatStoreAtOnceNeverShareOne) {
  Store store;
  StoreFromProcesses(store, 4, 4, 20);
  CheckStored(store, 4, 20);
}

}  // namespace
}  // namespace korvane::test
