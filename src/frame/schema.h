// The tables of a database, made from texts that are built in.
#pragma once

#include <cstdint>
#include <string>

namespace korvane {

/// The version of the tables that this library makes and expects.
inline constexpr int32_t kSchemaVersion = 1;

/// Makes the tables, the view and the indexes where they are missing; what is there stays. The file
/// of an SQLite database is made too, for its owner only. Throws DatabaseError.
void CreateSchema(const std::string& url);

/// The version of the tables in a database, 0 when there are none of ours. Throws DatabaseError
/// when the database cannot be opened.
int32_t SchemaVersion(const std::string& url);

}  // namespace korvane
