// The type library's source in IDL, made from the object model, and the one thing in the compiled
// library that the compiler cannot be told: the default of an any-value.
#pragma once

#include <string>

namespace korvane::com {

std::string ToIdl();

/// widl packs the default of an any-value parameter as a number of the type "any", which is no
/// number's type; here it becomes a 32-bit number's. False when the library does not hold exactly
/// as many of them as the object model.
bool SettleDefaults(std::string& type_library);

}  // namespace korvane::com
