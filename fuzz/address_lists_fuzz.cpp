// A normalised form can be taken apart again, whatever it was made of.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "message/address_fields.h"
#include "mime/header_fields.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const NamesAndAddresses simple = SplitAddressList(text);
  const std::string from = NormaliseFrom(text);
  if (NamesOfNormalised(from) != simple.names) std::abort();
  if (AddressesOfNormalised(from) != simple.addresses) std::abort();

  const NamesAndAddresses grouped = SplitAddressListWithGroups(text);
  const std::string to = NormaliseTo(text);
  if (NamesOfNormalised(to) != grouped.names) std::abort();
  if (AddressesOfNormalised(to) != grouped.addresses) std::abort();

  SplitMailbox(text);
  AngleAddress(text);
  NamesOfNormalised(text);
  AddressesOfNormalised(text);
  NormaliseTo(DecodeEncodedWords(text, true));
  return 0;
}
