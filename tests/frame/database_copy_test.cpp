#include "frame/database_copy_check.h"
#include "support/temp_folder.h"

namespace korvane::test {
namespace {

TEST(DatabaseCopy, IsWholeAndGoesOnWhereItWasBrokenOff) {
  const TempFolder folder;
  Engine from("sqlite://" + folder / "from.db");
  Engine to("odbc:Driver=SQLite3;Database=" + (folder / "to.db"));
  ACopyIsWholeAndGoesOnWhereItWasBrokenOff(from, to);
}

}  // namespace
}  // namespace korvane::test
