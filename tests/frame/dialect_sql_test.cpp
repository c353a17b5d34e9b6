// The scripts of the schemas, statement by statement.
#include "frame/dialect_sql.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "frame/schema_texts.h"

namespace korvane {
namespace {

using testing::ElementsAre;

TEST(ScriptStatements, EndAtASemicolonAtTheEndOfALine) {
  EXPECT_THAT(ScriptStatements("A;\nB 'x;y';\n\nC"), ElementsAre("A", "B 'x;y'", "C"));
  EXPECT_THAT(ScriptStatements(""), ElementsAre());
  EXPECT_THAT(ScriptStatements("-- only a comment;\n"), ElementsAre());
  EXPECT_THAT(ScriptStatements("-- first;\n\n-- second\nA\n  b;\n"), ElementsAre("A\n  b"));
}

TEST(ScriptStatements, ATriggerIsOneStatement) {
  EXPECT_THAT(ScriptStatements("CREATE TRIGGER t\nBEGIN\n  A;\n  B;\nEND;\nC;\n"),
              ElementsAre("CREATE TRIGGER t\nBEGIN\n  A;\n  B;\nEND", "C"));
}

TEST(ScriptStatements, AFunctionIsOneStatement) {
  EXPECT_THAT(ScriptStatements("CREATE OR REPLACE FUNCTION f AS $$\nBEGIN\n  A;\nEND;\n$$;\nC;\n"),
              ElementsAre("CREATE OR REPLACE FUNCTION f AS $$\nBEGIN\n  A;\nEND;\n$$", "C"));
}

TEST(ScriptStatements, EveryStatementOfTheSchemasBeginsWithAWordOfItsOwn) {
  for (const char* schema : {kSqliteSchema, kPostgresqlSchema, kMariadbSchema}) {
    const auto statements = ScriptStatements(schema);
    EXPECT_GT(statements.size(), 20u);
    for (const std::string& statement : statements) {
      EXPECT_THAT(statement.substr(0, statement.find_first_of(" ;")),
                  testing::AnyOf("ALTER", "BEGIN", "COMMIT", "CREATE", "DROP", "INSERT", "LOCK",
                                 "SET", "UNLOCK"))
          << statement;
    }
  }
}

}  // namespace
}  // namespace korvane
