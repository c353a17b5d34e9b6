#include "mime/line_search.h"

#include <gtest/gtest.h>

#include <random>

#include "support/entity_tree.h"

namespace korvane {
namespace {

constexpr auto kNone = std::string_view::npos;

size_t Slow(const std::string& text, size_t from, size_t limit, const std::string& behind) {
  const size_t at = text.find("\r\n" + behind, from);
  return at < limit ? at : kNone;
}

TEST(FindLineEnd, ItAgreesWithAPlainSearchOnRandomTexts) {
  constexpr char kCharacters[] = "\r\n--.\r\nx";
  std::mt19937 random(20240604);
  for (int i = 0; i < 100'000; ++i) {
    std::string text(random() % 70, '\0');
    for (char& c : text) c = kCharacters[random() % (i % 2 ? 8 : 5)];
    const size_t from = text.empty() ? 0 : random() % text.size();
    const size_t limit = random() % 80;
    ASSERT_EQ(FindLineEndBefore(text, from, limit, "--"), Slow(text, from, limit, "--"))
        << testing::PrintToString(text) << " from " << from << " before " << limit;
    ASSERT_EQ(FindLineEndBefore(text, from, limit, "."), Slow(text, from, limit, "."))
        << testing::PrintToString(text) << " from " << from << " before " << limit;
    ASSERT_EQ(FindLineEndBefore(text, from, limit, "\r\n"), Slow(text, from, limit, "\r\n"))
        << testing::PrintToString(text) << " from " << from << " before " << limit;
  }
}

std::string Read(std::string text) {
  ReadLineFeedsAsLineEnds(text);
  return text;
}

TEST(LineFeeds, TheyBecomeLineEndsInATextWithEmptyLines) {
  EXPECT_EQ(Read("a\n\nb\n"), "a\r\n\r\nb\r\n");
  EXPECT_EQ(Read("\na"), "\r\na");
  EXPECT_EQ(Read("\n"), "\r\n");
}

TEST(LineFeeds, ATextWithoutEmptyLinesStays) {
  for (const char* text : {"", "a", "a\n", "a\nb\n", "\r"}) EXPECT_EQ(Read(text), text);
}

TEST(LineFeeds, ATextWithALineEndAnywhereStays) {
  for (const char* text : {"a\r\n\n\nb", "a\n\nb\r\n", "\n\r\n"}) EXPECT_EQ(Read(text), text);
}

TEST(LineFeeds, RandomTextsAreSpreadWithoutLoss) {
  std::mt19937 random(20240605);
  for (int i = 0; i < 50'000; ++i) {
    std::string text = "\n";
    for (size_t n = random() % 100; n > 0; --n) {
      text += random() % (1 + static_cast<unsigned>(i) % 20) == 0 ? '\n'
                                                                  : static_cast<char>('a' + n % 26);
    }
    ASSERT_EQ(Read(text), test::Crlf(text)) << testing::PrintToString(text);
  }
}

}  // namespace
}  // namespace korvane
