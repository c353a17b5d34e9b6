// How much of the message file is dead, and compacting it now.
#include "box_rows.h"
#include "maintenance/cleaner.h"
#include "page.h"
#include "pages.h"

namespace korvane::site {

void ShowMaintenance(Visit& visit) {
  const auto database = visit.site.mail.Database();
  const DeadBytes bytes = CountDeadBytes(*database, visit.user());
  Page page(visit, "Maintenance", "maintenance");
  page.Set("DEAD", SizeText(bytes.dead));
  page.Set("LIVE", SizeText(bytes.live));
  page.Set("THRESHOLD", SizeText(kCompactionThreshold));
  const int64_t all = bytes.dead + bytes.live;
  page.Set("PERCENT", all > 0 ? bytes.dead * 100 / all : 0);
  page.ShowIf(bytes.dead > kCompactionThreshold, "WORTH_IT");
  page.ShowIf(bytes.dead <= kCompactionThreshold, "NOT_WORTH_IT");
  page.Answer();
}

void CompactNow(Visit& visit) {
  const auto lock = visit.site.mail.LockUser(visit.user());
  const auto mail = visit.site.mail.Open(visit.user());
  // The count of dead bytes is never set back, so the rows decide whether there is anything to do.
  if (CountDeadBytes(*mail->database, visit.user()).dead <= kCompactionThreshold) {
    visit.Tell("Less than " + SizeText(kCompactionThreshold) +
               " of the store is dead: there is nothing worth compacting.");
  } else if (mail->web.BackgroundClean()) {
    visit.Tell("The store was compacted. Deleted messages can no longer be brought back.");
  } else {
    visit.TellFault(FaultText(mail->web.GetLastError(), mail->web.GetLastErrorDesc()));
  }
  visit.GoTo("/maintenance");
}

}  // namespace korvane::site
