// Values on their way between the system and a database: names, texts, dates.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "any.h"
#include "driver.h"

namespace korvane {

/// Names of tables and columns are compared in any case.
bool SameName(std::string_view left, std::string_view right);
std::string LowerName(std::string_view name);

/// The longest text of a cell, in bytes: what every engine takes, with room for a whole row.
inline constexpr size_t kLongestText = 1'048'576;

/// The text as every engine can hold it: well-formed UTF-8, a blank for each NUL, cut to
/// kLongestText. What is stored and what is compared with it both pass here.
std::string StorableText(std::string_view text);

/// A date text in the order that the connection uses, "5/3/2002 9:5:7", as the database holds it,
/// "2002-03-05 09:05:07"; nothing when it is no date. A year has four digits; a missing time is
/// midnight.
std::optional<std::string> StoredDate(std::string_view text, bool month_first);
/// And back, padded: "05/03/2002 09:05:07".
std::string DateText(std::string_view stored, bool month_first);

/// A cell as scripts see it.
Any CellValue(const Cell& cell, ColumnKind kind, bool month_first);
/// A value as the column holds it. Throws DatabaseError when it cannot be one of the column's.
Cell StoredCell(const Any& value, const Column& column, bool month_first);

}  // namespace korvane
