// Files where rights, limits and processes are those of POSIX.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "frame/debug_log.h"
#include "frame/files.h"
#include "support/file_size_limit.h"
#include "support/temp_folder.h"

namespace korvane {
namespace {

using test::FileSizeLimit;
using test::TempFolder;

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

size_t FilesIn(const std::string& folder) {
  size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
  return count;
}

TEST(WholeFile, IsForItsOwnerOnly) {
  const TempFolder folder;
  ASSERT_TRUE(WriteWholeFile(folder / "file", "data"));
  EXPECT_EQ(ModeOf(folder / "file"), mode_t{0600});
}

TEST(BinaryFile, IsForItsOwnerOnly) {
  const TempFolder folder;
  BinaryFile file;
  ASSERT_TRUE(file.Open(folder / "file", BinaryFile::Mode::kReadWrite));
  EXPECT_EQ(ModeOf(folder / "file"), mode_t{0600});
}

TEST(DebugLog, IsForItsOwnerOnly) {
  const TempFolder folder;
  WriteDebugLog(1, folder.path(), "Place", "cause");
  EXPECT_EQ(ModeOf(folder / std::string(kDebugLogName)), mode_t{0600});
}

TEST(WholeFile, AReplacedFileKeepsItsRights) {
  const TempFolder folder;
  const std::string path = folder / "file";
  ASSERT_TRUE(WriteWholeFile(path, "old"));
  chmod(path.c_str(), 0640);
  ASSERT_TRUE(WriteWholeFile(path, "new"));
  EXPECT_EQ(ModeOf(path), mode_t{0640});
}

TEST(WholeFile, AFailedWriteLeavesTheOldFileAndNothingElse) {
  const TempFolder folder;
  const std::string path = folder / "file";
  ASSERT_TRUE(WriteWholeFile(path, "old"));
  {
    const FileSizeLimit limit(1000);
    EXPECT_FALSE(WriteWholeFile(path, std::string(5000, 'x')));
  }
  std::string back;
  EXPECT_TRUE(ReadWholeFile(path, back));
  EXPECT_EQ(back, "old");
  EXPECT_EQ(FilesIn(folder.path()), 1u);
}

TEST(WholeFile, APipeInItsPlaceDoesNotStopTheCaller) {
  const TempFolder folder;
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  std::string data;
  EXPECT_FALSE(ReadWholeFile(folder / "pipe", data));
}

TEST(BinaryFile, AFullDiskIsAFailureThatACutForgets) {
  const TempFolder folder;
  BinaryFile file;
  ASSERT_TRUE(file.Open(folder / "file", BinaryFile::Mode::kReadWrite));
  ASSERT_TRUE(file.Write("kept"));
  ASSERT_TRUE(file.Flush());
  {
    const FileSizeLimit limit(1000);
    EXPECT_TRUE(file.Write(std::string(5000, 'x'))) << "only gathered yet";
    EXPECT_FALSE(file.Flush());
    EXPECT_FALSE(file.Write("more"));
    EXPECT_FALSE(file.Sync());
    EXPECT_TRUE(file.Truncate(4));
    EXPECT_EQ(file.Position(), 5);
    EXPECT_TRUE(file.Write("!"));
    EXPECT_TRUE(file.Sync());
  }
  std::string back;
  EXPECT_TRUE(ReadWholeFile(folder / "file", back));
  EXPECT_EQ(back, "kept!");
}

TEST(UserLock, AHolderThatDiesGivesItUp) {
  const TempFolder folder;
  const std::string path = folder / "7_Messaggi.dat";
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    const UserLock lock(path);
    const char held = lock.Held() ? 'y' : 'n';
    (void)!write(ready[1], &held, 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    _exit(0);  // without the destructor
  }
  char held = 0;
  ASSERT_EQ(read(ready[0], &held, 1), 1);
  ASSERT_EQ(held, 'y');
  const auto before = std::chrono::steady_clock::now();
  const UserLock lock(path);
  EXPECT_TRUE(lock.Held());
  EXPECT_GT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(50))
      << "it has to wait for the other process";
  int status = 0;
  waitpid(child, &status, 0);
  close(ready[0]);
  close(ready[1]);
}

/// A process that takes the lock and does nothing any more.
class Holder {
 public:
  explicit Holder(const std::string& path) {
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    process_ = fork();
    if (process_ == 0) {
      const UserLock lock(path);
      (void)!write(ready[1], "y", 1);
      while (true) pause();
    }
    char held = 0;
    EXPECT_EQ(read(ready[0], &held, 1), 1);
    close(ready[0]);
    close(ready[1]);
  }
  ~Holder() { Signal(SIGKILL), waitpid(process_, nullptr, 0); }
  void Signal(int number) const { kill(process_, number); }

 private:
  pid_t process_;
};

TEST(UserLock, AHolderThatIsKilledFreesItAtOnce) {
  const TempFolder folder;
  const std::string path = folder / "7_Messaggi.dat";
  const Holder holder(path);
  EXPECT_TRUE(UserLock(path, std::chrono::milliseconds(0)).Refused());
  holder.Signal(SIGKILL);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_TRUE(UserLock(path).Held());
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
}

TEST(UserLock, AHolderThatHangsIsNotWaitedForForEver) {
  const TempFolder folder;
  const std::string path = folder / "7_Messaggi.dat";
  const Holder holder(path);
  holder.Signal(SIGSTOP);
  const auto before = std::chrono::steady_clock::now();
  const UserLock lock(path, std::chrono::milliseconds(200));
  EXPECT_FALSE(lock.Held());
  EXPECT_TRUE(lock.Refused());
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(200));
}

TEST(UserLock, TheEndOfAnotherHandleOfTheFileDoesNotFreeIt) {
  const TempFolder folder;
  const std::string path = folder / "7_Messaggi.dat";
  const UserLock lock(path);
  ASSERT_TRUE(lock.Held());
  EXPECT_TRUE(UserLock(path, std::chrono::milliseconds(0)).Refused());
  std::string bytes;
  EXPECT_TRUE(ReadWholeFile(path + ".lock", bytes));
  EXPECT_TRUE(UserLock(path, std::chrono::milliseconds(0)).Refused());
}

// A file server takes the locks of its clients as locks of this kind.
TEST(UserLock, MeetsTheLocksThatAFileServerTakesForItsClients) {
  const TempFolder folder;
  const std::string path = folder / "7_Messaggi.dat";
  const pid_t child = fork();
  if (child == 0) {
    const int file = open((path + ".lock").c_str(), O_RDWR | O_CREAT, 0600);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (fcntl(file, F_SETLK, &whole) != 0) _exit(1);
    _exit(UserLock(path, std::chrono::milliseconds(0)).Refused() ? 0 : 2);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace korvane
