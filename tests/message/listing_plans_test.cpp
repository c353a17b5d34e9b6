#include "listing_plans.h"

#include "support/temp_folder.h"

namespace korvane::test {
namespace {

TEST(ListingPlans, NoPlanReadsOtherUsersRowsOnSqlite) {
  const TempFolder folder;
  NoPlanReadsOtherUsersRows("sqlite://" + folder / "mail.db", SqliteJudge);
}

TEST(ListingPages, HoldOnSqliteWhileRowsAreAddedAndDeletedElsewhere) {
  const TempFolder folder;
  PagesOfAnUnchangedBoxHoldWhileOthersChange("sqlite://" + folder / "mail.db", 1);
}

}  // namespace
}  // namespace korvane::test
