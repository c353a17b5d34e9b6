#include "frame/statement_translator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace korvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Example {
  const char* statement;
  const char* sqlite;
  const char* postgresql;
  const char* mariadb;
};

// A "?" in the columns of SQLite and MariaDB, a "$1" in that of PostgreSQL is a bound text.
constexpr Example kExamples[] = {
    {"SELECT MAX(id_mail) FROM mail", "SELECT MAX(id_mail) FROM mail",
     "SELECT MAX(id_mail) FROM mail", "SELECT MAX(id_mail) FROM mail"},
    {"SELECT COUNT(*) AS NumMail FROM mail WHERE id_utente=7 AND id_cartella=1AND Cancellata=0",
     "SELECT COUNT(*) AS NumMail FROM mail WHERE id_utente=7 AND id_cartella=1 AND Cancellata=0",
     "SELECT COUNT(*) AS NumMail FROM mail WHERE id_utente=7 AND id_cartella=1 AND "
     "Cancellata=FALSE",
     "SELECT COUNT(*) AS NumMail FROM mail WHERE id_utente=7 AND id_cartella=1 AND Cancellata=0"},
    {"SELECT TOP 20 * FROM mail ORDER BY Data DESC",
     "SELECT * FROM mail ORDER BY Data DESC LIMIT 20",
     "SELECT * FROM mail ORDER BY Data DESC LIMIT 20",
     "SELECT * FROM mail ORDER BY Data DESC LIMIT 20"},
    {"select top 1 id from t;", "select id from t LIMIT 1", "select id from t LIMIT 1",
     "select id from t LIMIT 1"},
    {"SELECT SUM(dimensione) FROM mail WHERE Cancellata=-1 AND body_scaricato<>-1",
     "SELECT SUM(dimensione) FROM mail WHERE Cancellata=-1 AND body_scaricato<>-1",
     "SELECT SUM(dimensione) FROM mail WHERE Cancellata=TRUE AND body_scaricato<>-1",
     "SELECT SUM(dimensione) FROM mail WHERE Cancellata=-1 AND body_scaricato<>-1"},
    {"UPDATE mail SET letto = -1, Error<>0", "UPDATE mail SET letto = -1, Error<>0",
     "UPDATE mail SET letto=TRUE, Error<>FALSE", "UPDATE mail SET letto = -1, Error<>0"},
    {"DELETE FROM mail WHERE Cancellata=-1OR mail.Letto=0OR dimensione=0",
     "DELETE FROM mail WHERE Cancellata=-1 OR mail.Letto=0 OR dimensione=0",
     "DELETE FROM mail WHERE Cancellata=TRUE OR mail.Letto=FALSE OR dimensione=0",
     "DELETE FROM mail WHERE Cancellata=-1 OR mail.Letto=0 OR dimensione=0"},
    {"SELECT * FROM mail WHERE a='x'AND b='l''ora'AND c=2",
     "SELECT * FROM mail WHERE a=? AND b=? AND c=2",
     "SELECT * FROM mail WHERE a=$1 AND b=$2 AND c=2",
     "SELECT * FROM mail WHERE a=? AND b=? AND c=2"},
    {"SELECT [Id mail], \"Nome\" FROM t", "SELECT \"Id mail\", \"Nome\" FROM t",
     "SELECT \"id mail\", \"nome\" FROM t", "SELECT \"Id mail\", \"Nome\" FROM t"},
    {"SELECT 5--3", "SELECT 5- -3", "SELECT 5- -3", "SELECT 5- -3"},
    {"SELECT 5/*3", "SELECT 5/ *3", "SELECT 5/ *3", "SELECT 5/ *3"},
    {"SELECT 1.5*2", "SELECT 1.5*2", "SELECT 1.5*2", "SELECT 1.5*2"},
    {" \t\r\nSELECT\t1 ", " SELECT 1", " SELECT 1", " SELECT 1"},
};

TEST(StatementTranslator, EachDialectGetsWhatItsEngineTakes) {
  for (const Example& example : kExamples) {
    const auto text = [&](Dialect dialect) {
      std::string translated = StatementTranslator(dialect).Translate(example.statement).text;
      return translated;
    };
    const auto trimmed = [](const char* expected) {
      return std::string(expected).substr(*expected == ' ' ? 1 : 0);
    };
    EXPECT_EQ(text(Dialect::kSqlite), trimmed(example.sqlite)) << example.statement;
    EXPECT_EQ(text(Dialect::kPostgresql), trimmed(example.postgresql)) << example.statement;
    EXPECT_EQ(text(Dialect::kMariadb), trimmed(example.mariadb)) << example.statement;
  }
}

std::vector<std::string> Literals(const BoundStatement& bound) {
  std::vector<std::string> literals;
  for (const Parameter& parameter : bound.parameters) literals.push_back(*parameter.value);
  return literals;
}

TEST(StatementTranslator, AQuotedTextIsBoundWhateverItHolds) {
  const StatementTranslator translator(Dialect::kMariadb);
  const auto bound = translator.Translate(
      "SELECT * FROM mail WHERE a='' AND b='''' AND c='\\' AND d='\\'' --' AND e='?$1;/*\"['");
  EXPECT_EQ(bound.text, "SELECT * FROM mail WHERE a=? AND b=? AND c=? AND d=? AND e=?");
  EXPECT_THAT(Literals(bound), ElementsAre("", "'", "\\", "\\' --", "?$1;/*\"["));
}

TEST(StatementTranslator, AQuotedTextIsCleanedAsAStoredOneIs) {
  const auto bound = StatementTranslator(Dialect::kPostgresql)
                         .Translate(std::string("SELECT 'a\0b', 'Citt\xE0'", 21));
  EXPECT_THAT(Literals(bound), ElementsAre("a b", "Citt\xC3\xA0"));
}

TEST(StatementTranslator, WhatTheDialectDoesNotHaveIsRefused) {
  for (const std::string statement : {"SELECT 'a",
                                      "SELECT 'a''",
                                      "SELECT [a",
                                      "SELECT \"a",
                                      "SELECT a; DELETE FROM mail",
                                      ";SELECT 1",
                                      "SELECT ?",
                                      "SELECT $1",
                                      "SELECT :a",
                                      "SELECT @a",
                                      "SELECT `a`",
                                      "SELECT a # b",
                                      "SELECT \\",
                                      "SELECT a\\'b",
                                      "SELECT \xC3\xA0",
                                      "SELECT {fn x}",
                                      "SELECT a | b",
                                      "SELECT ~a",
                                      "SELECT [a]]b]",
                                      "SELECT \"a\"\"b\"",
                                      "SELECT \"a'b\"",
                                      "SELECT [a\\b]",
                                      "SELECT []",
                                      "SELECT TOP 1.5 * FROM t",
                                      "SELECT TOP 99999999999999999999 * FROM t"}) {
    EXPECT_THROW(StatementTranslator(Dialect::kSqlite).Translate(statement), DatabaseError)
        << statement;
  }
  EXPECT_THROW(StatementTranslator(Dialect::kSqlite).Translate(std::string("SELECT 1\0", 9)),
               DatabaseError);
}

TEST(StatementTranslator, SemicolonsAtTheEndAreDropped) {
  EXPECT_EQ(StatementTranslator(Dialect::kSqlite).Translate("SELECT 1 ; ;").text, "SELECT 1");
}

TEST(StatementTranslator, AListingIsTakenApart) {
  const auto shape =
      StatementTranslator(Dialect::kSqlite)
          .TakeApart(
              "SELECT TOP 50 * FROM mail WHERE id_utente=7 AND a='x' ORDER BY mittente DESC, "
              "Data ASC, id_mail");
  ASSERT_TRUE(shape);
  EXPECT_EQ(shape->top, 50);
  EXPECT_THAT(shape->columns, IsEmpty());
  EXPECT_EQ(shape->table, "mail");
  EXPECT_EQ(shape->condition.text, "id_utente=7 AND a=?");
  EXPECT_THAT(Literals(shape->condition), ElementsAre("x"));
  ASSERT_EQ(shape->order.size(), 3u);
  EXPECT_EQ(shape->order[0].column, "mittente");
  EXPECT_TRUE(shape->order[0].descending);
  EXPECT_FALSE(shape->order[1].descending);
  EXPECT_FALSE(shape->order[2].descending);
}

TEST(StatementTranslator, ManyEqualitiesOfOneColumnAreJoined) {
  const auto condition = [](const std::string& text) {
    return StatementTranslator(Dialect::kSqlite)
        .TakeApart("SELECT * FROM mail WHERE " + text + " ORDER BY id_server")
        ->condition.text;
  };
  EXPECT_EQ(condition("id_mail = 12 OR id_mail = - 15OR ID_MAIL=7 OR id_mail =9"),
            "id_mail IN (12,-15,7,9)");
  for (const char* other :
       {"id_mail = 12", "id_mail = 12 OR id_utente = 15", "id_mail = 12 OR id_mail = 15 AND a = 1",
        "id_mail = 12 OR id_mail = 15 OR id_mail", "id_mail = 12 OR id_mail <> 15",
        "id_mail = 12 AND id_mail = 15"}) {
    EXPECT_EQ(condition(other), other);
  }
}

TEST(StatementTranslator, ColumnsAndNoOrderAreTakenApart) {
  const auto shape = StatementTranslator(Dialect::kSqlite)
                         .TakeApart("select dim_msg_canc_file, [id_utente] from Pulizia");
  ASSERT_TRUE(shape);
  EXPECT_FALSE(shape->top);
  EXPECT_THAT(shape->columns, ElementsAre("dim_msg_canc_file", "id_utente"));
  EXPECT_EQ(shape->table, "Pulizia");
  EXPECT_EQ(shape->condition.text, "");
  EXPECT_THAT(shape->order, IsEmpty());
}

TEST(StatementTranslator, WhatIsNoPlainListingIsNotTakenApart) {
  for (const char* statement : {"",
                                "mail",
                                "DELETE FROM mail",
                                "SELECT",
                                "SELECT *",
                                "SELECT * FROM",
                                "SELECT * FROM a, b",
                                "SELECT * FROM a b",
                                "SELECT * FROM a JOIN b",
                                "SELECT COUNT(*) FROM mail",
                                "SELECT DISTINCT a FROM mail",
                                "SELECT a+b FROM mail",
                                "SELECT a AS b FROM mail",
                                "SELECT a FROM mail GROUP BY a",
                                "SELECT a FROM mail UNION SELECT b FROM mail",
                                "SELECT a FROM mail WHERE",
                                "SELECT a FROM mail WHERE ORDER BY a",
                                "SELECT a FROM mail ORDER",
                                "SELECT a FROM mail ORDER BY",
                                "SELECT a FROM mail ORDER BY 1",
                                "SELECT a FROM mail ORDER BY a,",
                                "SELECT a FROM mail ORDER BY a b",
                                "SELECT a FROM mail ORDER BY a+1",
                                "SELECT * FROM (SELECT 1)",
                                "SELECT a FROM mail LIMIT 5"}) {
    EXPECT_FALSE(StatementTranslator(Dialect::kSqlite).TakeApart(statement)) << statement;
  }
}

TEST(StatementTranslator, AQueryIsNoBareTable) {
  EXPECT_EQ(StatementTranslator::BareTable("SELECT * FROM mail"), std::nullopt);
  EXPECT_EQ(StatementTranslator::BareTable(" \tselect*from mail"), std::nullopt);
  EXPECT_EQ(StatementTranslator::BareTable("selected"), "selected");
}

TEST(StatementTranslator, ATableAloneIsABareTable) {
  EXPECT_EQ(StatementTranslator::BareTable(" mail "), "mail");
  EXPECT_EQ(StatementTranslator::BareTable("[mail]"), "mail");
  EXPECT_EQ(StatementTranslator::BareTable("mail mail"), std::nullopt);
  EXPECT_EQ(StatementTranslator::BareTable("'mail'"), std::nullopt);
  EXPECT_EQ(StatementTranslator::BareTable(""), std::nullopt);
}

TEST(StatementTranslator, ACountByTheColumnsThatAreKeptAsksWhereTheyAreKept) {
  static constexpr std::string_view kColumns[] = {"id_utente", "id_cartella", "Cancellata"};
  constexpr CountTable kKept{"mail", kColumns, "counts", "number"};
  const StatementTranslator translator(Dialect::kSqlite);
  EXPECT_EQ(translator
                .TakeKeptCount("SELECT COUNT(*) AS NumMail FROM mail WHERE id_utente=7 AND "
                               "id_cartella=-1AND Cancellata=0",
                               kKept)
                ->text,
            "SELECT COALESCE(SUM(number),0) AS NumMail FROM counts WHERE id_utente=7 AND "
            "id_cartella=-1 AND Cancellata=0");
  for (const char* other :
       {"SELECT COUNT(*) FROM mail", "SELECT COUNT(*) FROM mail WHERE id_utente=7 OR id_cartella=1",
        "SELECT COUNT(*) FROM mail WHERE id_utente=7 AND Letto=0",
        "SELECT COUNT(*) FROM mail WHERE id_utente=7 AND",
        "SELECT COUNT(*) FROM t WHERE id_utente=7",
        "SELECT COUNT(*) FROM mail WHERE id_utente=7 GROUP BY id_cartella",
        "SELECT COUNT(id_mail) FROM mail WHERE id_utente=7",
        "SELECT COUNT(*) FROM mail WHERE id_utente='7'",
        "SELECT COUNT(*) FROM mail WHERE id_utente<>7",
        "SELECT COUNT(*), 1 FROM mail WHERE id_utente=7",
        "SELECT MAX(*) FROM mail WHERE id_utente=7"}) {
    EXPECT_FALSE(translator.TakeKeptCount(other, kKept)) << other;
  }
}

TEST(StatementTranslator, AHugeStatementTakesTimeInProportion) {
  std::string statement = "SELECT * FROM mail WHERE id_mail = 0";
  for (int i = 0; i < 200'000; ++i) statement += " OR id_mail = " + std::to_string(i);
  statement += " ORDER BY id_server";
  const auto shape = StatementTranslator(Dialect::kPostgresql).TakeApart(statement);
  ASSERT_TRUE(shape);
  EXPECT_EQ(shape->order.size(), 1u);
  EXPECT_THROW(
      StatementTranslator(Dialect::kSqlite).Translate("SELECT '" + std::string(4'000'000, '\'')),
      DatabaseError);
}

}  // namespace
}  // namespace korvane
