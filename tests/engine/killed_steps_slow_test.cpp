// A synchronisation killed before every statement that it sends to its database, and before every
// write, cut, sync, rename and removal of a file, SQLite's own among them. The next one completes
// the store.
#include <dlfcn.h>
#include <fcntl.h>

#include "cut_runs.h"
#include "frame/database_url.h"
#include "frame/driver.h"
#include "support/mariadb_server.h"
#include "support/postgres_server.h"

namespace {

/// Steps of this process since they are counted, and the one before which it dies.
bool counting = false;
int steps = 0;
int last_step = 0;

void Step() {
  if (counting && ++steps == last_step) ::kill(::getpid(), SIGKILL);
}

template <class Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The system's functions, for everything in this program.
extern "C" {

ssize_t write(int file, const void* bytes, size_t size) {
  static const auto real = Real<decltype(&write)>("write");
  Step();
  return real(file, bytes, size);
}
ssize_t pwrite(int file, const void* bytes, size_t size, off_t position) {
  static const auto real = Real<decltype(&pwrite)>("pwrite");
  Step();
  return real(file, bytes, size, position);
}
ssize_t pwrite64(int file, const void* bytes, size_t size, off64_t position) {
  static const auto real = Real<decltype(&pwrite64)>("pwrite64");
  Step();
  return real(file, bytes, size, position);
}
int ftruncate(int file, off_t length) noexcept {
  static const auto real = Real<decltype(&ftruncate)>("ftruncate");
  Step();
  return real(file, length);
}
int ftruncate64(int file, off64_t length) noexcept {
  static const auto real = Real<decltype(&ftruncate64)>("ftruncate64");
  Step();
  return real(file, length);
}
int fsync(int file) {
  static const auto real = Real<decltype(&fsync)>("fsync");
  Step();
  return real(file);
}
int fdatasync(int file) {
  static const auto real = Real<decltype(&fdatasync)>("fdatasync");
  Step();
  return real(file);
}
int rename(const char* from, const char* to) noexcept {
  static const auto real = Real<decltype(&rename)>("rename");
  Step();
  return real(from, to);
}
int unlink(const char* path) noexcept {
  static const auto real = Real<decltype(&unlink)>("unlink");
  Step();
  return real(path);
}

}  // extern "C"

namespace korvane::test {
namespace {

/// A driver each of whose statements is a step, begin and commit among them.
class SteppingDriver final : public Driver {
 public:
  explicit SteppingDriver(std::unique_ptr<Driver> inner) : inner_(std::move(inner)) {}
  Dialect dialect() const override { return inner_->dialect(); }
  bool NumbersParameters() const override { return inner_->NumbersParameters(); }
  Rows Run(const std::string& statement, std::span<const Parameter> parameters) override {
    Step();
    return inner_->Run(statement, parameters);
  }
  void RunScript(const std::string& script) override {
    Step();
    inner_->RunScript(script);
  }
  void Begin() override {
    Step();
    inner_->Begin();
  }
  void BeginAllocating() override {
    Step();
    inner_->BeginAllocating();
  }
  void Commit() override {
    Step();
    inner_->Commit();
  }
  void Rollback() override {
    Step();
    inner_->Rollback();
  }
  void BeginReading() override {
    Step();
    inner_->BeginReading();
  }
  void EndReading() override {
    Step();
    inner_->EndReading();
  }

 private:
  std::unique_ptr<Driver> inner_;
};

constexpr int kMessages = 7;  // the last has a file
constexpr int kNever = 0;

class KilledSteps : public CutTest {
 protected:
  using CutTest::CutTest;

  /// A run in a process of its own that dies before its step `last`; how many it did otherwise,
  /// nothing when it died.
  std::optional<int> Run(const CutRun& run, int last) {
    int result[2];
    EXPECT_EQ(::pipe(result), 0);
    const pid_t child = ::fork();
    if (child == 0) {
      const DatabaseUrl url = DatabaseUrl::Parse(store.url());
      const auto connection =
          ConnectionOver(std::make_unique<SteppingDriver>(OpenDriver(url, false)), false);
      last_step = last;
      counting = true;
      RunOnce(run, connection);
      counting = false;
      const int done = last_error_ == 0 ? steps : -1;
      (void)!::write(result[1], &done, sizeof done);
      ::_exit(0);
    }
    ::close(result[1]);
    int done = 0;
    const bool lived = ::read(result[0], &done, sizeof done) == sizeof done;
    ::close(result[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(lived, WIFEXITED(status));
    return lived ? std::optional(done) : std::nullopt;
  }

  /// Every `stride`-th step.
  void KillEverywhere(const CutRun& run, int stride) {
    Fill(kMessages);
    const auto all = Run(run, kNever);
    ASSERT_TRUE(all && *all > 40) << all.value_or(-2);
    Restart();
    int killed = 0;
    for (int step = 1; step <= *all; step += stride) {
      SCOPED_TRACE("killed before step " + std::to_string(step) + " of " + std::to_string(*all) +
                   (run.whole ? " whole" : " headers") + (run.declared ? " declared" : "") +
                   (run.delete_on_server ? " deleting" : ""));
      if (!Run(run, step)) ++killed;
      // Once more, and the death of the run that resumes.
      if (step % 7 == 0) Run(run, step / 2 + 1);
      Complete(run, step);
      if (HasFatalFailure()) return;
      Restart();
    }
    // The count varies a little: what waited for a lock, a log that was folded.
    EXPECT_GT(killed, (*all / stride) * 9 / 10);
    std::printf("%d steps, %d kills\n", *all, killed);
  }

  void Complete(const CutRun& run, int step) {
    CutRun next = run;
    // What is gone from the server is in the store, or nothing would bring it back.
    if (run.delete_on_server) next.delete_on_server = false;
    proxy->Clear();
    // A second run finds everything known.
    for (int runs = step % 4 == 0 ? 2 : 1; runs > 0; --runs) {
      RunOnce(next);
      ASSERT_EQ(last_error_, 0);
    }
    Check(next);
  }

  void Restart() {
    if (dovecot.Count("bob") != kMessages) {
      dovecot.Empty("bob");
      Fill(kMessages);
    }
    Renew();
  }

  void KillEverywhereInAllRuns(int stride) {
    for (const CutRun& run :
         {CutRun{true, true, false}, CutRun{true, false, true}, CutRun{false, false, false}}) {
      KillEverywhere(run, stride);
      if (HasFatalFailure()) return;
      dovecot.Empty("bob");
      Renew();
    }
  }
};

TEST_F(KilledSteps, OfASynchronisationLoseAndDoubleNothingOnSqlite) { KillEverywhereInAllRuns(1); }

struct Postgresql {
  PostgresServer server;
};
class KilledStepsOnPostgresql : private Postgresql, public KilledSteps {
 protected:
  KilledStepsOnPostgresql() : KilledSteps(server.MakeDatabase("mail")) {}
};
TEST_F(KilledStepsOnPostgresql, OfASynchronisationLoseAndDoubleNothing) {
  KillEverywhereInAllRuns(5);
}

struct Mariadb {
  MariadbServer server;
};
class KilledStepsOnMariadb : private Mariadb, public KilledSteps {
 protected:
  KilledStepsOnMariadb() : KilledSteps(server.MakeDatabase("mail")) {}
};
TEST_F(KilledStepsOnMariadb, OfASynchronisationLoseAndDoubleNothing) { KillEverywhereInAllRuns(5); }

}  // namespace
}  // namespace korvane::test
