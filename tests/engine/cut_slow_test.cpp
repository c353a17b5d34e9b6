// Runs cut at hundreds of random places.
#include "cut_runs.h"

namespace korvane::test {
namespace {

const CutRun kRuns[] = {{true, true}, {true, false}, {false, true}, {false, false}};

TEST_F(CutTest, HundredsOfCutsInWhatTheServerSendsLoseAndDoubleNothing) {
  Fill(45);
  std::mt19937 random(20200305);
  for (const CutRun& run : kRuns) {
    const int64_t bytes = BytesOf(run);
    for (int i = 0; i < 75; ++i) {
      const int64_t place = std::uniform_int_distribution<int64_t>(1, bytes - 1)(random);
      SCOPED_TRACE("cut after " + std::to_string(place) + " of " + std::to_string(bytes) +
                   (run.whole ? " whole" : " headers") + (run.declared ? " declared" : ""));
      // Sometimes the run that resumes is cut as well.
      for (unsigned cuts = 1 + random() % 3; cuts > 0; --cuts) {
        proxy->Set({.cut_after_bytes = place / static_cast<int64_t>(cuts)});
        RunOnce(run);
      }
      Resume(run);
      Check(run);
      if (HasFatalFailure()) return;
      Renew();
    }
  }
}

TEST_F(CutTest, ACutAtEveryCommandLosesAndDoublesNothing) {
  Fill(9);
  for (const CutRun& run : kRuns) {
    for (const bool passed_on : {false, true}) {
      for (int command = 1; command <= (run.whole ? 58 : 31); ++command) {
        SCOPED_TRACE("cut at command " + std::to_string(command) + (passed_on ? " answered" : "") +
                     (run.whole ? " whole" : " headers") + (run.declared ? " declared" : ""));
        TcpProxy::Fault fault;
        (passed_on ? fault.cut_before_reply : fault.cut_at_command) = command;
        proxy->Set(fault);
        RunOnce(run);
        Resume(run);
        Check(run);
        if (HasFatalFailure()) return;
        Renew();
      }
    }
  }
}

TEST_F(CutTest, ClientsKilledAtRandomMomentsLoseAndDoubleNothing) {
  Fill(27);
  std::mt19937 random(20200306);
  for (const CutRun& run : kRuns) {
    for (int i = 0; i < 50; ++i) {
      const std::chrono::microseconds moment(random() % 120'000);
      SCOPED_TRACE("killed after " + std::to_string(moment.count()) + " us" +
                   (run.whole ? " whole" : " headers") + (run.declared ? " declared" : ""));
      KillClientAfter(run, moment);
      Resume(run);
      Check(run);
      if (HasFatalFailure()) return;
      Renew();
    }
  }
}

TEST_F(CutTest, RunsThatDeleteAndAreCutAtEveryCommandLoseNothing) {
  Fill(9);
  const CutRun run{true, true, true};
  for (int command = 1; command <= 67; ++command) {
    SCOPED_TRACE("cut at command " + std::to_string(command));
    proxy->Set({.cut_at_command = command});
    RunOnce(run);
    // Whatever is gone from the server is stored, and what is stored was not doubled.
    proxy->Clear();
    RunOnce(run);
    ASSERT_EQ(last_error_, 0);
    ASSERT_EQ(Stored(), Expected(1, 9));
    for (const auto& row : store.Rows()) {
      Request request(store);
      ASSERT_TRUE(request.engine.GetMessage(row.id, "", false));
    }
    dovecot.Empty("bob");
    Fill(9);
    Renew();
  }
}

}  // namespace
}  // namespace korvane::test
