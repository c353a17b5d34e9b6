// Connection strings: whatever stands in one, it is taken apart or refused, and the refusal repeats
// nothing of it.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "frame/database_url.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    const DatabaseUrl url = DatabaseUrl::Parse(text);
    if (url.odbc.find('\0') != std::string::npos) std::abort();
    if (url.odbc.empty() && url.name.empty()) std::abort();
    if (url.BusyTimeout() < 0) std::abort();
    if (url.password.size() >= 4 && url.WithoutPassword(url.password) != "***") std::abort();
  } catch (const DatabaseError&) {
  }
  return 0;
}
