// The system code page. Bytes that form UTF-8 (RFC 3629) are UTF-8; any other byte from 0x80 up is
// its Windows-1252 character, the five unassigned ones being U+0081, 8D, 8F, 90 and 9D. This pair
// is the only place where bytes and characters are converted into each other.
#pragma once

#include <string>
#include <string_view>

namespace korvane {

/// True when the bytes are well-formed UTF-8.
bool IsUtf8(std::string_view bytes);

/// The bytes as well-formed UTF-8. A text that already is comes back moved, not copied.
std::string ToUtf8(std::string bytes);

/// The Windows-1252 bytes of a UTF-8 text; a character that the code page lacks stays UTF-8.
std::string FromUtf8(std::string_view text);

/// The first `characters` characters of a UTF-8 text, never half of one.
std::string_view CutCharacters(std::string_view text, size_t characters);

}  // namespace korvane
