// The bookkeeping of an account between two synchronisations: its row of "ultimi_scaricamenti".
#pragma once

#include <string>

#include "../frame/database.h"

namespace korvane {

class MailUser;

struct LastDownload {
  /// The time of the newest message stored, normalised, in GMT; kFirstMoment before the first.
  std::string time;
  /// Look every candidate up in "mail" before taking it: something may be stored already.
  bool look_up = true;
};

/// Reads the row of the loaded account, or makes it, and marks it as in progress: a run that does
/// not come to its end leaves the mark, and the next one looks every candidate up. Without a row,
/// `first_download` is the caller's word that nothing is stored. Throws DatabaseError.
LastDownload ReadLastDownload(Connection& connection, const MailUser& account, bool first_download);

/// Writes the row at the end of a run; makes it when it is gone. Throws DatabaseError.
void WriteLastDownload(Connection& connection, const MailUser& account, const LastDownload& state);

}  // namespace korvane
