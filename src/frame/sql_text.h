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

/// True when that message is there and the user's. Under the user's lock and the one for
/// identifiers it tells whether a commit in doubt was made: nobody else adds rows of this user
/// then.
bool HasMessageOf(Connection& connection, int32_t user_id, int32_t id_mail);

}  // namespace korvane
