// A compaction that tells where it is, so that a test can stop it at every point.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "../frame/database.h"

namespace korvane {

/// Called after each step of a compaction: "copied", "read back", "synced", "rows changed",
/// "backup made", "renamed", "committed"; on a connection without transactions "plan written",
/// "backup made", "renamed", "rows deleted", "rows changed" behind the third.
using CompactionSteps = std::function<void(const char* step)>;

int32_t CompactMessageFile(Connection& connection, const std::string& path_messages,
                           int32_t user_id, const CompactionSteps& steps);

}  // namespace korvane
