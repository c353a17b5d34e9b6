// Runs cut in the middle. A few places of each kind here; many more in cut_slow_test.cpp.
#include "cut_runs.h"

namespace korvane::test {
namespace {

std::string Name(const CutRun& run) {
  return std::string(run.whole ? "whole" : "headers") + (run.declared ? " declared" : "");
}

const CutRun kRuns[] = {{true, true}, {true, false}, {false, true}, {false, false}};

TEST_F(CutTest, AnAwkwardMailboxIsStoredOnceWithoutAnyCut) {
  Fill(27);
  for (const CutRun& run : kRuns) {
    SCOPED_TRACE(Name(run));
    Resume(run);
    Check(run);
    Renew();
  }
}

TEST_F(CutTest, WhicheverKindTheNewestMessageIsNothingIsLostOrDoubled) {
  Fill(18);
  const auto more = AwkwardMailbox(27);
  for (; count_ < 27; ++count_) {
    for (const CutRun& run : kRuns) {
      SCOPED_TRACE(Name(run) + " of " + std::to_string(count_));
      Resume(run);
      Check(run);
      Renew();
    }
    dovecot.Deliver("bob", more[static_cast<size_t>(count_)]);
  }
}

TEST_F(CutTest, MailThatComesInWhileRunsAreCutIsStoredOnce) {
  // Later messages have later times here, as on a server that stamps what it receives.
  for (const CutRun& run : kRuns) {
    SCOPED_TRACE(Name(run));
    dovecot.Empty("bob");
    count_ = 0;
    for (const int command : {15, 0, 22, 9, 0, 30}) {
      const int more = count_ + 6;
      Deliver(count_ + 1, more);
      count_ = more;
      proxy->Set({.cut_at_command = command});
      RunOnce(run);
    }
    Resume(run);
    Check(run);
    Renew();
  }
}

TEST_F(CutTest, AClientKilledInTheMiddleLosesAndDoublesNothing) {
  Fill(18);
  for (const CutRun& run : kRuns) {
    for (const char* place : {"TOP 9 ", "UIDL 2", "QUIT"}) {
      SCOPED_TRACE(Name(run) + " killed at " + place);
      KillClientAt(run, place);
      Resume(run);
      Check(run);
      Renew();
    }
  }
}

TEST_F(CutTest, AClientKilledWhileItDeletesOnTheServerLosesAndDoublesNothing) {
  const CutRun run{true, true, true};
  for (const char* place : {"RETR 9", "DELE 7", "QUIT"}) {
    SCOPED_TRACE(place);
    Fill(18);
    KillClientAt(run, place);
    Resume(run);
    ASSERT_EQ(Stored(), Expected(1, 18));
    dovecot.Empty("bob");
    Renew();
  }
}

TEST_F(CutTest, AClientKilledBeforeItsDeletionsWereFinalLeavesNoRowThatDeniesTheMessage) {
  const CutRun run{true, true, true};
  Fill(18);
  proxy->Set({.cut_at_verb = "QUIT"});
  KillClientAt(run, "QUIT");
  ASSERT_EQ(dovecot.Count("bob"), 18);
  for (const auto& row : store.Rows()) ASSERT_EQ(row.number, -100) << row.subject;
  Resume(run);
  ASSERT_EQ(Stored(), Expected(1, 18));
  ASSERT_EQ(dovecot.Count("bob"), 18) << "what is known is not downloaded and deleted again";
  for (const auto& row : store.Rows()) {
    EXPECT_EQ("mail " + std::to_string(row.number), row.subject);
  }
}

TEST_F(CutTest, AConnectionCutAnywhereInWhatTheServerSendsLosesAndDoublesNothing) {
  Fill(18);
  for (const CutRun& run : kRuns) {
    const int64_t bytes = BytesOf(run);
    for (int i = 1; i <= 5; ++i) {
      const int64_t place = bytes * i / 6 + 7 * i;
      SCOPED_TRACE(Name(run) + " cut after " + std::to_string(place) + " bytes of " +
                   std::to_string(bytes));
      proxy->Set({.cut_after_bytes = place});
      RunOnce(run);
      EXPECT_NE(last_error_, 0);
      Resume(run);
      Check(run);
      Renew();
    }
  }
}

TEST_F(CutTest, AConnectionCutBetweenCommandsLosesAndDoublesNothing) {
  Fill(18);
  for (const CutRun& run : kRuns) {
    for (const int command : {4, 9, 30}) {
      for (const bool passed_on : {false, true}) {
        SCOPED_TRACE(Name(run) + " cut at command " + std::to_string(command));
        TcpProxy::Fault fault;
        (passed_on ? fault.cut_before_reply : fault.cut_at_command) = command;
        proxy->Set(fault);
        RunOnce(run);
        EXPECT_NE(last_error_, 0);
        Resume(run);
        Check(run);
        Renew();
      }
    }
  }
}

TEST_F(CutTest, ASecondCutWhileResumingLosesAndDoublesNothing) {
  Fill(18);
  for (const CutRun& run : kRuns) {
    SCOPED_TRACE(Name(run));
    for (const int command : {40, 25, 12}) {
      proxy->Set({.cut_at_command = command});
      RunOnce(run);
    }
    Resume(run);
    Check(run);
    Renew();
  }
}

TEST_F(CutTest, AServerKilledInTheMiddleLosesAndDoublesNothing) {
  Fill(18);
  const CutRun run{true, true};
  bool killed = false;
  proxy->OnCommand([&](const std::string& line) {
    if (line == "RETR 9" && !killed) {
      killed = true;
      dovecot.Kill();
    }
  });
  RunOnce(run);
  EXPECT_NE(last_error_, 0);
  ASSERT_TRUE(killed);
  dovecot.Start();
  proxy->Target(dovecot.port());
  Resume(run);
  Check(run);
}

TEST_F(CutTest, ARunThatDeletesOnTheServerAndIsCutWhileDeletingLosesNothing) {
  Fill(18);
  const CutRun run{true, true, true};
  for (const char* place : {"DELE 3", "DELE 9", "QUIT"}) {
    SCOPED_TRACE(place);
    proxy->Set({.cut_at_verb = place});
    RunOnce(run);
    EXPECT_EQ(dovecot.Count("bob"), 18);
    EXPECT_EQ(Stored(), Expected(1, 18));
    for (const auto& row : store.Rows()) EXPECT_NE(row.number, -100);
    Renew();
  }
}

}  // namespace
}  // namespace korvane::test
