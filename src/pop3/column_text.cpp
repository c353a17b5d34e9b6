#include "pop3/column_text.h"

#include "frame/code_page.h"
#include "frame/sql_text.h"

namespace korvane {

std::string ColumnText(std::string_view text, size_t characters) {
  const std::string doubled = DoubleQuotes(text);
  return std::string(CutCharacters(doubled, characters));
}

std::string UndoDoubledQuotes(std::string_view text) {
  std::string undone;
  undone.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    undone += text[i];
    if (text[i] == '\'' && i + 1 < text.size() && text[i + 1] == '\'') ++i;
  }
  return undone;
}

}  // namespace korvane
