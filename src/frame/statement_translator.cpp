#include "frame/statement_translator.h"

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <span>

#include "frame/database_values.h"

namespace korvane {

namespace {

[[noreturn]] void Refuse(const std::string& what) {
  throw DatabaseError(DatabaseError::Kind::kOther, "statement: " + what);
}

bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool StartsWord(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }

/// From behind the opening quote to behind the closing one, which a doubled one is not.
std::string ReadQuoted(std::string_view statement, size_t& at, char close) {
  std::string text;
  while (true) {
    const size_t end = statement.find(close, at);
    if (end == std::string_view::npos) Refuse("a quoted text without an end");
    text.append(statement.substr(at, end - at));
    at = end + 1;
    if (at >= statement.size() || statement[at] != close) return text;
    text += close;
    ++at;
  }
}

bool IsWord(const Token& token, std::string_view word) {
  return token.kind == Token::Kind::kWord && SameName(token.text, word);
}
bool IsSymbol(const Token& token, char symbol) {
  return token.kind == Token::Kind::kSymbol && token.text[0] == symbol;
}
bool IsNaming(const Token& token) {
  return token.kind == Token::Kind::kWord || token.kind == Token::Kind::kName;
}

/// The columns that PostgreSQL holds as real booleans; the other engines hold 0 and -1.
bool IsBooleanColumn(const Token& token) {
  static constexpr std::string_view kBooleans[] = {"Letto", "allegati", "Cancellata",
                                                   "DwnldCorrettoFAQ", "Error"};
  return IsNaming(token) && std::ranges::any_of(kBooleans, [&](std::string_view name) {
           return SameName(token.text, name);
         });
}

/// True when a blank has to keep two tokens apart: 1AND, and the beginnings of comments.
bool NeedsBlank(const Token& left, const Token& right) {
  const auto joins = [](const Token& token) { return token.kind != Token::Kind::kSymbol; };
  if (joins(left) && joins(right)) return true;
  return (IsSymbol(left, '-') && IsSymbol(right, '-')) ||
         (IsSymbol(left, '/') && IsSymbol(right, '*'));
}

std::optional<int64_t> ReadTop(const std::vector<Token>& tokens, size_t& at) {
  if (at + 1 >= tokens.size() || !IsWord(tokens[at], "TOP") ||
      tokens[at + 1].kind != Token::Kind::kNumber) {
    return std::nullopt;
  }
  const std::string& digits = tokens[at + 1].text;
  int64_t top = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), top);
  if (error != std::errc() || end != digits.data() + digits.size()) {
    Refuse("TOP without a whole number");
  }
  at += 2;
  return top;
}

std::vector<Token> Slice(const std::vector<Token>& tokens, size_t from, size_t to) {
  return {tokens.begin() + static_cast<ptrdiff_t>(from),
          tokens.begin() + static_cast<ptrdiff_t>(to)};
}

/// "id = 1 OR id = 2 OR id = 3" as "id IN (1,2,3)": one engine takes no more than a thousand ORs.
std::vector<Token> JoinEqualities(std::vector<Token> tokens) {
  std::vector<Token> joined;
  size_t equalities = 0;
  size_t at = 0;
  while (true) {
    if (at + 2 >= tokens.size() || tokens[at].kind != Token::Kind::kWord ||
        !SameName(tokens[at].text, tokens[0].text) || !IsSymbol(tokens[at + 1], '=')) {
      return tokens;
    }
    at += 2;
    joined.push_back({Token::Kind::kSymbol, joined.empty() ? "(" : ",", joined.empty()});
    if (IsSymbol(tokens[at], '-'))
      joined.push_back({Token::Kind::kSymbol, tokens[at++].text, false});
    if (at >= tokens.size() || tokens[at].kind != Token::Kind::kNumber) return tokens;
    joined.push_back({Token::Kind::kNumber, tokens[at++].text, false});
    ++equalities;
    if (at == tokens.size()) break;
    if (!IsWord(tokens[at++], "OR")) return tokens;
  }
  if (equalities < 2) return tokens;
  joined.push_back({Token::Kind::kSymbol, ")", false});
  joined.insert(joined.begin(), {tokens[0], {Token::Kind::kWord, "IN", true}});
  return joined;
}

/// Whether the statement begins with these words, without taking it apart.
bool BeginsWith(std::string_view statement, std::initializer_list<std::string_view> words) {
  for (const std::string_view word : words) {
    while (!statement.empty() && IsBlank(statement.front())) statement.remove_prefix(1);
    if (!SameName(statement.substr(0, word.size()), word)) return false;
    statement.remove_prefix(word.size());
    if (!statement.empty() && (StartsWord(statement[0]) || IsDigit(statement[0]))) return false;
  }
  return true;
}

/// Position of a word outside of parentheses, or the end.
size_t FindClause(const std::vector<Token>& tokens, size_t from, std::string_view word) {
  int depth = 0;
  for (size_t i = from; i < tokens.size(); ++i) {
    if (IsSymbol(tokens[i], '(')) ++depth;
    if (IsSymbol(tokens[i], ')')) --depth;
    if (depth == 0 && IsWord(tokens[i], word)) return i;
  }
  return tokens.size();
}

}  // namespace

std::vector<Token> Tokenize(std::string_view statement) {
  static constexpr std::string_view kSymbols = "(),=<>+-*/.%;!";
  std::vector<Token> tokens;
  tokens.reserve(std::min<size_t>(statement.size() / 4, 64));
  size_t at = 0;
  while (true) {
    const size_t blanks = at;
    while (at < statement.size() && IsBlank(statement[at])) ++at;
    if (at == statement.size()) break;
    const bool spaced = at > blanks;
    const size_t begin = at;
    const char c = statement[at++];
    const auto take = [&](Token::Kind kind) {
      tokens.push_back({kind, std::string(statement.substr(begin, at - begin)), spaced});
    };
    if (IsDigit(c)) {
      while (at < statement.size() && IsDigit(statement[at])) ++at;
      if (at + 1 < statement.size() && statement[at] == '.' && IsDigit(statement[at + 1])) {
        do ++at;
        while (at < statement.size() && IsDigit(statement[at]));
      }
      take(Token::Kind::kNumber);
    } else if (StartsWord(c)) {
      while (at < statement.size() && (StartsWord(statement[at]) || IsDigit(statement[at]))) ++at;
      take(Token::Kind::kWord);
    } else if (c == '\'') {
      tokens.push_back({Token::Kind::kText, ReadQuoted(statement, at, '\''), spaced});
    } else if (c == '"' || c == '[') {
      std::string name = ReadQuoted(statement, at, c == '[' ? ']' : '"');
      const bool plain = !name.empty() && std::ranges::all_of(name, [](char part) {
        return StartsWord(part) || IsDigit(part) || part == ' ';
      });
      if (!plain) Refuse("a quoted name with more than letters, digits and blanks");
      tokens.push_back({Token::Kind::kName, std::move(name), spaced});
    } else if (kSymbols.find(c) != std::string_view::npos) {
      take(Token::Kind::kSymbol);
    } else {
      Refuse("a character that has no meaning outside quotes");
    }
  }
  while (!tokens.empty() && IsSymbol(tokens.back(), ';')) tokens.pop_back();
  for (const Token& token : tokens) {
    if (IsSymbol(token, ';')) Refuse("more than one");
  }
  return tokens;
}

std::string StatementTranslator::Placeholder(size_t number) const {
  return numbers_parameters_ ? "$" + std::to_string(number) : "?";
}

BoundStatement StatementTranslator::PutTogether(const std::vector<Token>& tokens) const {
  BoundStatement bound;
  for (size_t i = 0; i < tokens.size(); ++i) {
    const Token& token = tokens[i];
    if (i > 0 && (token.spaced || NeedsBlank(tokens[i - 1], token))) bound.text += ' ';
    switch (token.kind) {
      case Token::Kind::kText:
        bound.parameters.push_back({ColumnKind::kText, StorableText(token.text)});
        bound.text += Placeholder(bound.parameters.size());
        break;
      case Token::Kind::kName:
        bound.text += '"';
        // The schema's names are lower-case there, which is how the engine reads unquoted ones.
        bound.text += dialect_ == Dialect::kPostgresql ? LowerName(token.text) : token.text;
        bound.text += '"';
        break;
      case Token::Kind::kWord:
      case Token::Kind::kNumber:
      case Token::Kind::kSymbol:
        bound.text += token.text;
        break;
    }
    if (dialect_ != Dialect::kPostgresql || !IsBooleanColumn(token)) continue;
    // Cancellata=0, Cancellata=-1, Cancellata<>0
    size_t next = i + 1;
    std::string comparison;
    while (next < tokens.size() && (IsSymbol(tokens[next], '=') || IsSymbol(tokens[next], '<') ||
                                    IsSymbol(tokens[next], '>'))) {
      comparison += tokens[next++].text;
    }
    if (comparison != "=" && comparison != "<>") continue;
    if (next < tokens.size() && IsSymbol(tokens[next], '-')) ++next;
    if (next >= tokens.size() || (tokens[next].text != "0" && tokens[next].text != "1") ||
        tokens[next].kind != Token::Kind::kNumber) {
      continue;
    }
    bound.text += comparison + (tokens[next].text == "0" ? "FALSE" : "TRUE");
    i = next;
  }
  return bound;
}

BoundStatement StatementTranslator::Translate(std::string_view statement) const {
  std::vector<Token> tokens = Tokenize(statement);
  std::optional<int64_t> top;
  if (!tokens.empty() && IsWord(tokens[0], "SELECT")) {
    size_t behind = 1;
    top = ReadTop(tokens, behind);
    tokens.erase(tokens.begin() + 1, tokens.begin() + static_cast<ptrdiff_t>(behind));
  }
  BoundStatement bound = PutTogether(tokens);
  if (top) bound.text += " LIMIT " + std::to_string(*top);
  return bound;
}

std::optional<BoundStatement> StatementTranslator::TakeKeptCount(std::string_view statement,
                                                                 const CountTable& kept) const {
  if (!BeginsWith(statement, {"SELECT", "COUNT"})) return std::nullopt;
  std::vector<Token> tokens = Tokenize(statement);
  size_t at = 0;
  const auto next_is = [&](auto&& matches) {
    return at < tokens.size() && matches(tokens[at]) && ++at > 0;
  };
  const auto word = [](std::string_view text) {
    return [text](const Token& token) { return IsWord(token, text); };
  };
  const auto symbol = [](char c) { return [c](const Token& token) { return IsSymbol(token, c); }; };

  if (!next_is(word("SELECT")) || !next_is(word("COUNT")) || !next_is(symbol('(')) ||
      !next_is(symbol('*')) || !next_is(symbol(')'))) {
    return std::nullopt;
  }
  const size_t behind_count = at;
  if (next_is(word("AS")) && !next_is(IsNaming)) return std::nullopt;
  if (!next_is(word("FROM")) || !next_is(word(kept.table))) return std::nullopt;
  const size_t table = at - 1;
  if (!next_is(word("WHERE"))) return std::nullopt;
  do {
    const auto counted = [&](const Token& token) {
      return std::ranges::any_of(kept.columns,
                                 [&](std::string_view name) { return IsWord(token, name); });
    };
    const auto number = [](const Token& token) { return token.kind == Token::Kind::kNumber; };
    if (!next_is(counted) || !next_is(symbol('='))) return std::nullopt;
    next_is(symbol('-'));
    if (!next_is(number)) return std::nullopt;
  } while (next_is(word("AND")));
  if (at != tokens.size()) return std::nullopt;

  tokens[table].text = kept.counts;
  BoundStatement rest = PutTogether(Slice(tokens, behind_count, tokens.size()));
  rest.text = "SELECT COALESCE(SUM(" + std::string(kept.number) + "),0) " + rest.text;
  return rest;
}

std::optional<std::string> StatementTranslator::BareTable(std::string_view statement) {
  if (BeginsWith(statement, {"SELECT"})) return std::nullopt;
  const std::vector<Token> tokens = Tokenize(statement);
  if (tokens.size() != 1 || !IsNaming(tokens[0])) return std::nullopt;
  return tokens[0].text;
}

std::optional<SelectShape> StatementTranslator::TakeApart(std::string_view statement) const {
  const std::vector<Token> tokens = Tokenize(statement);
  if (tokens.empty() || !IsWord(tokens[0], "SELECT")) return std::nullopt;
  SelectShape shape;
  size_t at = 1;
  shape.top = ReadTop(tokens, at);

  if (at < tokens.size() && IsSymbol(tokens[at], '*')) {
    ++at;
  } else {
    while (at < tokens.size() && IsNaming(tokens[at]) && !IsWord(tokens[at], "DISTINCT")) {
      shape.columns.push_back(tokens[at++].text);
      if (at >= tokens.size() || !IsSymbol(tokens[at], ',')) break;
      ++at;
    }
    if (shape.columns.empty()) return std::nullopt;
  }
  if (at + 1 >= tokens.size() || !IsWord(tokens[at], "FROM") || !IsNaming(tokens[at + 1])) {
    return std::nullopt;
  }
  shape.table = tokens[at + 1].text;
  at += 2;

  for (const char* other : {"GROUP", "HAVING", "UNION", "EXCEPT", "INTERSECT", "LIMIT"}) {
    if (FindClause(tokens, at, other) != tokens.size()) return std::nullopt;
  }
  const size_t order = FindClause(tokens, at, "ORDER");
  if (at < tokens.size() && IsWord(tokens[at], "WHERE")) {
    if (order == at + 1) return std::nullopt;
    shape.condition = PutTogether(JoinEqualities(Slice(tokens, at + 1, order)));
  } else if (at != order) {
    return std::nullopt;
  }
  at = order;
  if (at == tokens.size()) return shape;
  if (at + 1 >= tokens.size() || !IsWord(tokens[at + 1], "BY")) return std::nullopt;
  at += 2;
  while (true) {
    if (at >= tokens.size() || !IsNaming(tokens[at])) return std::nullopt;
    SelectShape::Term term{tokens[at++].text, false};
    if (at < tokens.size() && (IsWord(tokens[at], "ASC") || IsWord(tokens[at], "DESC"))) {
      term.descending = IsWord(tokens[at++], "DESC");
    }
    shape.order.push_back(std::move(term));
    if (at == tokens.size()) return shape;
    if (!IsSymbol(tokens[at], ',')) return std::nullopt;
    ++at;
  }
}

}  // namespace korvane
