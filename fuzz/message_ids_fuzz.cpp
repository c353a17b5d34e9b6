// The list of identifiers that goes into a statement: what is accepted is made of digits, commas
// and blanks only, and reads the same when it is written plainly.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "engine/message_ids.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto ids = korvane::ReadMessageIds(text);
  if (!ids) return 0;
  if (ids->empty() || text.find_first_not_of("0123456789, ") != std::string::npos) std::abort();
  std::string plain;
  for (const int32_t id : *ids) {
    if (id < 0) std::abort();
    if (!plain.empty()) plain += ',';
    plain += std::to_string(id);
  }
  if (korvane::ReadMessageIds(plain) != ids) std::abort();
  return 0;
}
