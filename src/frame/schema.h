// The tables of a database, made from texts that are built in.
//
// A script makes what is missing and leaves what is there, so that running it brings tables of any
// older version up to date. The versions that a database went through are rows of "schema_version".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

/// The version of the tables that this library makes and expects. 2: SQLite counts the messages
/// that are not read. 3: PostgreSQL and MariaDB count the messages of a box, and their indexes hold
/// the beginning of the recipients.
inline constexpr int32_t kSchemaVersion = 3;

/// Makes the tables, the view and the indexes where they are missing; what is there stays. The file
/// of an SQLite database is made too, for its owner only. Throws DatabaseError, also when the
/// tables are of a newer version.
void CreateSchema(const std::string& url);

/// What CreateSchema would do.
struct SchemaPlan {
  int32_t version = 0;                  ///< of the tables that are there
  std::vector<std::string> statements;  ///< none when they are of kSchemaVersion
};
/// Changes nothing, and makes no file. Throws DatabaseError as CreateSchema does.
SchemaPlan PlanSchema(const std::string& url);

/// The version of the tables in a database, 0 when there are none of ours. Throws DatabaseError
/// when the database cannot be opened.
int32_t SchemaVersion(const std::string& url);

}  // namespace korvane
