#include "cli/table.h"

#include <algorithm>

#include "cli/terminal_text.h"

namespace korvane::cli {
namespace {

constexpr size_t kGap = 2;

}  // namespace

void Table::AddRow(std::vector<std::string> cells) {
  for (std::string& cell : cells) cell = Printable(cell);
  cells.resize(columns_.size());
  rows_.push_back(std::move(cells));
}

std::vector<size_t> Table::Widths(size_t width) const {
  std::vector<size_t> widths;
  size_t total = 0;
  for (size_t i = 0; i < columns_.size(); ++i) {
    size_t widest = DisplayWidth(columns_[i].title);
    for (const auto& row : rows_) widest = std::max(widest, DisplayWidth(row[i]));
    if (columns_[i].most > 0) widest = std::min(widest, columns_[i].most);
    widths.push_back(widest);
    total += widest + (i > 0 ? kGap : 0);
  }
  // The widest of the columns that may give way gives way first.
  while (total > width) {
    size_t* widest = nullptr;
    for (size_t i = 0; i < columns_.size(); ++i) {
      if (columns_[i].least > 0 && widths[i] > columns_[i].least &&
          (!widest || widths[i] > *widest)) {
        widest = &widths[i];
      }
    }
    if (!widest) break;
    --*widest;
    --total;
  }
  return widths;
}

void Table::Print(std::ostream& out, size_t width) const {
  const std::vector<size_t> widths = Widths(width);
  const auto print = [&](const auto& cell_of) {
    std::string line;
    for (size_t i = 0; i < columns_.size(); ++i) {
      if (i > 0) line.append(kGap, ' ');
      line += Fit(cell_of(i), widths[i], columns_[i].right);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << "\n";
  };
  print([&](size_t i) -> const std::string& { return columns_[i].title; });
  for (const auto& row : rows_) {
    print([&](size_t i) -> const std::string& { return row[i]; });
  }
}

}  // namespace korvane::cli
