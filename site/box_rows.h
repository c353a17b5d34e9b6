// What the site asks the tables beside the component: counts of boxes, undoing a deletion.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/database.h"

namespace korvane::site {

inline constexpr int32_t kInbox = 1;
inline constexpr int32_t kDrafts = 3;

inline constexpr int64_t kMostUnreadShown = 99;

struct BoxCount {
  int32_t box = 0;
  int64_t messages = 0;
  int64_t unread = 0;  ///< at least kMostUnreadShown + 1: more than is shown
};

int64_t CountAccountRows(Connection& database, int32_t user, int32_t account);
/// The boxes that hold mail, and always the inbox and the drafts.
std::vector<BoxCount> CountBoxes(Connection& database, int32_t user);

/// Takes local deletions back: only rows of this user that still lie on no other side of it.
int32_t UndoDeletion(Connection& database, int32_t user, const std::vector<int32_t>& ids);

/// Those of this user's messages of which only the header is here.
std::vector<int32_t> HeadersOnly(Connection& database, int32_t user,
                                 const std::vector<int32_t>& ids);

/// The account that a message of the user came from; 0 when there is no such message.
int32_t AccountOfMessage(Connection& database, int32_t user, int32_t id);

struct DeadBytes {
  int64_t counted = 0;  ///< what the cleaner's own count says
  int64_t dead = 0;     ///< what the rows say
  int64_t live = 0;
};
DeadBytes CountDeadBytes(Connection& database, int32_t user);

}  // namespace korvane::site
