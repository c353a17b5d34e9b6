// Texts as the columns of "mail" hold them: apostrophes doubled, then cut to the column's length.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace korvane {

inline constexpr size_t kSenderColumn = 255;
inline constexpr size_t kSubjectColumn = 150;
inline constexpr size_t kMessageIdColumn = 255;
inline constexpr size_t kUnlimitedColumn = std::string_view::npos;

std::string ColumnText(std::string_view text, size_t characters);

/// The text with every doubled apostrophe turned back into one.
std::string UndoDoubledQuotes(std::string_view text);

}  // namespace korvane
