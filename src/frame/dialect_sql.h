// What an engine is told in words of its own, whichever client library carries them: how a session
// is set up, the lock under which identifiers are made, the description of a table.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "driver.h"

namespace korvane {

/// Held from before the greatest identifier is asked for to the end of the transaction.
inline constexpr const char* kPostgresqlAllocationLock = "SELECT pg_advisory_xact_lock(1265594998)";
/// The same; the name is one for each database of a server.
inline constexpr const char* kMariadbTakeLock =
    "SELECT GET_LOCK(CONCAT('korvane.', MD5(DATABASE())), ?)";
inline constexpr const char* kMariadbGiveLock =
    "DO RELEASE_LOCK(CONCAT('korvane.', MD5(DATABASE())))";

/// On a node of a Galera cluster, what was committed on another one before is seen here. It costs a
/// round trip between the nodes for each statement that reads outside a transaction.
inline constexpr const char* kGaleraCausalReads = "SET SESSION wsrep_sync_wait=1";

/// What a lock is waited for, in the whole seconds that MariaDB knows.
int32_t LockSeconds(int32_t busy_timeout);

/// The statements that a new session of PostgreSQL or MariaDB begins with.
std::vector<std::string> SessionSettings(Dialect dialect, int32_t busy_timeout);

/// The columns of a table or view in their order; empty when there is none of that name.
std::vector<Column> DescribeTable(Driver& driver, const std::string& table);

/// The kind of an SQLite column. A site may have declared its columns as it liked: this engine
/// keeps dates and booleans as texts and numbers anyway. The system's own dates and booleans are
/// known by their names.
ColumnKind SqliteColumnKind(std::string_view name, std::string_view declaration);

/// The statements of a script, which end with ";" at the end of a line; a trigger ends with "END;",
/// a function with "$$;".
std::vector<std::string> ScriptStatements(std::string_view script);

}  // namespace korvane
