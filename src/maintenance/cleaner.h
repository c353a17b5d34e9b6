// The cleaner: counts the bytes of locally deleted messages and rewrites a user's message file
// without them.
#pragma once

#include <cstdint>
#include <string>

#include "../frame/database.h"

namespace korvane {

/// More dead bytes than this make a compaction worth while.
inline constexpr int64_t kCompactionThreshold = 3'145'728;

/// Adds `added` bytes to the user's count of dead bytes; makes the row from the rows marked as
/// deleted when there is none. Begins its own transaction. Always true. Throws DatabaseError.
bool RecordDeletedSize(Connection& connection, int32_t user_id, int32_t added);

/// Compacts the user's message file when enough of it is dead. 0 on success. Faults of the database
/// and of the files are thrown (DatabaseError, std::runtime_error); no record is lost by them. It
/// takes the user's lock and begins its own transaction, where the connection has any.
int32_t CompactMessageFile(Connection& connection, const std::string& path_messages,
                           int32_t user_id);

/// Finishes or undoes a compaction of this user that was interrupted; false when nothing had to be
/// done. Call it with the user's lock held, before the message file is used.
bool RecoverCompaction(Connection& connection, const std::string& path_messages, int32_t user_id);

}  // namespace korvane
