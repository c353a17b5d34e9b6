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

/// The scheme of the account's host.
class Killed : public CutTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    CutTest::SetUp();
    store.ChangeAccount(account, "Nome_server", std::string(GetParam()) + "127.0.0.1");
  }
  /// A moment at which an undisturbed run is still going on.
  std::chrono::microseconds Moment(std::chrono::microseconds whole) {
    return std::chrono::microseconds(
        std::uniform_int_distribution<int64_t>(0, whole.count())(random_));
  }
  /// How long an undisturbed run takes.
  std::chrono::microseconds TimeOf(const CutRun& run) {
    Renew();
    const auto begin = std::chrono::steady_clock::now();
    RunOnce(run);
    EXPECT_EQ(last_error_, 0);
    const auto end = std::chrono::steady_clock::now();
    Renew();
    return std::chrono::duration_cast<std::chrono::microseconds>(end - begin);
  }
  static std::string Told(std::chrono::microseconds moment, const CutRun& run) {
    return "killed after " + std::to_string(moment.count()) + " us" +
           (run.whole ? " whole" : " headers") + (run.declared ? " declared" : "");
  }

 private:
  std::mt19937 random_{20200306};
};

INSTANTIATE_TEST_SUITE_P(Engine, Killed, testing::Values("", "pop3+ahead://"),
                         [](const auto& scheme) { return *scheme.param ? "Ahead" : "LockStep"; });

TEST_P(Killed, ClientsAtRandomMomentsLoseAndDoubleNothing) {
  Fill(27);
  int interrupted = 0;
  for (const CutRun& run : kRuns) {
    const auto whole = TimeOf(run);
    for (int i = 0; i < 35; ++i) {
      const auto moment = Moment(whole);
      SCOPED_TRACE(Told(moment, run));
      KillClientAfter(run, moment);
      interrupted += !store.Kept(account) || store.Kept(account)->error;
      Resume(run);
      Check(run);
      if (HasFatalFailure()) return;
      Renew();
    }
  }
  EXPECT_GT(interrupted, 35) << "most were killed before their end";
}

TEST_P(Killed, ClientsThatDeleteOnTheServerLoseAndDoubleNothing) {
  Fill(27);
  const CutRun run{true, true, true};
  const auto whole = TimeOf(run);
  int deleted = 0;
  for (int i = 0; i < 50; ++i) {
    dovecot.Empty("bob");
    Fill(27);
    const auto moment = Moment(whole);
    SCOPED_TRACE(Told(moment, run));
    KillClientAfter(run, moment);
    // What is gone from the server is here.
    ASSERT_GE(static_cast<int>(Stored().size()) + dovecot.Count("bob"), 27);
    deleted += dovecot.Count("bob") == 0;
    Resume(run);
    ASSERT_EQ(Stored(), Expected(1, 27));
    for (const auto& row : store.Rows()) {
      Request request(store);
      ASSERT_TRUE(request.engine.GetMessage(row.id, "", false)) << row.subject;
    }
    Renew();
  }
  EXPECT_LT(deleted, 40) << "most were killed before QUIT";
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
