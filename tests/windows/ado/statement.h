// A statement text as the database behind ODBC takes it.
#pragma once

#include <string>
#include <vector>

#include "odbc_session.h"

namespace korvane::test {

struct OdbcStatement {
  std::wstring text;
  std::vector<OdbcParameter> parameters;
  std::wstring table;  ///< the one table of a plain query; empty otherwise
};

/// Throws a Fault for a text that the dialect of the statements does not have.
OdbcStatement Translated(const std::wstring& statement, Dialect dialect);

}  // namespace korvane::test
