// The parser walks a text once, for all open multiparts together. Here a slow reference takes the
// same texts apart one range after the other, as the rules are usually told; both must agree.
#include <gtest/gtest.h>

#include <random>

#include "frame/code_page.h"
#include "mime/content_fields.h"
#include "support/entity_tree.h"

namespace korvane {
namespace {

constexpr size_t kNone = std::string::npos;

// Positions count from 1 and ranges include their end.
class SlowParser {
 public:
  explicit SlowParser(std::string text) : text_(std::move(text)) {}

  std::string Root(const std::string& boundary) {
    const std::string children = Split(boundary, EEntitySubType::Mixed, 1, text_.size());
    return children.empty() ? "no part" : "0 multipart(" + children + ")";
  }

 private:
  size_t Find(const std::string& what, size_t from) const {
    const size_t at = text_.find(what, from - 1);
    return at == kNone ? 0 : at + 1;
  }
  std::string Mid(size_t from, size_t end) const {
    return end < from ? std::string() : text_.substr(from - 1, end - from + 1);
  }

  std::string Split(const std::string& boundary, EEntitySubType subtype, size_t start, size_t end) {
    std::string children;
    const std::string delimiter = "\r\n--" + boundary;
    const size_t length = boundary.size();
    size_t p = start;
    for (;;) {
      const size_t q = Find(delimiter, p);
      if (q == 0 || q + length + 5 > end) break;
      if (Mid(q + length + 4, q + length + 5) == "--") break;
      size_t part = Find("\r\n", q + length + 4);
      if (part == 0 || part > end) part = q + length + 4;
      const size_t next = Find(delimiter, part);
      const size_t part_end = next == 0 || next > end ? end : next - 1;
      ++counter_;
      const std::string child = Child(subtype, part, part_end);
      if (child.empty()) {
        --counter_;
        p = part;
      } else {
        if (!children.empty()) children += " ";
        children += child;
        p = part_end + 1;
      }
    }
    return children;
  }

  std::string Child(EEntitySubType parent, size_t start, size_t end) {
    if (end <= start) return {};
    const std::string number = std::to_string(counter_) + " ";
    const size_t blank = Find("\r\n\r\n", start);
    const bool has_body = blank != 0 && blank <= end;
    const size_t header_end = has_body ? blank - 1 : end;
    std::string header = Mid(start, header_end);
    ContentFields fields;
    for (const std::string_view line : UnfoldHeader(header)) {
      const size_t colon = line.find(':');
      if (colon == kNone || colon == 0) continue;
      std::string* const field = fields.Named(LowerCase(TrimBlanks(line.substr(0, colon))));
      if (field != nullptr) *field = DecodeEncodedWords(TrimBlanks(line.substr(colon + 1)));
    }
    fields.Classify(parent);
    const std::string body =
        has_body && header_end + 5 <= end ? Mid(header_end + 5, end) : std::string();
    if (fields.type == EEntityType::multipart) {
      const std::string boundary = Parameter(fields.content_type, "boundary");
      if (has_body && !boundary.empty()) {
        const std::string children = Split(boundary, fields.subtype, header_end + 3, end);
        if (!children.empty()) return number + "multipart(" + children + ")";
      }
      return number + "Text '" + UndoDotStuffing(body) + "'";
    }
    if (fields.type == EEntityType::message) return number + "message 'Mail.eml'*";
    return number + "Text '" +
           DecodeTransferEncoding(EEntityType::Text, ECharset::UTF_8, fields.encoding, body) + "'";
  }

  std::string text_;
  int32_t counter_ = 0;
};

std::string FastTree(const std::string& text, const std::string& boundary) {
  MultipartEntity root;
  int32_t counter = 0;
  const ContentFields fields = test::FieldsOf("multipart/mixed; boundary=" + boundary);
  return root.InitMultipartRoot(fields, nullptr, counter, text) ? test::TreeOf(root) : "no part";
}

TEST(EntityParserOracle, RandomTextsAreTakenApartAsTheSlowReferenceDoes) {
  constexpr const char* kPieces[] = {
      "\r\n",
      "\r\n",
      "\r\n\r\n",
      "\r\n--a",
      "\r\n--b",
      "\r\n--ab",
      "\r\n--a--",
      "\r\n--b--",
      "--",
      "--a",
      "a",
      "b",
      " ",
      "\r",
      "\n",
      ".",
      "\r\n.",
      "x: y",
      "\r\n--a\r\n",
      "\r\n--b\r\n",
      "\r\n--ab\r\n",
      "\r\n--a\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n",
      "\r\n--a\r\nContent-Type: multipart/digest; boundary=ab\r\n\r\n",
      "\r\n--b\r\nContent-Type: multipart/mixed; boundary=a\r\n\r\n",
      "\r\n--b\r\nContent-Type: multipart/alternative; boundary=c\r\n\r\n",
      "\r\nContent-Type: multipart/mixed; boundary=c",
      "\r\n--c\r\n\r\n",
      "\r\n--c--"};
  std::mt19937 random(20240601);
  std::uniform_int_distribution<size_t> piece(0, std::size(kPieces) - 1);
  std::uniform_int_distribution<int> pieces(1, 40);
  size_t with_parts = 0;
  for (int i = 0; i < 60'000; ++i) {
    std::string text = "\r\n\r\n";
    for (int n = pieces(random); n > 0; --n) text += kPieces[piece(random)];
    const std::string expected = SlowParser(text).Root("a");
    with_parts += expected != "no part";
    ASSERT_EQ(FastTree(text, "a"), expected) << "text: " << testing::PrintToString(text);
  }
  EXPECT_GT(with_parts, 10'000u) << "texts without a part prove little";
}

}  // namespace
}  // namespace korvane
