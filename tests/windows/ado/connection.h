// "ADODB.Connection" of the tests.
#pragma once

#include <memory>

#include "odbc_session.h"
#include "support/late_bound.h"

namespace korvane::test {

class AdoConnection : public LateBound {
 public:
  AdoConnection();
  /// What a script holds, when it is one of these; nullptr otherwise.
  static AdoConnection* From(const Variant& value);
  /// Throws where it is not open. The session outlives the connection where recordsets use it.
  std::shared_ptr<OdbcSession> session() const;

  STDMETHOD(QueryInterface)(REFIID iid, void** object) override;

 private:
  Variant Do(DISPID member, Use use, const Arguments& arguments) override;
  void Asked(const wchar_t* name) override;
  Variant Execute(const Arguments& arguments);

  std::shared_ptr<OdbcSession> session_;
  std::wstring connection_string_;
  std::wstring asked_;
  LONG cursor_location_ = 2;
};

}  // namespace korvane::test
