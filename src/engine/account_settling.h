// Settling the bookkeeping of an account. A run under look-ups never ends them by itself: the flag
// stays and its rows are marked as not known together with all older ones, so every later run looks
// at every message again. After a run under look-ups that went over everything on the server
// without a fault, that caution is no longer needed.
#pragma once

#include <string_view>

#include "../frame/database.h"

namespace korvane {

class MailUser;

/// Makes the last-download time, the flag and the rows' marks of the loaded account what a clean
/// first download would have left, so that later runs stop at the first known message again.
/// `newest_received` is the "received" text of the newest message on the server; where its time
/// cannot be read the flag stays, as a first download would have set it. Call it only after a run
/// under look-ups that was complete and without a fault. Throws DatabaseError.
void SettleAccount(Connection& connection, const MailUser& account,
                   std::string_view newest_received);

/// The opposite: the next run looks every message on the server up, to its end. Throws
/// DatabaseError.
void UnsettleAccount(Connection& connection, const MailUser& account);

}  // namespace korvane
