// A table of texts, sized to the terminal.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace korvane::cli {

class Table {
 public:
  struct Column {
    std::string title;
    bool right = false;  ///< numbers stand at the right
    size_t least = 0;    ///< a column that may give way: down to this width; 0: it never does
    size_t most = 0;     ///< never wider than this; 0: as wide as its widest cell
  };
  explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

  /// One cell a column; they are made printable here.
  void AddRow(std::vector<std::string> cells);
  void Print(std::ostream& out, size_t width) const;

 private:
  std::vector<size_t> Widths(size_t width) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace korvane::cli
