#include "frame/debug_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "frame/files.h"
#include "support/temp_folder.h"

namespace korvane {
namespace {

std::string Log(const test::TempFolder& folder) {
  std::string text;
  ReadWholeFile(folder / std::string(kDebugLogName), text);
  return text;
}

TEST(DebugLog, IsSilentUnlessItIsSwitchedOn) {
  const test::TempFolder folder;
  WriteDebugLog(0, folder.path(), "Place", "cause");
  EXPECT_EQ(Log(folder), "");
  WriteDebugLog(1, "", "Place", "cause");
  WriteDebugLog(1, folder / "missing", "Place", "cause");
  WriteDebugLog(1, folder.path(), "Place", "cause");
  EXPECT_NE(Log(folder).find("Place: cause\n"), std::string::npos);
}

TEST(DebugLog, AnEntryIsOneShortLineWhateverItHolds) {
  const test::TempFolder folder;
  WriteDebugLog(1, folder.path(), "Place",
                "one\r\n2026 forged: line\x1b[2J" + std::string(100'000, 'x'));
  const std::string log = Log(folder);
  EXPECT_EQ(std::ranges::count(log, '\n'), 1);
  EXPECT_EQ(log.find('\x1b'), std::string::npos);
  EXPECT_LT(log.size(), 3000u);
}

TEST(DebugLog, LinesOfSeveralWritersDoNotMix) {
  const test::TempFolder folder;
  std::vector<std::thread> writers;
  for (int i = 0; i < 4; ++i) {
    writers.emplace_back([&folder] {
      for (int k = 0; k < 100; ++k) WriteDebugLog(1, folder.path(), "Place", "the whole cause");
    });
  }
  for (auto& writer : writers) writer.join();
  const std::string log = Log(folder);
  EXPECT_EQ(std::ranges::count(log, '\n'), 400);
  size_t whole = 0;
  for (size_t at = 0; (at = log.find("] Place: the whole cause\n", at)) != std::string::npos;
       ++at) {
    ++whole;
  }
  EXPECT_EQ(whole, 400u);
}

TEST(DebugLog, AFullLogIsPutAsideAndANewOneBegun) {
  const test::TempFolder folder;
  ASSERT_TRUE(WriteWholeFile(folder / std::string(kDebugLogName),
                             std::string(static_cast<size_t>(kDebugLogLimit), 'x')));
  WriteDebugLog(1, folder.path(), "Place", "last of the old one");
  WriteDebugLog(1, folder.path(), "Place", "first of the new one");
  EXPECT_EQ(std::ranges::count(Log(folder), '\n'), 1);
  EXPECT_TRUE(FileExists(folder / (std::string(kDebugLogName) + ".1")));
}

}  // namespace
}  // namespace korvane
