// The plans and the pages of listings on the servers, and pages of more sizes.
#include "listing_plans.h"

#include "support/mariadb_server.h"
#include "support/postgres_server.h"
#include "support/temp_folder.h"

namespace korvane::test {
namespace {

TEST(ListingPlans, NoPlanReadsOtherUsersRowsOnPostgresql) {
  PostgresServer server;
  NoPlanReadsOtherUsersRows(server.MakeDatabase("mail"), PostgresqlJudge);
}

TEST(ListingPlans, NoPlanReadsOtherUsersRowsOnMariadb) {
  MariadbServer server;
  NoPlanReadsOtherUsersRows(server.MakeDatabase("mail"), MariadbJudge);
}

TEST(ListingPlans, NoPlanReadsOtherUsersRowsOnSqliteThroughOdbc) {
  const TempFolder folder;
  NoPlanReadsOtherUsersRows("odbc:Driver=SQLite3;Database=" + folder / "mail.db", SqliteJudge);
}

TEST(ListingPlans, NoPlanReadsOtherUsersRowsOnPostgresqlThroughOdbc) {
  PostgresServer server;
  server.MakeDatabase("mail");
  NoPlanReadsOtherUsersRows(server.OdbcUrl("mail"), PostgresqlJudge);
}

TEST(ListingPlans, NoPlanReadsOtherUsersRowsOnMariadbThroughOdbc) {
  MariadbServer server;
  server.MakeDatabase("mail");
  NoPlanReadsOtherUsersRows(server.OdbcUrl("mail"), MariadbJudge);
}

TEST(ListingPages, HoldOnPostgresqlWhileRowsAreAddedAndDeletedElsewhere) {
  PostgresServer server;
  PagesOfAnUnchangedBoxHoldWhileOthersChange(server.MakeDatabase("mail"), 3);
}

TEST(ListingPages, HoldOnMariadbWhileRowsAreAddedAndDeletedElsewhere) {
  MariadbServer server;
  PagesOfAnUnchangedBoxHoldWhileOthersChange(server.MakeDatabase("mail"), 3);
}

TEST(ListingPages, HoldOnSqliteWhileRowsAreAddedAndDeletedElsewhere) {
  const TempFolder folder;
  PagesOfAnUnchangedBoxHoldWhileOthersChange("sqlite://" + folder / "mail.db", 5);
}

TEST(ListingPages, HoldOnSqliteThroughOdbcWhileRowsAreAddedAndDeletedElsewhere) {
  const TempFolder folder;
  PagesOfAnUnchangedBoxHoldWhileOthersChange("odbc:Driver=SQLite3;Database=" + folder / "mail.db",
                                             2);
}

TEST(ListingPages, HoldOnPostgresqlThroughOdbcWhileRowsAreAddedAndDeletedElsewhere) {
  PostgresServer server;
  server.MakeDatabase("mail");
  PagesOfAnUnchangedBoxHoldWhileOthersChange(server.OdbcUrl("mail"), 2);
}

TEST(ListingPages, HoldOnMariadbThroughOdbcWhileRowsAreAddedAndDeletedElsewhere) {
  MariadbServer server;
  server.MakeDatabase("mail");
  PagesOfAnUnchangedBoxHoldWhileOthersChange(server.OdbcUrl("mail"), 2);
}

}  // namespace
}  // namespace korvane::test
