// From the system's statement texts to what an engine takes.
//
// The statements are written in one dialect: "SELECT TOP n", booleans compared with 0 and -1, texts
// between single quotes, and a number that may run into the word behind it ("id_cartella=1AND").
// The translator takes a statement apart into tokens and puts it together again; every quoted text
// becomes a bound parameter, so that nothing in it can reach the engine as SQL. It refuses what the
// dialect does not have: a second statement, a comment, a placeholder, a quote that does not end.
//
// It does not check that a statement makes sense; that is left to the engine.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "driver.h"

namespace korvane {

struct Token {
  enum class Kind { kWord, kNumber, kText, kName, kSymbol };
  Kind kind;
  std::string text;  ///< of a quoted text or name: what the quotes hold
  bool spaced;       ///< blanks stand in front of it
};

/// Throws DatabaseError when the statement holds anything that the dialect does not have.
std::vector<Token> Tokenize(std::string_view statement);

struct BoundStatement {
  std::string text;
  std::vector<Parameter> parameters;
};

/// "SELECT [TOP n] columns FROM table [WHERE condition] [ORDER BY terms]" taken apart.
struct SelectShape {
  struct Term {
    std::string column;
    bool descending = false;
  };
  std::optional<int64_t> top;
  std::vector<std::string> columns;  ///< none is all of them
  std::string table;
  BoundStatement condition;  ///< empty without WHERE
  std::vector<Term> order;
};

/// A table that keeps how many rows of another have the same values in some columns.
struct CountTable {
  std::string_view table;  ///< whose rows are counted
  std::span<const std::string_view> columns;
  std::string_view counts;  ///< where their numbers are
  std::string_view number;  ///< in this column
};

class StatementTranslator {
 public:
  explicit StatementTranslator(Dialect dialect)
      : StatementTranslator(dialect, dialect == Dialect::kPostgresql) {}
  /// Parameters are numbered ($1) or question marks, as the client library takes them.
  StatementTranslator(Dialect dialect, bool numbers_parameters)
      : dialect_(dialect), numbers_parameters_(numbers_parameters) {}

  /// The whole statement.
  BoundStatement Translate(std::string_view statement) const;
  /// Nothing when the statement is no query of that shape: a join, a grouping, an expression.
  std::optional<SelectShape> TakeApart(std::string_view statement) const;
  /// A count of rows by nothing but the columns whose numbers are kept ("SELECT COUNT(*) AS NumMail
  /// FROM mail WHERE id_utente=7 AND id_cartella=1AND Cancellata=0") asked of the table that keeps
  /// them; nothing for any other statement.
  std::optional<BoundStatement> TakeKeptCount(std::string_view statement,
                                              const CountTable& kept) const;
  /// The table's name when the statement is nothing but one.
  static std::optional<std::string> BareTable(std::string_view statement);

  /// The placeholder of parameter `number`, counted from 1.
  std::string Placeholder(size_t number) const;

 private:
  BoundStatement PutTogether(const std::vector<Token>& tokens) const;

  Dialect dialect_;
  bool numbers_parameters_;
};

}  // namespace korvane
