// One ODBC connection: runs statements whose parameters and cells are texts. Faults carry the
// numbers that ADO gives them.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "frame/driver.h"

namespace korvane::test {

using WideCell = std::optional<std::wstring>;

struct OdbcColumn {
  std::wstring name;
  short type = 0;  ///< as SQLDescribeCol gives it
};

struct OdbcParameter {
  WideCell value;
  short type = 0;  ///< of the column that it is for; 0 is a text
};

struct OdbcRows {
  std::vector<OdbcColumn> columns;
  std::vector<WideCell> cells;
  long long affected = 0;
  size_t Count() const { return columns.empty() ? 0 : cells.size() / columns.size(); }
};

class OdbcSession {
 public:
  explicit OdbcSession(const std::wstring& connection_string);
  OdbcSession(const OdbcSession&) = delete;
  OdbcSession& operator=(const OdbcSession&) = delete;
  ~OdbcSession();

  Dialect dialect() const { return dialect_; }
  OdbcRows Run(const std::wstring& statement, std::span<const OdbcParameter> parameters) const;
  /// The one column of the table's key; empty without one, or where it has several.
  std::wstring KeyOf(const std::wstring& table) const;

 private:
  void* environment_ = nullptr;
  void* connection_ = nullptr;
  Dialect dialect_ = Dialect::kSqlite;
};

}  // namespace korvane::test
