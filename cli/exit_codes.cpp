#include "cli/exit_codes.h"

#include "frame/error_numbers.h"

namespace korvane::cli {

Exit ExitFor(int32_t number) {
  switch (number) {
    case error::None:
      return Exit::kSuccess;
    case error::MessageNotFound:
    case error::BodyNoLongerOnServer:
    case error::NoMessageGiven:
    case error::PageOutOfRange:
    case error::FindNotFound:
    case error::FindServerEmpty:
      return Exit::kNotFound;
    case error::LastDownloadNotRead:
    case error::LastDownloadNotWritten:
    case error::ListingFailed:
    case error::DatabaseFault:
    case error::RowNotWritten:
    case error::RowNotRead:
      return Exit::kDatabase;
    case error::ConnectFailed:
      return Exit::kConnect;
    case error::ServerRefusedUser:
    case error::ServerRefusedPassword:
      return Exit::kLogin;
    case error::SavedMessageWithoutRecord:
    case error::EntityNotSaved:
    case error::UUFileNotWritten:
    case error::UUMarkerNotWritten:
    case error::UURecordNotWritten:
    case error::UURecordNotRead:
    case error::NewMessageNotStored:
    case error::NewMessageWithoutRecord:
    case error::RecordAndRowNotWritten:
    case error::RecordNotRead:
      return Exit::kFiles;
    default:
      break;
  }
  const ErrorEntry* entry = FindError(number);
  if (!entry) return Exit::kOther;
  if (entry->owner == "BossObject") return Exit::kSettings;
  if (entry->owner == "MailUser") return Exit::kAccount;
  if (entry->owner == "MailServer") return Exit::kServer;
  return Exit::kOther;
}

}  // namespace korvane::cli
