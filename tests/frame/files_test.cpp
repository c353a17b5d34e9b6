#include "frame/files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "frame/file_handle.h"
#include "support/temp_folder.h"

namespace korvane {
namespace {

using test::TempFolder;

size_t FilesIn(const std::string& folder) {
  size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
  return count;
}

TEST(WholeFile, IsWrittenAndReadBack) {
  const TempFolder folder;
  const std::string path = folder / "file";
  std::string data = "with a\0NUL";
  data += std::string(300'000, 'x');
  ASSERT_TRUE(WriteWholeFile(path, data, true));
  std::string back;
  EXPECT_TRUE(ReadWholeFile(path, back));
  EXPECT_EQ(back, data);
}

TEST(WholeFile, TheLongestNameThatTheSystemAllowsCanBeWritten) {
  const TempFolder folder;
  EXPECT_TRUE(WriteWholeFile(folder / std::string(255, 'n'), "data"));
  EXPECT_EQ(FilesIn(folder.path()), 1u);
}

TEST(WholeFile, AMissingFolderOrAFolderInItsPlaceIsAFailure) {
  const TempFolder folder;
  EXPECT_FALSE(WriteWholeFile(folder / "no/such/file", "data"));
  std::string data = "before";
  EXPECT_FALSE(ReadWholeFile(folder / "missing", data));
  EXPECT_EQ(data, "");
  EXPECT_FALSE(ReadWholeFile(folder.path(), data));
  std::filesystem::create_directory(folder / "folder");
  EXPECT_FALSE(WriteWholeFile(folder / "folder", "data"));
  EXPECT_EQ(FilesIn(folder.path()), 1u);
}

TEST(WholeFile, RemovingWhatIsNotThereIsNoFailure) {
  const TempFolder folder;
  ASSERT_TRUE(WriteWholeFile(folder / "file", "data"));
  EXPECT_TRUE(RemoveFile(folder / "file"));
  EXPECT_FALSE(FileExists(folder / "file"));
  EXPECT_TRUE(RemoveFile(folder / "file"));
}

TEST(UnnamedFile, IsReadWrittenAndCutAndNoNameLeadsToIt) {
  const TempFolder folder;
  const FileHandle file = FileHandle::OpenUnnamed(folder.path());
  ASSERT_TRUE(file.IsOpen());
  const std::string text(100'000, 'x');
  ASSERT_TRUE(file.WriteAll(text.data(), text.size(), 0));
  ASSERT_TRUE(file.WriteAll("end", 3, 100'000));
  EXPECT_EQ(file.Length(), 100'003);
  char back[10] = {};
  EXPECT_EQ(file.ReadUpTo(back, 5, 99'998), 5);
  EXPECT_EQ(std::string(back), "xxend");
  EXPECT_TRUE(file.Resize(50));
  EXPECT_EQ(file.Length(), 50);
#ifndef _WIN32  // there the name goes with the last who has it open
  EXPECT_EQ(FilesIn(folder.path()), 0U);
#endif
}

TEST(UnnamedFile, IsGoneWhenItIsClosed) {
  const TempFolder folder;
  {
    const FileHandle one = FileHandle::OpenUnnamed(folder.path());
    const FileHandle another = FileHandle::OpenUnnamed(folder.path());
    EXPECT_TRUE(one.IsOpen());
    EXPECT_TRUE(another.IsOpen());
  }
  EXPECT_EQ(FilesIn(folder.path()), 0U);
}

TEST(UnnamedFile, CannotBeMadeWhereThereIsNoFolder) {
  const TempFolder folder;
  EXPECT_FALSE(FileHandle::OpenUnnamed(folder / "nowhere").IsOpen());
}

TEST(BinaryFile, PositionsCountFromOneAndAppendingIsOnePastTheEnd) {
  const TempFolder folder;
  BinaryFile file;
  ASSERT_TRUE(file.Open(folder / "file", BinaryFile::Mode::kReadWrite));
  EXPECT_EQ(file.Length(), 0);
  EXPECT_EQ(file.Position(), 1);
  EXPECT_TRUE(file.Write("hello"));
  EXPECT_EQ(file.Length(), 5) << "what is gathered counts";
  EXPECT_EQ(file.Position(), 6);
  EXPECT_TRUE(file.Seek(2));
  char buffer[3];
  EXPECT_TRUE(file.Read(buffer, 3));
  EXPECT_EQ(std::string(buffer, 3), "ell");
  EXPECT_FALSE(file.Seek(0));
  EXPECT_EQ(file.ReadSome(buffer, 3), 1);
  EXPECT_FALSE(file.Read(buffer, 1));
}

TEST(BinaryFile, SmallAndLargePiecesInAnyOrderGiveTheSameBytes) {
  const TempFolder folder;
  BinaryFile file;
  ASSERT_TRUE(file.Open(folder / "file", BinaryFile::Mode::kReadWrite));
  std::string expected;
  for (const size_t size : {1u, 70'000u, 3u, 65'536u, 65'535u, 2u, 200'000u, 0u, 5u}) {
    const std::string piece(size, static_cast<char>('a' + expected.size() % 26));
    EXPECT_TRUE(file.Write(piece));
    expected += piece;
  }
  // Back into the middle, over what is still gathered as well as over what is written.
  for (const size_t at : {expected.size() - 3, size_t{10}, size_t{70'000}}) {
    EXPECT_TRUE(file.Seek(static_cast<int64_t>(at) + 1));
    EXPECT_TRUE(file.Write("XY"));
    expected.replace(at, 2, "XY");
  }
  std::string back(expected.size(), '\0');
  EXPECT_TRUE(file.Seek(1));
  EXPECT_TRUE(file.Read(back.data(), 7));
  EXPECT_TRUE(file.Read(back.data() + 7, back.size() - 7));
  EXPECT_EQ(back, expected);
  file.Close();
  EXPECT_TRUE(ReadWholeFile(folder / "file", back));
  EXPECT_EQ(back, expected);
}

TEST(BinaryFile, RangesOfAnyLengthAreCopiedFromAnyPlace) {
  const TempFolder folder;
  std::string bytes;
  for (int i = 0; bytes.size() < 3'000'000; ++i) bytes += std::to_string(i) + ",";
  ASSERT_TRUE(WriteWholeFile(folder / "source", bytes));
  BinaryFile source;
  BinaryFile target;
  ASSERT_TRUE(source.Open(folder / "source", BinaryFile::Mode::kRead));
  ASSERT_TRUE(target.Open(folder / "target", BinaryFile::Mode::kReadWrite));
  std::string expected = "begin";
  EXPECT_TRUE(target.Write(expected));
  for (const size_t length : {0u, 1u, 5'000u, 65'536u, 262'144u, 262'145u, 2'000'001u}) {
    for (const size_t at : {0u, 17u, 4'000u, 900'001u}) {
      // Some of it, or all, was read ahead.
      char byte;
      EXPECT_TRUE(source.Seek(static_cast<int64_t>(at) + 1));
      EXPECT_TRUE(source.Read(&byte, 1));
      EXPECT_TRUE(
          target.CopyFrom(source, static_cast<int64_t>(at) + 1, static_cast<int64_t>(length)));
      EXPECT_EQ(source.Position(), static_cast<int64_t>(at) + 2) << "the source's own position";
      EXPECT_TRUE(target.Write("|"));
      expected += bytes.substr(at, length) + "|";
    }
  }
  EXPECT_EQ(target.Position(), static_cast<int64_t>(expected.size()) + 1);
  EXPECT_EQ(target.Length(), static_cast<int64_t>(expected.size()));
  std::string back(expected.size(), '\0');
  EXPECT_TRUE(target.Seek(1));
  EXPECT_TRUE(target.Read(back.data(), back.size()));
  EXPECT_TRUE(back == expected);
}

TEST(BinaryFile, ARangeThatTheSourceDoesNotHoldIsAFailure) {
  const TempFolder folder;
  ASSERT_TRUE(WriteWholeFile(folder / "source", std::string(500'000, 's')));
  BinaryFile source;
  BinaryFile target;
  ASSERT_TRUE(source.Open(folder / "source", BinaryFile::Mode::kRead));
  ASSERT_TRUE(target.Open(folder / "target", BinaryFile::Mode::kReadWrite));
  EXPECT_FALSE(target.CopyFrom(source, 1, 500'001));
  EXPECT_FALSE(target.CopyFrom(source, 500'001, 1));
  EXPECT_FALSE(target.CopyFrom(source, 0, 1));
  EXPECT_FALSE(target.CopyFrom(source, 1, -1));
  source.Close();
  EXPECT_FALSE(target.CopyFrom(source, 1, 1));
}

TEST(BinaryFile, WhatWasReadAheadIsReadAgainAfterAWrite) {
  const TempFolder folder;
  BinaryFile file;
  ASSERT_TRUE(WriteWholeFile(folder / "file", std::string(20'000, 'a')));
  ASSERT_TRUE(file.Open(folder / "file", BinaryFile::Mode::kReadWrite));
  std::string piece(100, ' ');
  EXPECT_TRUE(file.Read(piece.data(), piece.size()));
  EXPECT_TRUE(file.Seek(51));
  EXPECT_TRUE(file.Write("bbb"));
  EXPECT_TRUE(file.Seek(50));
  EXPECT_TRUE(file.Read(piece.data(), 5));
  EXPECT_EQ(piece.substr(0, 5), "abbba");
}

TEST(BinaryFile, WhatWasNeverOpenedFailsAtEverything) {
  BinaryFile file;
  char buffer[1];
  EXPECT_FALSE(file.IsOpen());
  EXPECT_EQ(file.Length(), -1);
  EXPECT_FALSE(file.Seek(1));
  EXPECT_FALSE(file.Write("x"));
  EXPECT_FALSE(file.Flush());
  EXPECT_FALSE(file.Truncate(0));
  EXPECT_EQ(file.ReadSome(buffer, 1), -1);
  EXPECT_FALSE(file.Open("/no/such/folder/file", BinaryFile::Mode::kReadWrite));
}

TEST(UserLock, ExcludesOtherThreads) {
  const TempFolder folder;
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < 50; ++k) {
        const UserLock lock(folder / "7_Messaggi.dat");
        EXPECT_TRUE(lock.Held());
        most = std::max(most.load(), ++inside);
        std::this_thread::yield();
        --inside;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(most, 1);
}

TEST(UserLock, TwoUsersDoNotWaitForEachOther) {
  const TempFolder folder;
  const UserLock first(folder / "7_Messaggi.dat");
  const UserLock second(folder / "8_Messaggi.dat");
  EXPECT_TRUE(first.Held());
  EXPECT_TRUE(second.Held());
}

TEST(UserLock, WithoutAFolderOrAFileNameThereIsNoLock) {
  const TempFolder folder;
  EXPECT_FALSE(UserLock(folder / "missing/7_Messaggi.dat").Held());
  EXPECT_FALSE(UserLock("").Held());
}

}  // namespace
}  // namespace korvane
