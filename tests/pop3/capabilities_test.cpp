// What a server says that it can do: asked over a connection of its own, whatever the server makes
// of the question.
#include "pop3/capabilities.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "support/hostile_input.h"
#include "support/scripted_server.h"

namespace korvane::test {
namespace {

bool Pipelining(std::string_view lines) { return ReadCapabilities(lines).pipelining; }

TEST(Capabilities, PipeliningStandsOnALineOfItsOwnAnywhereInTheReply) {
  for (const char* lines :
       {"PIPELINING\r\n.\r\n", "TOP\r\nPIPELINING\r\nUIDL\r\n.\r\n", "TOP\r\nPIPELINING\r\n.\r\n",
        "TOP\r\nPIPELINING\r\nPIPELINING\r\n.\r\n"}) {
    EXPECT_TRUE(Pipelining(lines)) << lines;
  }
}

TEST(Capabilities, TheNameIsTakenInAnyCase) {
  for (const char* lines : {"pipelining\r\n.\r\n", "Pipelining\r\n.\r\n", "pIPELINING\r\n.\r\n"}) {
    EXPECT_TRUE(Pipelining(lines)) << lines;
  }
}

TEST(Capabilities, ParametersBehindTheNameAreNoPartOfIt) {
  EXPECT_TRUE(Pipelining("PIPELINING 17\r\n.\r\n"));
  EXPECT_TRUE(Pipelining("PIPELINING\tyes\r\n.\r\n"));
}

TEST(Capabilities, ALineThatOnlyHoldsTheNameSomewhereIsAnotherCapability) {
  for (const char* lines :
       {"PIPELININGS\r\n.\r\n", "X-PIPELINING\r\n.\r\n", "PIPELINE\r\n.\r\n", "PIPELININ\r\n.\r\n",
        "IMPLEMENTATION PIPELINING\r\n.\r\n", " PIPELINING\r\n.\r\n", "NO PIPELINING\r\n.\r\n",
        ".PIPELINING\r\n.\r\n", "PIPELINING-1\r\n.\r\n"}) {
    EXPECT_FALSE(Pipelining(lines)) << lines;
  }
  EXPECT_FALSE(Pipelining({"PIPELINING\0\r\n.\r\n", 15}));
}

TEST(Capabilities, ALetterOfAnotherAlphabetIsNone) {
  // A dotted capital I, and the same name in full-width letters.
  EXPECT_FALSE(Pipelining("P\xC4\xB0PELINING\r\n.\r\n"));
  EXPECT_FALSE(Pipelining("\xEF\xBC\xB0IPELINING\r\n.\r\n"));
}

TEST(Capabilities, LinesThatEndWithLfAloneAreReadToo) {
  EXPECT_TRUE(Pipelining("TOP\nPIPELINING\nUIDL\n.\n"));
}

TEST(Capabilities, ALineWithoutItsEndCounts) {
  EXPECT_TRUE(Pipelining("TOP\r\nPIPELINING"));
  EXPECT_TRUE(Pipelining("PIPELINING\r"));
}

TEST(Capabilities, WhatStandsBehindTheDotDoesNotCount) {
  EXPECT_FALSE(Pipelining("TOP\r\n.\r\nPIPELINING\r\n.\r\n"));
}

TEST(Capabilities, AnEmptyReplyIsAnAnswerThatNamesNothing) {
  for (const char* lines : {"", ".\r\n", "\r\n.\r\n", "\n\n\n", "\r\r\r"}) {
    EXPECT_TRUE(ReadCapabilities(lines).known);
    EXPECT_FALSE(Pipelining(lines));
  }
}

TEST(Capabilities, AHostileReplyIsReadInLinearTime) {
  for (const char* piece : {"\n", "PIPELININ\n", "x", "\r", ". ", "PIPELINING"}) {
    const std::string lines = Repeated(piece, 2'000'000);
    EXPECT_LT(SecondsOf([&] { EXPECT_FALSE(Pipelining(lines)); }), kGenerousSeconds) << piece;
  }
}

/// A server that greets, hears CAPA and answers with what the test adds.
class Asked : public testing::Test {
 protected:
  Asked() { server.SayLine("+OK ready").Hear("CAPA"); }
  Capabilities Ask(int32_t timeout = 5000) {
    const Capabilities found = AskCapabilities("127.0.0.1", server.Start(), timeout);
    EXPECT_EQ(server.Finish(), "");
    return found;
  }
  ScriptedServer server;
};

TEST_F(Asked, TheServerIsAskedWithoutALoginAndTheConnectionEndsWithQuit) {
  server.Say("+OK\r\nTOP\r\nPIPELINING\r\n.\r\n").Hear("QUIT").SayLine("+OK bye");
  const Capabilities found = Ask();
  EXPECT_TRUE(found.known);
  EXPECT_TRUE(found.pipelining);
}

TEST_F(Asked, AServerThatNamesOtherThingsIsKnownNotToPipeline) {
  server.Say("+OK\r\nTOP\r\nUIDL\r\n.\r\n").Hear("QUIT").SayLine("+OK bye");
  const Capabilities found = Ask();
  EXPECT_TRUE(found.known);
  EXPECT_FALSE(found.pipelining);
}

TEST_F(Asked, AReplyThatComesByteByByteIsTheSame) {
  server.Drip("+OK\r\nPIPELINING\r\n.\r\n", 1).Hear("QUIT").SayLine("+OK bye");
  EXPECT_TRUE(Ask().pipelining);
}

TEST_F(Asked, AServerThatHangsUpInsteadOfAnsweringQuitHasAnswered) {
  server.Say("+OK\r\nPIPELINING\r\n.\r\n").Hear("QUIT").Close();
  EXPECT_TRUE(Ask().pipelining);
}

TEST_F(Asked, ARefusalIsNotKnownAndIsNotWaitedBehind) {
  server.SayLine("-ERR what?");
  EXPECT_LT(SecondsOf([&] { EXPECT_FALSE(Ask(60'000).known); }), kGenerousSeconds);
}

TEST_F(Asked, AReplyThatIsCutIsNotKnown) {
  server.Say("+OK\r\nPIPELINING\r\n").Close();
  EXPECT_FALSE(Ask().known);
}

TEST_F(Asked, AReplyWithoutItsDotIsNotKnown) {
  server.Say("+OK\r\nPIPELINING\r\n").Pause(300);
  EXPECT_FALSE(Ask(100).known);
}

TEST_F(Asked, AReplyWithoutAnEndIsGivenUp) {
  server.Say("+OK\r\n").SayOften(Repeated("X-MORE\r\n", 100'000), 1'000);
  EXPECT_LT(SecondsOf([&] { EXPECT_FALSE(Ask(60'000).known); }), kGenerousSeconds);
}

TEST_F(Asked, AReplyThatTricklesJustWithinTheTimeoutIsGivenUp) {
  server.Drip(std::string(60, '+'), 100);
  const auto begin = std::chrono::steady_clock::now();
  const int32_t port = server.Start();
  EXPECT_FALSE(AskCapabilities("127.0.0.1", port, 400).known);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
  server.Finish();
}

TEST(AskedNothing, AServerThatGreetsWithARefusalHearsNothing) {
  ScriptedServer server;
  server.SayLine("-ERR too many connections");
  EXPECT_FALSE(AskCapabilities("127.0.0.1", server.Start(), 5000).known);
  EXPECT_EQ(server.Finish(), "");
}

TEST(AskedNothing, AServerThatDoesNotGreetIsNotKnown) {
  ScriptedServer server;
  server.Pause(300);
  EXPECT_FALSE(AskCapabilities("127.0.0.1", server.Start(), 100).known);
  EXPECT_EQ(server.Finish(), "");
}

TEST(AskedNothing, AServerThatIsNotThereIsNotKnown) {
  ScriptedServer server;
  const int32_t port = server.Listen();
  server.Finish();
  EXPECT_FALSE(AskCapabilities("127.0.0.1", port, 1000).known);
}

TEST(AskedNothing, AHostWithANulIsNoHost) {
  ScriptedServer server;
  const int32_t port = server.Listen();
  EXPECT_FALSE(AskCapabilities(std::string("127.0.0.1\0.example", 18), port, 1000).known);
  EXPECT_FALSE(server.Visited());
}

TEST(AskedNothing, TheMarkOfReadingAheadDoesNotChangeTheQuestion) {
  ScriptedServer server;
  server.SayLine("+OK ready").Hear("CAPA").Say("+OK\r\nPIPELINING\r\n.\r\n");
  server.Hear("QUIT").SayLine("+OK bye");
  EXPECT_TRUE(AskCapabilities("pop3+ahead://127.0.0.1", server.Start(), 5000).pipelining);
  EXPECT_EQ(server.Finish(), "");
}

}  // namespace
}  // namespace korvane::test
