// The tests run in an apartment, as scripts do.
#include <gtest/gtest.h>
#include <objbase.h>

int main(int count, char** arguments) {
  testing::InitGoogleTest(&count, arguments);
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  const int status = RUN_ALL_TESTS();
  CoUninitialize();
  return status;
}
