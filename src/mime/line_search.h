// Line ends as a parser of mail meets them: a CR LF with certain characters behind it, and texts
// whose line ends are bare LFs. Sixteen positions a step where the processor can, because every
// body passes through here.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace korvane {

/// The position of the first CR LF at or after `from` and before `limit` that is followed by the
/// characters of `behind` (one or two); npos when there is none. The match may reach beyond
/// `limit`.
size_t FindLineEndBefore(std::string_view text, size_t from, size_t limit, const char (&behind)[2]);
size_t FindLineEndBefore(std::string_view text, size_t from, size_t limit, const char (&behind)[3]);

/// A text with no CR LF at all but with empty lines was saved or relayed with bare LFs: they become
/// CR LF. Any other text stays as it is.
void ReadLineFeedsAsLineEnds(std::string& text);

}  // namespace korvane
