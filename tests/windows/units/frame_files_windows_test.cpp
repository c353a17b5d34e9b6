// What is Windows' own about files: names, rights, locks and open files.
#include <gtest/gtest.h>
#include <windows.h>
// Behind the one that they need.
#include <aclapi.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "frame/debug_log.h"
#include "frame/files.h"
#include "support/temp_folder.h"

namespace korvane {
namespace {

using test::TempFolder;

std::wstring Wide(const std::string& text) {
  std::wstring wide(text.size(), L'\0');
  wide.resize(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(),
                                                      static_cast<int>(text.size()), wide.data(),
                                                      static_cast<int>(wide.size()))));
  return wide;
}

struct Rights {
  bool inherited = true;
  unsigned entries = 0;
  bool everyone = false;
};

// Who may do what with a file, as far as it is of interest here.
Rights RightsOf(const std::string& path) {
  Rights rights;
  std::wstring name = Wide(path);
  PACL list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                            nullptr, &list, nullptr, &descriptor) != ERROR_SUCCESS) {
    return rights;
  }
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  GetSecurityDescriptorControl(descriptor, &control, &revision);
  rights.inherited = (control & SE_DACL_PROTECTED) == 0;
  BYTE everyone[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof everyone;
  CreateWellKnownSid(WinWorldSid, nullptr, everyone, &size);
  for (DWORD i = 0; list && i < list->AceCount; ++i) {
    void* entry = nullptr;
    GetAce(list, i, &entry);
    auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    ++rights.entries;
    if (EqualSid(&allowed->SidStart, everyone)) rights.everyone = true;
  }
  LocalFree(descriptor);
  return rights;
}

TEST(WindowsFiles, TheSeparatorBetweenFolderAndNameIsABackslash) {
  EXPECT_EQ(JoinPath("C:\\mail", "7_Messaggi.dat"), "C:\\mail\\7_Messaggi.dat");
}

TEST(WindowsFiles, TheFolderOfAPathKeepsTheRootOfItsDrive) {
  EXPECT_EQ(DirectoryOf("C:\\mail\\file"), "C:\\mail");
  EXPECT_EQ(DirectoryOf("C:\\mail/file"), "C:\\mail");
  EXPECT_EQ(DirectoryOf("C:\\file"), "C:\\");
  EXPECT_EQ(DirectoryOf("C:file"), "C:.");
  EXPECT_EQ(DirectoryOf("\\file"), "\\");
  EXPECT_EQ(DirectoryOf("\\\\server\\share\\file"), "\\\\server\\share");
  EXPECT_EQ(DirectoryOf("file"), ".");
}

TEST(WindowsFiles, NamesBeyondTheCodePageAreTheirOwn) {
  const TempFolder folder;
  const std::string path = folder / "\xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80.txt";
  ASSERT_TRUE(WriteWholeFile(path, "data"));
  EXPECT_TRUE(FileExists(path));
  EXPECT_NE(GetFileAttributesW(Wide(path).c_str()), INVALID_FILE_ATTRIBUTES);
  std::string back;
  EXPECT_TRUE(ReadWholeFile(path, back));
  EXPECT_EQ(back, "data");
  EXPECT_TRUE(RemoveFile(path));
  EXPECT_FALSE(FileExists(path));
}

TEST(WindowsFiles, APathInTheCodePageIsReadAsItsCharacters) {
  const TempFolder folder;
  ASSERT_TRUE(WriteWholeFile(folder / "Citt\xE0.txt", "data"));
  EXPECT_TRUE(FileExists(folder / "Citt\xC3\xA0.txt"));
}

TEST(WindowsFiles, PathsLongerThan260CharactersWork) {
  const TempFolder folder;
  std::string path = folder.path();
  for (int i = 0; i < 3; ++i) {
    path = JoinPath(path, std::string(120, static_cast<char>('a' + i)));
    ASSERT_TRUE(CreateDirectoryW((L"\\\\?\\" + Wide(path)).c_str(), nullptr));
  }
  const std::string file = JoinPath(path, "file.txt");
  ASSERT_GT(file.size(), 360u);
  ASSERT_TRUE(WriteWholeFile(file, "data", true));
  EXPECT_TRUE(SyncFile(file));
  EXPECT_TRUE(SyncDirectory(path));
  EXPECT_TRUE(RenameFile(file, JoinPath(path, "other.txt")));
  EXPECT_TRUE(UserLock(JoinPath(path, "7_Messaggi.dat")).Held());
  EXPECT_TRUE(RemoveFile(JoinPath(path, "other.txt")));
}

TEST(WindowsFiles, ASlashSeparatesAsWell) {
  const TempFolder folder;
  ASSERT_TRUE(WriteWholeFile(folder.path() + "/file", "data"));
  EXPECT_TRUE(FileExists(folder / "file"));
}

TEST(WindowsFiles, AreMadeForTheOwnerOnly) {
  const TempFolder folder;
  const std::string whole = folder / "whole";
  ASSERT_TRUE(WriteWholeFile(whole, "data"));
  const std::string binary = folder / "binary";
  BinaryFile file;
  ASSERT_TRUE(file.Open(binary, BinaryFile::Mode::kReadWrite));
  WriteDebugLog(1, folder.path(), "Place", "cause");
  for (const std::string& path : {whole, binary, folder / std::string(kDebugLogName)}) {
    const Rights rights = RightsOf(path);
    EXPECT_FALSE(rights.everyone) << path;
    EXPECT_GE(rights.entries, 1u) << path;
    EXPECT_LE(rights.entries, 3u) << path;
  }
}

TEST(WindowsFiles, AReplacedFileKeepsItsRights) {
  const TempFolder folder;
  const std::string path = folder / "file";
  ASSERT_TRUE(WriteWholeFile(path, "old"));
  BYTE everyone[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof everyone;
  CreateWellKnownSid(WinWorldSid, nullptr, everyone, &size);
  EXPLICIT_ACCESSW access{};
  access.grfAccessPermissions = GENERIC_ALL;
  access.grfAccessMode = GRANT_ACCESS;
  access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
  access.Trustee.ptstrName = reinterpret_cast<wchar_t*>(everyone);
  PACL list = nullptr;
  ASSERT_EQ(SetEntriesInAclW(1, &access, nullptr, &list), DWORD{ERROR_SUCCESS});
  std::wstring name = Wide(path);
  ASSERT_EQ(SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                  nullptr, list, nullptr),
            DWORD{ERROR_SUCCESS});
  LocalFree(list);
  ASSERT_TRUE(RightsOf(path).everyone);
  ASSERT_TRUE(WriteWholeFile(path, "new"));
  EXPECT_TRUE(RightsOf(path).everyone);
}

TEST(WindowsFiles, AFileThatIsOpenCanBeReadWrittenRenamedAndDeletedByOthers) {
  const TempFolder folder;
  BinaryFile first;
  ASSERT_TRUE(first.Open(folder / "file", BinaryFile::Mode::kReadWrite));
  ASSERT_TRUE(first.Write("first"));
  ASSERT_TRUE(first.Flush());
  BinaryFile second;
  ASSERT_TRUE(second.Open(folder / "file", BinaryFile::Mode::kReadWrite));
  char buffer[5];
  EXPECT_TRUE(second.Read(buffer, 5));
  EXPECT_TRUE(second.Write("!"));
  EXPECT_TRUE(second.Flush());
  EXPECT_TRUE(RenameFile(folder / "file", folder / "other"));
  EXPECT_EQ(first.Length(), 6);
  EXPECT_TRUE(RemoveFile(folder / "other"));
  first.Close();
  second.Close();
  EXPECT_FALSE(FileExists(folder / "other"));
}

TEST(WindowsFiles, ARenameTakesThePlaceOfAFile) {
  const TempFolder folder;
  ASSERT_TRUE(WriteWholeFile(folder / "old", "old"));
  ASSERT_TRUE(WriteWholeFile(folder / "new", "new"));
  EXPECT_TRUE(RenameFile(folder / "new", folder / "old"));
  std::string back;
  EXPECT_TRUE(ReadWholeFile(folder / "old", back));
  EXPECT_EQ(back, "new");
  EXPECT_FALSE(FileExists(folder / "new"));
  EXPECT_FALSE(RenameFile(folder / "missing", folder / "old"));
}

TEST(WindowsFiles, AFileThatIsOpenCanBeReplaced) {
  const TempFolder folder;
  ASSERT_TRUE(WriteWholeFile(folder / "file", "old"));
  BinaryFile reader;
  ASSERT_TRUE(reader.Open(folder / "file", BinaryFile::Mode::kRead));
  EXPECT_TRUE(WriteWholeFile(folder / "file", "new", true));
  char old[3];
  EXPECT_TRUE(reader.Read(old, 3));
  EXPECT_EQ(std::string(old, 3), "old") << "whoever has it open keeps what was there";
  reader.Close();
  std::string back;
  EXPECT_TRUE(ReadWholeFile(folder / "file", back));
  EXPECT_EQ(back, "new");
  size_t files = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    ++files;
  }
  EXPECT_EQ(files, 1u);
}

TEST(WindowsFiles, PositionsBeyondFourGigabytesAreReached) {
  const TempFolder folder;
  BinaryFile file;
  ASSERT_TRUE(file.Open(folder / "file", BinaryFile::Mode::kReadWrite));
  constexpr int64_t kFar = (int64_t{5} << 30) + 7;
  ASSERT_TRUE(file.Truncate(kFar));
  EXPECT_EQ(file.Length(), kFar);
  ASSERT_TRUE(file.Seek(kFar + 1));
  ASSERT_TRUE(file.Write("far"));
  ASSERT_TRUE(file.Flush());
  EXPECT_EQ(file.Length(), kFar + 3);
  ASSERT_TRUE(file.Seek(kFar + 1));
  char buffer[3];
  EXPECT_TRUE(file.Read(buffer, 3));
  EXPECT_EQ(std::string(buffer, 3), "far");
  ASSERT_TRUE(file.Truncate(0));
}

TEST(WindowsFiles, ADeviceIsNoFile) {
  std::string data;
  EXPECT_FALSE(ReadWholeFile("\\\\.\\NUL", data));
  BinaryFile file;
  EXPECT_FALSE(file.Open("\\\\.\\NUL", BinaryFile::Mode::kReadWrite));
  EXPECT_FALSE(file.Open("", BinaryFile::Mode::kReadWrite));
}

// A copy of this program that takes the lock, says so and ends without giving it up.
TEST(UserLock, AHolderThatDiesGivesItUp) {
  const TempFolder folder;
  const std::string path = folder / "7_Messaggi.dat";
  wchar_t program[MAX_PATH];
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  std::wstring command =
      L"\"" + std::wstring(program) + L"\" --gtest_brief=1 " + L"--gtest_filter=LockHolder.*";
  SetEnvironmentVariableW(L"KORVANE_TEST_LOCK", Wide(path).c_str());
  STARTUPINFOW start{};
  start.cb = sizeof start;
  PROCESS_INFORMATION child{};
  ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                             &start, &child));
  SetEnvironmentVariableW(L"KORVANE_TEST_LOCK", nullptr);
  for (int i = 0; i < 1000 && !FileExists(path + ".held"); ++i) Sleep(10);
  ASSERT_TRUE(FileExists(path + ".held"));
  const auto before = std::chrono::steady_clock::now();
  const UserLock lock(path);
  EXPECT_TRUE(lock.Held());
  EXPECT_GT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(100))
      << "it has to wait for the other process";
  WaitForSingleObject(child.hProcess, 10'000);
  CloseHandle(child.hProcess);
  CloseHandle(child.hThread);
}

TEST(LockHolder, HoldsTheLockThatItIsToldAndDies) {
  const char* path = std::getenv("KORVANE_TEST_LOCK");
  if (!path) return;  // this run is not told to
  const UserLock lock(path);
  ASSERT_TRUE(lock.Held());
  ASSERT_TRUE(WriteWholeFile(std::string(path) + ".held", ""));
  Sleep(400);
  TerminateProcess(GetCurrentProcess(), 0);
}

TEST(FileLock, TellsThatSomebodyElseHoldsIt) {
  const TempFolder folder;
  const FileLock first(folder / "sync.lock");
  EXPECT_EQ(first.state(), FileLock::State::kHeld);
  EXPECT_EQ(FileLock(folder / "sync.lock").state(), FileLock::State::kTaken);
  EXPECT_EQ(FileLock(folder / "missing\\sync.lock").state(), FileLock::State::kFailed);
}

}  // namespace
}  // namespace korvane
