// Mailboxes and address lists (RFC 5322 section 3.4), and the normalised form in which a message
// keeps its From and To: "names" <addresses>, each list joined by ", ".
#pragma once

#include <string>
#include <string_view>

namespace korvane {

struct NamesAndAddresses {
  std::string names;
  std::string addresses;
};

/// One mailbox into its display name and its address.
NamesAndAddresses SplitMailbox(std::string_view mailbox);
/// A list without groups.
NamesAndAddresses SplitAddressList(std::string_view value);
/// A list in which items may be groups.
NamesAndAddresses SplitAddressListWithGroups(std::string_view value);
/// The address between "<" and ">".
std::string AngleAddress(std::string_view text);

std::string NormaliseFrom(std::string_view value);
std::string NormaliseTo(std::string_view value);
/// The names of a normalised field.
std::string NamesOfNormalised(std::string_view normalised);
/// The addresses of a normalised field.
std::string AddressesOfNormalised(std::string_view normalised);

}  // namespace korvane
