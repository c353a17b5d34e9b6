#include "message/row_text.h"

#include "frame/code_page.h"
#include "frame/sql_text.h"

namespace korvane {

std::string WithoutNuls(std::string_view text) {
  std::string clean(text);
  std::erase(clean, '\0');
  return clean;
}

std::string RowText(std::string_view text, size_t characters) {
  std::string doubled = DoubleQuotes(WithoutNuls(text));
  if (characters != 0) doubled.resize(CutCharacters(doubled, characters).size());
  return doubled;
}

std::string UndoubledQuotes(std::string_view text) {
  std::string single;
  single.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    single += text[i];
    if (text[i] == '\'' && i + 1 < text.size() && text[i + 1] == '\'') ++i;
  }
  return single;
}

}  // namespace korvane
