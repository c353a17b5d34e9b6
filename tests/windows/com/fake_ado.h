// A database connection of a page's making, shaped as ADO's is: it says what it was asked, and does
// what a test wants, also what no database would.
#pragma once

#include <oaidl.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace korvane::test {

struct FakeDatabase {
  std::vector<std::string> log;            ///< each call: "Execute SELECT ...", "EOF", "Value data"
  int rows = 1;                            ///< how many a recordset has
  std::map<std::string, VARIANT> row;      ///< what each of them holds; the texts are the test's
  std::map<std::string, VARIANT> written;  ///< what was assigned last, as it was passed
  /// A call that begins with this fails with that.
  std::string fails_at;
  HRESULT fails_with = E_FAIL;
  std::string fails_saying = "made to fail";
  /// Called at each call.
  std::function<void(const std::string& call)> at;
  bool Was(const std::string& call) const;
};

/// The caller's reference. The database has to outlive what is made of it.
IDispatch* NewFakeConnection(FakeDatabase& database);
/// Objects of these that are alive.
long FakesAlive();

/// While it lives, "ADODB.Recordset" makes recordsets of this database.
class FakeRecordsets {
 public:
  explicit FakeRecordsets(FakeDatabase& database);
  FakeRecordsets(const FakeRecordsets&) = delete;
  FakeRecordsets& operator=(const FakeRecordsets&) = delete;
  ~FakeRecordsets();

 private:
  DWORD registered_ = 0;
  std::wstring before_;
};

}  // namespace korvane::test
