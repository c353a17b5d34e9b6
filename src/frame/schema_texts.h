// The scripts of the folder schema/, put into the library when it is built.
#pragma once

namespace korvane {

extern const char* const kSqliteSchema;
extern const char* const kPostgresqlSchema;
extern const char* const kMariadbSchema;

}  // namespace korvane
