// How a compaction moves the rows of a user on a connection without transactions: written down
// before anything is touched, so that whoever finds it half done can do the rest. Without it a stop
// among the rows would leave some of them pointing into each file, and none could say which.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "../frame/database.h"

namespace korvane {

/// A row's position before and after; -1 where the record is gone with the row, which is deleted.
struct Renumbering {
  int32_t id = 0;
  int64_t from = 0;
  int64_t to = 0;
  bool operator==(const Renumbering&) const = default;
};

using RenumberingPlan = std::vector<Renumbering>;

/// Its file's name, beside the message file.
std::string PlanFilePath(const std::string& path_messages, int32_t user_id);

/// On the disk when it returns true.
bool WritePlan(const std::string& path_messages, int32_t user_id, const RenumberingPlan& plan);
/// Nothing when there is none. Throws std::runtime_error when it cannot be read.
std::optional<RenumberingPlan> ReadPlan(const std::string& path_messages, int32_t user_id);

/// Moves the rows that stand where the plan begins; those that have been moved or are gone stay as
/// they are, so it may run again. Throws DatabaseError, also when a row is not moved afterwards.
void ApplyPlan(Connection& connection, int32_t user_id, const RenumberingPlan& plan);

}  // namespace korvane
