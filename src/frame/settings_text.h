// The text of a settings file: its names, quotes, lines and encodings, for the parts of
// SettingsFile.
#pragma once

#include <string>
#include <string_view>

namespace korvane::settings_text {

/// What a file of the present format begins with.
inline constexpr std::string_view kHead = "Windows Registry Editor Version 5.00";

/// Names are compared in any case; letters beyond ASCII have to match.
std::string Folded(std::string_view text);
/// The same of a key, without the separators behind it.
std::string FoldedKey(std::string_view key);
std::string Quoted(std::string_view text);

/// UTF-16 to UTF-8 and back. A surrogate that stands alone takes the three bytes that its number
/// would have, so that a file is written back as it was.
std::string Utf16ToText(std::string_view bytes, bool big_endian);
/// `text` is what Utf16ToText makes, or anything else: bytes that are no UTF-8 are of the code
/// page.
std::string TextToUtf16(std::string_view text, bool big_endian);

}  // namespace korvane::settings_text
