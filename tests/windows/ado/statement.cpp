#include "statement.h"

#include "ado_errors.h"
#include "frame/statement_translator.h"
#include "support/variant.h"

namespace korvane::test {

namespace {

/// ODBC writes every placeholder as "?". The texts are parameters, so a "$" is always one.
std::wstring WithMarks(const std::string& text) {
  std::string marked;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '$') {
      marked += text[i];
      continue;
    }
    marked += '?';
    while (i + 1 < text.size() && text[i + 1] >= '0' && text[i + 1] <= '9') ++i;
  }
  return ToWide(marked);
}

}  // namespace

OdbcStatement Translated(const std::wstring& statement, Dialect dialect) {
  try {
    const StatementTranslator translator(dialect);
    const std::string text = ToUtf8(statement);
    if (const auto table = StatementTranslator::BareTable(text)) {
      return {L"SELECT * FROM " + ToWide(*table), {}, ToWide(*table)};
    }
    const BoundStatement bound = translator.Translate(text);
    OdbcStatement translated{WithMarks(bound.text), {}, L""};
    for (const Parameter& parameter : bound.parameters) {
      translated.parameters.push_back({ToWide(parameter.value.value_or("")), 0});
    }
    if (const auto shape = translator.TakeApart(text)) translated.table = ToWide(shape->table);
    return translated;
  } catch (const DatabaseError& fault) {
    throw Fault{kErrorInCommand, ToWide(fault.what())};
  }
}

}  // namespace korvane::test
