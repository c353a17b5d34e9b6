// Uuencoded blocks of a text: found in order, within it, and read without a fault.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "mime/uu_attachment.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  UUBlockFinder finder(text);
  UUBlock block{};
  size_t from = 0;
  while (finder.Next(block)) {
    if (block.begin < from || block.end <= block.begin || block.end > size) std::abort();
    from = block.end;
    UUAtcmt file;
    if (!file.InitFromText(nullptr, 1, text.substr(block.begin, block.end - block.begin))) {
      std::abort();
    }
    if (file.UUName().empty() || file.UUData().size() > size) std::abort();
  }
  UUAtcmt whole;
  whole.InitFromText(nullptr, 1, text);
  return 0;
}
