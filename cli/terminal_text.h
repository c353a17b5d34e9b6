// UTF-8 text on a terminal: what may be shown, how wide it is, cut to a width. Texts from mails
// pass through Printable, so that none can move the cursor, change colours or turn the reading
// direction.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace korvane::cli {

struct Character {
  char32_t code;           ///< U+FFFD for bytes that are no UTF-8
  std::string_view bytes;  ///< its UTF-8
};
/// Takes the first character off a text that is not empty.
Character TakeCharacter(std::string_view& text);

/// The text in one line: controls and line ends become blanks, marks that turn the reading
/// direction are left out.
std::string Printable(std::string_view text);

/// How many columns the text takes.
size_t DisplayWidth(std::string_view text);

/// The text cut to `width` columns, with "…" where something is missing, and filled up with blanks.
std::string Fit(std::string_view text, size_t width, bool right = false);

/// The width of the terminal behind the standard output; $COLUMNS or 100 when it is none.
size_t TerminalWidth();

}  // namespace korvane::cli
