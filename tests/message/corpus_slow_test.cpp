// Large collections: the folder named in KORVANE_MAIL_CORPUS, and our own samples with a part of
// every message missing or changed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "support/mail_corpus.h"

namespace korvane {
namespace {

TEST(MailCorpusSlow, TheFolderOfTheUsersChoiceReadsAsPythonReadsIt) {
  const char* const folder = std::getenv("KORVANE_MAIL_CORPUS");
  // Without a folder of the user's own, ours.
  test::RunCorpus(folder ? folder : std::string(KORVANE_SOURCE_DIR) + "/tests/mail", 0.6);
}

TEST(MailCorpusSlow, DamagedMessagesAreReadAndStored) {
  std::mt19937 random(20240602);
  test::RecordStore store;
  size_t messages = 0;
  const std::string folder = std::string(KORVANE_SOURCE_DIR) + "/tests/mail";
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file() || entry.file_size() > 200'000) continue;
    std::string bytes;
    ASSERT_TRUE(ReadWholeFile(entry.path().string(), bytes));
    const std::string text = test::WithLineEnds(bytes, test::LineEnds::kCrLf);
    if (text.empty()) continue;
    std::uniform_int_distribution<size_t> place(0, text.size() - 1);
    for (int i = 0; i < 40; ++i) {
      std::string damaged = text;
      switch (i % 4) {
        case 0:
          damaged.resize(place(random));
          break;
        case 1:
          damaged.erase(0, place(random));
          break;
        case 2:
          for (int n = 0; n < 20; ++n) damaged[place(random)] = static_cast<char>(random());
          break;
        default: {
          const size_t from = place(random);
          damaged.insert(place(random), text.substr(from, 400));
        }
      }
      if (damaged.empty()) continue;
      SCOPED_TRACE(entry.path().string());
      const auto message = store.Parsed(damaged);
      EXPECT_EQ(message->GetLastError(), 0);
      const auto back = store.StoredAndReadBack(*message, static_cast<int32_t>(messages + 1));
      ASSERT_TRUE(back);
      std::string shown;
      std::string shown_again;
      message->MessageBody(shown);
      back->MessageBody(shown_again);
      EXPECT_EQ(shown, shown_again);
      ++messages;
    }
  }
  EXPECT_GT(messages, 1000u);
}

}  // namespace
}  // namespace korvane
