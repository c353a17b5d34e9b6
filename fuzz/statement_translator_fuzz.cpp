// The statement translator on any bytes: whatever it lets through holds no quote, no comment, no
// second statement and as many placeholders as parameters; and any text between quotes, doubled as
// the system doubles it, becomes exactly one parameter and changes nothing else.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "frame/database_values.h"
#include "frame/sql_text.h"
#include "frame/statement_translator.h"

using namespace korvane;

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

/// The placeholders as words, so that the text can be taken into tokens again.
std::string WithoutPlaceholders(const BoundStatement& bound, size_t& placeholders) {
  std::string text;
  for (size_t i = 0; i < bound.text.size(); ++i) {
    if (bound.text[i] != '?' && bound.text[i] != '$') {
      text += bound.text[i];
      continue;
    }
    ++placeholders;
    text += "bound";  // the digits of "$1" become part of the word
  }
  return text;
}

void Check(const BoundStatement& bound) {
  for (const std::string_view forbidden : {"'", "--", "/*", ";", "#", "\\", "`", "["}) {
    Require(bound.text.find(forbidden) == std::string::npos);
  }
  Require(bound.text.find('\0') == std::string::npos);
  size_t placeholders = 0;
  const std::string text = WithoutPlaceholders(bound, placeholders);
  Require(placeholders == bound.parameters.size());
  for (const Token& token : Tokenize(text)) Require(token.kind != Token::Kind::kText);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  for (const Dialect dialect : {Dialect::kSqlite, Dialect::kPostgresql, Dialect::kMariadb}) {
    const StatementTranslator translator(dialect);
    try {
      Check(translator.Translate(input));
      if (const auto shape = translator.TakeApart(input)) Check(shape->condition);
    } catch (const DatabaseError&) {
      // Refused: nothing reaches an engine.
    }
    const std::string before = "SELECT * FROM mail WHERE campo_received='";
    const std::string behind = "' AND Cancellata=0";
    const BoundStatement quoted = translator.Translate(before + DoubleQuotes(input) + behind);
    Require(quoted.text == translator.Translate(before + behind).text);
    Require(quoted.parameters.size() == 1);
    Require(quoted.parameters[0].value == StorableText(input));
  }
  return 0;
}
