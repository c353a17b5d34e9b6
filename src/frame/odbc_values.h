// Values on their way through ODBC: parameters to a statement, and its rows back. Texts cross as
// UTF-16, the one encoding that every driver understands the same way whatever the locale of the
// process. What a failure means is the driver's to find out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "driver.h"

namespace korvane {

/// What the parameters of one statement point at while it runs.
class OdbcParameters {
 public:
  explicit OdbcParameters(size_t count)
      : texts_(count), bytes_(count), numbers_(count), lengths_(count) {}
  /// Binds the parameter at `index` (from 0) of a prepared statement.
  bool Bind(void* statement, size_t index, const Parameter& parameter, Dialect dialect);

 private:
  std::vector<std::u16string> texts_;
  std::vector<std::string> bytes_;
  std::vector<int64_t> numbers_;
  std::vector<std::intptr_t> lengths_;
};

/// Reads the rows of statements that ran, one statement after the other.
class OdbcRowReader {
 public:
  bool Take(void* statement, int16_t columns, Dialect dialect, Rows& rows);

 private:
  bool ReadText(void* statement, uint16_t number, Cell& cell);

  std::vector<char16_t> buffer_ = std::vector<char16_t>(16'384);
};

}  // namespace korvane
