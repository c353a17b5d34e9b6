// The list of message identifiers that a page hands over: a number, or a text of decimal numbers
// separated by "," with blanks around them allowed. It goes into a statement, so anything else is
// refused as a whole.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "../frame/any.h"

namespace korvane {

/// The identifiers in the order given, at least one; nothing when the value is no such list.
std::optional<std::vector<int32_t>> ReadMessageIds(const Any& value);

}  // namespace korvane
