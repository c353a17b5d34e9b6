// An ODBC connection string taken apart: "Driver=SQLite3;Database={/path/mail.db};PWD=…". A value
// in braces holds anything, a closing brace in it doubled.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace korvane {

class OdbcString {
 public:
  /// Throws DatabaseError, without the string in its text.
  explicit OdbcString(std::string_view text);

  /// The value of a name in any case, without its braces; nothing is an empty one. The first one of
  /// a name counts.
  std::string Value(std::string_view name) const;
  /// Where the string ends and a URL's options begin: at the first "?" outside braces.
  static size_t End(std::string_view text);

 private:
  std::vector<std::pair<std::string, std::string>> values_;
};

}  // namespace korvane
