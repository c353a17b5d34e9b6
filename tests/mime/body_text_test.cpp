#include "mime/body_text.h"

#include <gtest/gtest.h>

#include "support/hostile_input.h"

namespace korvane {
namespace {

constexpr auto kNormal = ETextFormat::TextFormat_Normal;
constexpr auto kHtml = ETextFormat::TextFormat_HTML;
constexpr auto kNoPre = ETextFormat::TextFormat_HTMLNoPRE;

TEST(BodyText, PlainTextIsConvertedAndWrapped) {
  EXPECT_EQ(FormatBodyText("a<b", EEntitySubType::plain, kHtml), "<pre>a&lt;b</pre>");
}

TEST(BodyText, WithoutAPreformattedBlockPlainTextIsOnlyConverted) {
  EXPECT_EQ(FormatBodyText("a<b\r\nc", EEntitySubType::plain, kNoPre), "a&lt;b<br>c");
}

TEST(BodyText, EnrichedAndRichTextAreWrappedWithoutConversion) {
  for (const auto subtype : {EEntitySubType::enriched, EEntitySubType::richtext}) {
    EXPECT_EQ(FormatBodyText("<bold>a</bold>", subtype, kHtml), "<pre><bold>a</bold></pre>");
    EXPECT_EQ(FormatBodyText("<bold>a</bold>", subtype, kNoPre), "<bold>a</bold>");
  }
}

TEST(BodyText, HtmlAndEveryOtherSubtypeStayAsTheyAre) {
  for (const auto subtype : {EEntitySubType::html, EEntitySubType::jpeg,
                             EEntitySubType::Unrecognized, static_cast<EEntitySubType>(99)}) {
    for (const auto format : {kNormal, kHtml, kNoPre}) {
      EXPECT_EQ(FormatBodyText("<b>a</b> & b", subtype, format), "<b>a</b> & b");
    }
  }
}

TEST(BodyText, TheNormalFormatChangesNothing) {
  for (const auto subtype : {EEntitySubType::plain, EEntitySubType::html, EEntitySubType::enriched,
                             EEntitySubType::richtext}) {
    EXPECT_EQ(FormatBodyText("a < b\r\n", subtype, kNormal), "a < b\r\n");
  }
}

TEST(BodyText, AFormatOutsideTheEnumerationIsTheNormalOne) {
  for (const int32_t format : {-1, 3, 1000}) {
    EXPECT_EQ(FormatBodyText("a < b", EEntitySubType::plain, static_cast<ETextFormat>(format)),
              "a < b");
    EXPECT_EQ(FormatBodyText("a < b", EEntitySubType::enriched, static_cast<ETextFormat>(format)),
              "a < b");
  }
}

TEST(BodyText, AnEmptyTextIsAnEmptyBlock) {
  EXPECT_EQ(FormatBodyText("", EEntitySubType::plain, kHtml), "<pre></pre>");
  EXPECT_EQ(TextToHtml(""), "");
}

TEST(BodyText, IsAppendedToWhatIsThere) {
  std::string out = "x";
  AppendBodyText(out, "&", EEntitySubType::plain, kNoPre);
  EXPECT_EQ(out, "x&amp;");
}

TEST(BodyText, CharactersBeyondAsciiStay) {
  EXPECT_EQ(TextToHtml("Citt\xC3\xA0 \xE2\x82\xAC"), "Citt\xC3\xA0 \xE2\x82\xAC");
}

TEST(BodyText, ALongTextGoesThroughInPiecesWithoutASeam) {
  // A little more than one piece of 64 MB, cut behind a line; and the like without any line end.
  const std::string line(1022, 'a');
  const std::string with_lines = test::Repeated(line + "\r\n", (64 << 20) + 5000);
  std::string html = TextToHtml(with_lines);
  const size_t lines = with_lines.size() / 1024;
  ASSERT_EQ(html.size(), lines * (1022 + 4));
  const std::string html_line = line + "<br>";
  size_t wrong = 0;
  for (size_t i = 0; i < lines; ++i) wrong += html.compare(i * 1026, 1026, html_line) != 0;
  EXPECT_EQ(wrong, 0u);
  html.clear();
  html.shrink_to_fit();
  const std::string no_lines((64 << 20) + 17, 'b');
  EXPECT_TRUE(TextToHtml(no_lines) == no_lines);
}

}  // namespace
}  // namespace korvane
