// The texts of a message as the table "mail" holds them. Storing a row, looking for a duplicate and
// finding a message again have to agree on them, so they are made here only.
#pragma once

#include <string>
#include <string_view>

namespace korvane {

inline constexpr size_t kSenderCharacters = 255;
inline constexpr size_t kSubjectCharacters = 150;
inline constexpr size_t kMessageIdCharacters = 255;

/// The text without the NULs that no engine holds.
std::string WithoutNuls(std::string_view text);

/// A text column: without NULs, every "'" doubled, then cut to `characters` (0: not cut).
std::string RowText(std::string_view text, size_t characters = 0);

/// Every "''" turned back into one "'".
std::string UndoubledQuotes(std::string_view text);

}  // namespace korvane
