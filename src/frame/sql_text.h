// Small pieces that every statement text is made of.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "database.h"

namespace korvane {

/// The text with every "'" doubled, for use between single quotes; the only escaping there is.
std::string DoubleQuotes(std::string_view text);

/// The first cell of the first row of a query for one value; null when there is no row. Throws
/// DatabaseError.
Any FirstValue(Connection& connection, const std::string& statement);

/// The identifier for a new row: the maximum that `statement` ("SELECT MAX(id_mail) FROM mail" and
/// the like) yields plus 1, or 1 when the table is empty. Only safe against other processes inside
/// Connection::BeginAllocating. Throws DatabaseError.
int32_t NextIdentifier(Connection& connection, const std::string& statement);

}  // namespace korvane
