// A full disk while messages are stored: at the message file, at the attachments, at the database,
// and where all of them share it. Nothing is stored by halves, the server keeps what is not stored,
// and the error says what happened; with space again, everything comes.
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "engine_fixture.h"
#include "store_check.h"

namespace korvane::test {
namespace {

/// Gives this process, which must have one thread, mounts of its own. False where it may not.
bool OwnMounts() {
  const uid_t user = ::getuid();
  const gid_t group = ::getgid();
  if (::unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0) return false;
  if (user != 0) {
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << user << " " << user << " 1";
    std::ofstream("/proc/self/gid_map") << group << " " << group << " 1";
  }
  return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// A disk of its own over a folder, which is empty. Where that is not allowed, files have a largest
/// size in the place of the disk.
class SmallDisk {
 public:
  explicit SmallDisk(const std::string& folder) : folder_(folder), ballast_(folder + "/ballast") {
    mounted_ = OwnMounts() && ::mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=8m,mode=700") == 0;
    ::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(RLIMIT_FSIZE, &before_);
  }
  ~SmallDisk() {
    Free();
    if (mounted_) ::umount2(folder_.c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  /// Leaves so many bytes.
  void Fill(size_t left) {
    if (!mounted_) {
      rlimit limit = before_;
      limit.rlim_cur = left;
      ::setrlimit(RLIMIT_FSIZE, &limit);
      return;
    }
    const int file = ::open(ballast_.c_str(), O_CREAT | O_WRONLY, 0600);
    const std::string block(4096, 'x');
    int64_t length = 0;
    for (ssize_t count; (count = ::write(file, block.data(), block.size())) > 0;) length += count;
    ASSERT_EQ(::ftruncate(file, length - static_cast<int64_t>(left)), 0);
    ::close(file);
  }
  void Free() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    ::unlink(ballast_.c_str());
  }

 private:
  std::string folder_;
  std::string ballast_;
  bool mounted_ = false;
  rlimit before_{};
};

/// A message with a file of `bytes` bytes, or with a text of so many.
std::string Large(int number, size_t bytes, bool file) {
  std::string body;
  while (body.size() < bytes) body += std::string(70, static_cast<char>('a' + number)) + "\n";
  if (!file) return Mail(number, number * 10, "", body);
  return Mail(number, number * 10,
              "MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=\"b\"\n",
              "--b\nContent-Type: text/plain\n\nhello\n--b\nContent-Type: "
              "application/octet-stream; name=\"f.bin\"\n\n" +
                  body + "--b--\n");
}

/// The form of the host that the account has.
class FullDisk : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    dovecot.AddUser("bob");
    dovecot.Start();
    proxy = std::make_unique<TcpProxy>(dovecot.port());
  }

  /// In a process of its own, for its mounts and its limit; fails as the work does.
  void InAProcess(const std::function<void()>& work) {
    const pid_t child = ::fork();
    if (child == 0) {
      work();
      std::fflush(nullptr);
      ::_exit(HasFailure() ? 1 : 0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }

  void AddAccount(Store& store) {
    Store::Account row;
    row.host = GetParam();
    row.port = proxy->port();
    row.name = "bob";
    row.password = DovecotServer::kPassword;
    store.Add(row);
  }

  static std::vector<std::string> Expected(int to) {
    std::vector<std::string> subjects;
    for (int i = 1; i <= to; ++i) subjects.push_back("mail " + std::to_string(i));
    return subjects;
  }
  static std::vector<std::string> Sorted(std::vector<std::string> subjects) {
    std::sort(subjects.begin(), subjects.end());
    return subjects;
  }

  /// All have a row, some only that; on the server is exactly what is not here.
  void ExpectSomeWithoutContent(Store& store, int count) {
    EXPECT_EQ(Sorted(store.Subjects()), Expected(count));
    int recorded = 0;
    for (const auto& row : store.Rows()) {
      recorded += row.position > 0;
      EXPECT_EQ(row.number == -100, row.position > 0) << row.subject;
    }
    EXPECT_GT(recorded, 0);
    EXPECT_LT(recorded, count);
    EXPECT_EQ(dovecot.Count("bob"), count - recorded);
  }

  /// Opens what came without its content, which fetches it.
  static void OpenAll(Store& store) {
    Request request(store);
    for (const auto& row : store.Rows()) {
      EXPECT_TRUE(request.engine.GetMessage(row.id, "", false)) << request.Error();
    }
    for (const auto& row : store.Rows()) EXPECT_GT(row.position, 0) << row.subject;
  }

  DovecotServer dovecot;
  std::unique_ptr<TcpProxy> proxy;
};

INSTANTIATE_TEST_SUITE_P(Engine, FullDisk, testing::Values("127.0.0.1", "pop3+ahead://127.0.0.1"),
                         [](const auto& host) {
                           return std::string(host.param).size() > 9 ? "Ahead" : "LockStep";
                         });

TEST_P(FullDisk, AtTheMessageFileGivesRowsWithoutRecordsAndTheMessagesStayOnTheServer) {
  for (int i = 1; i <= 6; ++i) dovecot.Deliver("bob", Large(i, 200'000, false));
  InAProcess([&] {
    Store store;
    AddAccount(store);
    SmallDisk disk(store.MessageFolder());
    disk.Fill(500'000);
    Request first(store);
    first.SyncWhole(true, true);
    EXPECT_EQ(first.Error(), 0) << "the rows say which came without their content";
    ExpectSomeWithoutContent(store, 6);
    CheckStore(store);
    disk.Free();
    dovecot.Deliver("bob", Large(7, 200'000, false));
    Request second(store);
    second.SyncWhole();
    EXPECT_EQ(second.Error(), 0);
    EXPECT_EQ(Sorted(store.Subjects()), Expected(7));
    OpenAll(store);
    CheckStore(store);
  });
}

TEST_P(FullDisk, WhereMessagesWaitToBeStoredIsAnErrorAndWhatCameBeforeIsStored) {
  for (int i = 1; i <= 10; ++i) dovecot.Deliver("bob", Large(i, 200'000, true));
  InAProcess([&] {
    Store store;
    AddAccount(store);
    SmallDisk disk(store.MessageFolder());
    disk.Fill(900'000);
    Request first(store);
    MailServer::Limits limits;
    limits.in_memory = 250'000;
    first.server->SetLimits(limits);
    first.SyncWhole(true, true);
    EXPECT_EQ(first.Error(), error::SelectMessageFailed);
    const auto stored = store.Rows();
    EXPECT_GT(stored.size(), 1U);
    EXPECT_LT(stored.size(), 10U);
    for (const auto& row : stored) EXPECT_GT(row.position, 0) << row.subject;
    EXPECT_EQ(dovecot.Count("bob"), 10 - stored.size());
    CheckStore(store, 200'000);
    disk.Free();
    Request second(store);
    second.server->SetLimits(limits);
    second.SyncWhole();
    EXPECT_EQ(second.Error(), 0);
    EXPECT_EQ(Sorted(store.Subjects()), Sorted(Expected(10)));
    CheckStore(store, 200'000);
  });
}

TEST_P(FullDisk, AtTheAttachmentsLeavesNoHalfFileAndTheMessagesStayOnTheServer) {
  for (int i = 1; i <= 6; ++i) dovecot.Deliver("bob", Large(i, i == 4 ? 700'000 : 200'000, true));
  InAProcess([&] {
    Store store;
    AddAccount(store);
    SmallDisk disk(store.AttachmentFolder());
    disk.Fill(500'000);
    Request first(store);
    first.SyncWhole(true, true);
    EXPECT_EQ(first.Error(), 0) << "the rows say which came without their content";
    ExpectSomeWithoutContent(store, 6);
    CheckStore(store, 200'000);
    disk.Free();
    dovecot.Deliver("bob", Large(7, 200'000, true));
    Request second(store);
    second.SyncWhole();
    EXPECT_EQ(second.Error(), 0);
    EXPECT_EQ(Sorted(store.Subjects()), Expected(7));
    OpenAll(store);
    CheckStore(store, 200'000);
  });
}

TEST_P(FullDisk, AtTheDatabaseStoresNothingByHalvesAndTheMessagesStayOnTheServer) {
  for (int i = 1; i <= 30; ++i) dovecot.Deliver("bob", Large(i, 100, true));
  InAProcess([&] {
    const TempFolder place;
    SmallDisk disk(place.path());
    Store store("sqlite://" + place / "mail.db");
    AddAccount(store);
    disk.Fill(60'000);
    Request first(store);
    first.SyncWhole(true, true);
    EXPECT_TRUE(first.Error() == error::DatabaseFault ||
                first.Error() == error::LastDownloadNotWritten)
        << first.Error();
    EXPECT_EQ(proxy->Count("QUIT"), 0) << "no deletion may become final";
    EXPECT_EQ(dovecot.Count("bob"), 30);
    CheckStore(store);
    disk.Free();
    Request second(store);
    second.SyncWhole();
    EXPECT_EQ(second.Error(), 0);
    EXPECT_EQ(Sorted(store.Subjects()), Sorted(Expected(30)));
    OpenAll(store);
    CheckStore(store, 100);
  });
}

TEST_P(FullDisk, UnderEverythingLosesNothing) {
  for (int i = 1; i <= 20; ++i) dovecot.Deliver("bob", Large(i, 50'000, i % 2 == 0));
  for (const size_t left : {0U, 50'000U, 200'000U, 400'000U, 800'000U}) {
    InAProcess([&] {
      SCOPED_TRACE(left);
      const TempFolder place;
      SmallDisk disk(place.path());
      ::setenv("TMPDIR", place.path().c_str(), 1);
      Store store;
      AddAccount(store);
      disk.Fill(left);
      Request first(store);
      first.SyncWhole(true);
      if (store.Rows().size() < 20) {
        EXPECT_NE(first.Error(), 0);
      }
      EXPECT_EQ(dovecot.Count("bob"), 20);
      CheckStore(store);
      disk.Free();
      Request second(store);
      second.SyncWhole();
      EXPECT_EQ(second.Error(), 0);
      EXPECT_EQ(Sorted(store.Subjects()), Sorted(Expected(20)));
      OpenAll(store);
      CheckStore(store, 50'000);
    });
  }
}

}  // namespace
}  // namespace korvane::test
