// Every step of the session against everything that may happen in it: what comes after, which error
// it leaves, and that nothing hangs.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "frame/error_numbers.h"
#include "pop3/session_fixture.h"

namespace korvane::test {
namespace {

using State = MailServer::State;
using Command = MailServer::Command;

constexpr int32_t kTimeout = 200;

enum class Event {
  kPositive,
  kPositiveByteByByte,
  kPositiveLfAlone,
  kPositiveWithSurplus,
  kNegative,
  kGarbage,
  kNuls,
  kPartThenSilence,
  kPartThenEnd,
  kNegativePartThenSilence,
  kEnd,
  kSilence,
  kHugeLine,
};
constexpr Event kEvents[] = {Event::kPositive,
                             Event::kPositiveByteByByte,
                             Event::kPositiveLfAlone,
                             Event::kPositiveWithSurplus,
                             Event::kNegative,
                             Event::kGarbage,
                             Event::kNuls,
                             Event::kPartThenSilence,
                             Event::kPartThenEnd,
                             Event::kNegativePartThenSilence,
                             Event::kEnd,
                             Event::kSilence,
                             Event::kHugeLine};

/// One step: how to get there, what a positive reply is, and how the server goes on after one.
struct Step {
  const char* name;
  State state;
  std::string positive;        ///< without its line end
  std::string text;            ///< what follows the positive line
  int32_t refusal;             ///< the number of a negative reply
  State after = State::kIdle;  ///< after a positive reply and what follows it
};

const Step kGreeting{"greeting", State::kNotConnected, "+OK ready", "", 0};
const Step kMultiLine{"multi-line", State::kMultiLine, "ect: x", "\r\n.\r\n", 0};
const std::vector<Step>& Steps() {
  static const std::vector<Step> steps = {
      kGreeting,
      {"USER", State::kUser, "+OK", "", error::ServerRefusedUser},
      {"PASS", State::kPass, "+OK", "", error::ServerRefusedPassword},
      {"STAT", State::kStat, "+OK 3 1200", "", error::ServerRefusedStat},
      {"LIST", State::kList, "+OK 1 100", "", error::ServerRefusedList},
      {"UIDL", State::kUidl, "+OK 1 abc", "", error::ServerRefusedUidl},
      {"RETR", State::kRetr, "+OK", "Subject: x\r\n\r\nbody\r\n.\r\n", error::ServerRefusedRetr},
      {"TOP", State::kTop, "+OK", "Subject: x\r\n\r\n.\r\n", error::ServerRefusedTop},
      {"DELE", State::kDele, "+OK", "", error::ServerRefusedDele},
      {"QUIT", State::kQuit, "+OK", "", 0, State::kNotConnected},
      kMultiLine};
  return steps;
}

bool IsText(const Step& step) {
  return step.state == State::kRetr || step.state == State::kTop || step.state == State::kMultiLine;
}
bool IsLogin(const Step& step) {
  return step.state == State::kNotConnected || step.state == State::kUser ||
         step.state == State::kPass;
}

/// What the event leaves.
struct Outcome {
  State state = State::kIdle;
  int32_t number = 0;
  bool goes_on = false;  ///< the step ended well, so the server goes on with its script
};

Outcome Expected(const Step& step, Event event) {
  const Outcome good{step.after, 0, true};
  const Outcome lost{State::kNotConnected, error::ReceiveFailed, false};
  // Inside a text every line is text; it goes on until its end.
  const bool inside = step.state == State::kMultiLine;
  // A refused login or greeting ends in QUIT; the greeting and QUIT itself leave no error.
  const Outcome refused{
      IsLogin(step) || step.state == State::kQuit ? State::kNotConnected : State::kIdle,
      step.refusal, false};
  switch (event) {
    case Event::kPositive:
    case Event::kPositiveByteByByte:
    case Event::kPositiveLfAlone:
      return good;
    case Event::kPositiveWithSurplus:
      return good;
    case Event::kNegative:
    case Event::kGarbage:
    case Event::kNuls:
      return inside ? good : refused;
    case Event::kPartThenSilence:
      return IsText(step) ? lost : good;
    case Event::kPartThenEnd:
      if (IsText(step)) return lost;
      // What came is the reply; where another line has to follow it finds the connection gone.
      if (step.state == State::kNotConnected || step.state == State::kUser) return lost;
      return {step.after, 0, false};
    case Event::kNegativePartThenSilence:
      return inside ? lost : refused;
    case Event::kEnd:
    case Event::kSilence:
    case Event::kHugeLine:
      return lost;
  }
  return {};
}

std::string WithLf(std::string text) {
  std::string lf;
  for (const char c : text) {
    if (c != '\r') lf += c;
  }
  return lf;
}

void ScriptUpTo(ScriptedServer& server, const Step& step) {
  if (step.state == State::kNotConnected) return;
  server.SayLine("+OK ready").Hear("USER bob");
  if (step.state == State::kUser) return;
  server.SayLine("+OK").Hear("PASS secret");
  if (step.state == State::kPass) return;
  server.SayLine("+OK");
  const std::map<State, std::string> lines = {
      {State::kStat, "STAT"},   {State::kList, "LIST 1"},     {State::kUidl, "UIDL 1"},
      {State::kRetr, "RETR 1"}, {State::kTop, "TOP 1 0"},     {State::kDele, "DELE 1"},
      {State::kQuit, "QUIT"},   {State::kMultiLine, "RETR 1"}};
  server.Hear(lines.at(step.state));
  if (step.state == State::kMultiLine) server.Say("+OK\r\nSubj");
}

void ScriptEvent(ScriptedServer& server, const Step& step, Event event) {
  const std::string line_end = step.state == State::kMultiLine ? "" : "\r\n";
  switch (event) {
    case Event::kPositive:
    case Event::kPositiveByteByByte:
      server.Say(step.positive + line_end + step.text);
      break;
    case Event::kPositiveLfAlone:
      server.Say(WithLf(step.positive + line_end + step.text));
      break;
    case Event::kPositiveWithSurplus:
      // Behind a text no more than the last characters leave room for.
      server.Say(step.positive + line_end + step.text + (IsText(step) ? "+\r\n" : "+OK 9 9\r\n"));
      break;
    case Event::kNegative:
      server.Say("-ERR no\r\n");
      break;
    case Event::kGarbage:
      server.Say("what?\r\n");
      break;
    case Event::kNuls:
      server.Say(std::string("\0\0\0\r\n", 5));
      break;
    case Event::kPartThenSilence:
      server.Say(step.positive).Pause(kTimeout + 60);
      break;
    case Event::kPartThenEnd:
      server.Say(step.positive).Close();
      break;
    case Event::kNegativePartThenSilence:
      server.Say("-ER").Pause(kTimeout + 60);
      break;
    case Event::kEnd:
      server.Close();
      break;
    case Event::kSilence:
      server.Pause(kTimeout + 60);
      break;
    case Event::kHugeLine:
      server.Say(IsText(step) ? "+" : "").SayOften("0123456789", 5000);
      break;
  }
  const bool text_goes_on =
      step.state == State::kMultiLine &&
      (event == Event::kNegative || event == Event::kGarbage || event == Event::kNuls);
  if (text_goes_on) server.Say(".\r\n");
}

/// What the server still has to do after the event, for the session to come to rest.
void ScriptAfter(ScriptedServer& server, const Step& step, const Outcome& outcome) {
  if (outcome.goes_on) {
    if (step.state == State::kNotConnected) server.Hear("USER bob").SayLine("+OK");
    if (step.state == State::kNotConnected || step.state == State::kUser) {
      server.Hear("PASS secret").SayLine("+OK");
    }
    if (IsText(step)) server.Hear("LIST 1").SayLine("+OK 1 100");
  } else if (IsLogin(step) && outcome.number != error::ReceiveFailed &&
             outcome.state == State::kNotConnected) {
    server.Hear("QUIT").SayLine("+OK");
  }
}

void Act(Session& session, const Step& step) {
  switch (step.state) {
    case State::kNotConnected:
    case State::kUser:
    case State::kPass:
      session.client->Connect();
      return;
    case State::kQuit:
      session.client->Disconnect();
      return;
    case State::kStat:
      session.client->RunOn(Command::kStat, 1);
      return;
    case State::kList:
      session.client->RunOn(Command::kList, 1);
      return;
    case State::kUidl:
      session.client->RunOn(Command::kUidl, 1);
      return;
    case State::kTop:
      session.client->RunOn(Command::kTop, 1);
      return;
    case State::kDele:
      session.client->RunOn(Command::kDele, 1);
      return;
    case State::kRetr:
    case State::kMultiLine:
      session.client->RunOn(Command::kRetr, 1);
      return;
    case State::kIdle:
      return;
  }
}

void Walk(const Step& step, Event event) {
  SCOPED_TRACE(std::string(step.name) + ", event " + std::to_string(static_cast<int>(event)));
  const Outcome outcome = Expected(step, event);
  Session session(kTimeout);
  MailServer::Limits limits;
  limits.reply.text_line = 20000;
  session.client->SetLimits(limits);
  ScriptUpTo(session.server, step);
  ScriptEvent(session.server, step, event);
  ScriptAfter(session.server, step, outcome);
  session.Start();
  if (!IsLogin(step)) {
    ASSERT_TRUE(session.client->Connect());
  }
  if (event == Event::kPositiveByteByByte) TransportTap::piece = 1;

  const auto begin = std::chrono::steady_clock::now();
  Act(session, step);
  const auto took = std::chrono::steady_clock::now() - begin;

  EXPECT_EQ(session.client->state(), outcome.state);
  EXPECT_EQ(session.client->GetLastError(), outcome.number);
  EXPECT_TRUE(session.client->done());
  EXPECT_EQ(session.client->command(), Command::kNone);
  EXPECT_LT(took, std::chrono::seconds(3));
  if (outcome.number == error::ReceiveFailed) {
    EXPECT_EQ(session.client->GetLastErrorDesc(), "XXX");
  } else if (outcome.number != 0) {
    const std::map<Event, std::string> replies = {{Event::kNegative, "-ERR no\r\n"},
                                                  {Event::kGarbage, "what?\r\n"},
                                                  {Event::kNuls, std::string("\0\0\0\r\n", 5)},
                                                  {Event::kNegativePartThenSilence, "-ER"}};
    EXPECT_EQ(session.client->GetLastErrorDesc(), replies.at(event));
  } else {
    EXPECT_EQ(session.client->GetLastErrorDesc(), "");
  }
  session.End();
}

class StepTest : public testing::TestWithParam<size_t> {};

TEST_P(StepTest, ComesToRestAfterEveryEvent) {
  for (const Event event : kEvents) Walk(Steps()[GetParam()], event);
}

INSTANTIATE_TEST_SUITE_P(Pop3, StepTest, testing::Range(size_t{0}, Steps().size()),
                         [](const auto& step) {
                           std::string name = Steps()[step.param].name;
                           std::erase(name, '-');
                           return name;
                         });

TEST(Steps, ASendThatFailsClosesWithoutAnErrorAtEveryStep) {
  for (const Step& step : Steps()) {
    if (step.state == State::kNotConnected || step.state == State::kMultiLine) continue;
    SCOPED_TRACE(step.name);
    Session session(kTimeout);
    session.server.SayLine("+OK ready");
    if (step.state != State::kUser) session.server.Hear("USER bob").SayLine("+OK");
    if (!IsLogin(step)) session.server.Hear("PASS secret").SayLine("+OK");
    session.Start();
    if (IsLogin(step)) {
      TransportTap::sends_left = step.state == State::kUser ? 0 : 1;
    } else {
      ASSERT_TRUE(session.client->Connect());
      TransportTap::sends_left = 0;
    }
    Act(session, step);
    EXPECT_EQ(session.client->state(), State::kNotConnected);
    EXPECT_EQ(session.client->GetLastError(), 0);
    session.End();
  }
}

TEST(Steps, TheNumberOfARefusalFollowsTheStep) {
  const std::map<State, int32_t> numbers = {
      {State::kUser, 1202}, {State::kPass, 1203}, {State::kStat, 1204},
      {State::kRetr, 1205}, {State::kDele, 1206}, {State::kQuit, 1207},
      {State::kTop, 1208},  {State::kList, 1209}, {State::kUidl, 1210}};
  for (const auto& [state, number] : numbers) {
    EXPECT_EQ(ProbedServer::RejectionNumber(state), number);
  }
}

// No server can bring these about: the answer to QUIT is not looked at, and the other steps await
// no status line of their own.
TEST(Steps, ARefusalAtAnyOtherStepIs1200) {
  for (const State state : {State::kIdle, State::kNotConnected, State::kMultiLine}) {
    EXPECT_EQ(ProbedServer::RejectionNumber(state), 1200);
  }
}

/// The table of docs/pop3.md: the code of each step and the codes that may follow.
std::map<int32_t, std::set<int32_t>> DocumentedSteps() {
  std::ifstream page(std::string(KORVANE_SOURCE_DIR) + "/docs/pop3.md");
  std::map<int32_t, std::set<int32_t>> steps;
  std::string line;
  while (std::getline(page, line)) {
    std::istringstream cells(line);
    std::string cell;
    int32_t code = 0;
    if (!(cells >> cell >> code) || cell != "|") continue;
    const std::string followers = line.substr(line.rfind('|', line.size() - 2) + 1);
    std::istringstream numbers(followers);
    for (int32_t next = 0; numbers >> next;) steps[code].insert(next);
  }
  return steps;
}

TEST(Steps, TheDoorBetweenThemIsTheOneThatTheDocumentationDraws) {
  const auto documented = DocumentedSteps();
  ASSERT_EQ(documented.size(), 12U) << "docs/pop3.md";
  for (const auto& [from, followers] : documented) {
    for (int32_t to = 2; to <= 13; ++to) {
      EXPECT_EQ(ProbedServer::MayFollow(static_cast<State>(from), static_cast<State>(to)),
                followers.contains(to))
          << from << " to " << to;
    }
  }
}

}  // namespace
}  // namespace korvane::test
