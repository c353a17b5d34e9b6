// Random and keyed texts for tokens, from libsodium.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace korvane::site {

/// `bytes` random bytes as hexadecimal digits.
std::string RandomToken(size_t bytes = 24);

/// A text that only this process can make for `message`; it changes at every start.
std::string Signature(std::string_view message);

/// Compares in a time that does not depend on where the texts differ.
bool SameSecret(std::string_view a, std::string_view b);

}  // namespace korvane::site
