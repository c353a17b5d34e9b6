// What a hostile sender could send: the parse takes time in line with the size of it, and every
// byte can still be read.
#include <gtest/gtest.h>

#include "mime/multipart_entity.h"
#include "support/entity_tree.h"
#include "support/hostile_input.h"

namespace korvane {
namespace {

using test::FieldsOf;
using test::kGenerousSeconds;
using test::Repeated;
using test::SecondsOf;

std::shared_ptr<MultipartEntity> Parse(const std::string& text) {
  auto root = std::make_shared<MultipartEntity>();
  int32_t counter = 0;
  double seconds = SecondsOf([&] {
    root->InitMultipartRoot(FieldsOf("multipart/mixed; boundary=b0"), nullptr, counter, text);
  });
  EXPECT_LT(seconds, kGenerousSeconds);
  return root;
}

std::string Nested(int depth) {
  std::string text = "\r\n\r\n";
  for (int i = 0; i < depth; ++i) {
    text += "--b" + std::to_string(i) + "\r\nContent-Type: multipart/mixed; boundary=b" +
            std::to_string(i + 1) + "\r\n\r\n";
    if (i + 1 < depth) continue;
    text += "--b" + std::to_string(depth) + "\r\n\r\nbottom\r\n";
  }
  return text;
}

int Depth(const MultipartEntity& entity) {
  return entity.Children().empty() ? 0 : 1 + Depth(*entity.Children()[0]);
}

TEST(HostileEntity, NestingBeyondAHundredStaysText) {
  // "b1" is a prefix of "b10": without that trap only the depth counts.
  std::string text = "\r\n\r\n";
  std::string boundary = "b0";
  for (int i = 1; i <= 150; ++i) {
    const std::string next = "x" + std::to_string(1000 + i);
    text += "--" + boundary + "\r\nContent-Type: multipart/mixed; boundary=" + next + "\r\n\r\n";
    boundary = next;
  }
  text += "--" + boundary + "\r\n\r\nbottom";
  const auto root = Parse(text);
  EXPECT_EQ(Depth(*root), 100);
  const MultipartEntity* deepest = root.get();
  while (!deepest->Children().empty()) deepest = deepest->Children()[0].get();
  EXPECT_EQ(deepest->Fields().type, EEntityType::Text);
  EXPECT_EQ(deepest->EntityNumber(), 100);
  EXPECT_TRUE(deepest->Data().ends_with("bottom"));
  EXPECT_TRUE(deepest->Data().starts_with("--x1100\r\n")) << deepest->Data().substr(0, 40);
}

TEST(HostileEntity, TenThousandNestedMultipartsTakeLinearTime) {
  const auto root = Parse(Nested(10'000));
  EXPECT_GE(Depth(*root), 1);
  EXPECT_LE(Depth(*root), 100);
}

TEST(HostileEntity, PartsBeyondTenThousandStayText) {
  std::string text = "\r\n\r\n";
  for (int i = 1; i <= 100'000; ++i) text += "--b0\r\n\r\npart " + std::to_string(i) + "\r\n";
  text += "--b0--\r\n";
  const auto root = Parse(text);
  ASSERT_EQ(root->Children().size(), 10'001u);
  EXPECT_EQ(root->Children()[9'999]->Data(), "part 10000");
  const MultipartEntity& rest = *root->Children()[10'000];
  EXPECT_EQ(rest.EntityNumber(), 10'001);
  EXPECT_EQ(rest.Fields().type, EEntityType::Text);
  EXPECT_TRUE(rest.Data().starts_with("\r\npart 10001\r\n--b0\r\n")) << rest.Data().substr(0, 40);
  EXPECT_NE(rest.Data().find("part 100000"), std::string::npos);
}

TEST(HostileEntity, TheLimitOfPartsHoldsForTheWholeTree) {
  std::string text = "\r\n\r\n";
  for (int i = 0; i < 300; ++i) {
    const std::string inner = "i" + std::to_string(i) + "_";
    text += "--b0\r\nContent-Type: multipart/mixed; boundary=" + inner + "\r\n\r\n";
    for (int k = 0; k < 50; ++k) text += "--" + inner + "\r\n\r\nx\r\n";
  }
  const auto root = Parse(text);
  size_t parts = 0;
  const auto count = [&parts](const auto& self, const MultipartEntity& entity) -> void {
    for (const auto& child : entity.Children()) {
      ++parts;
      self(self, *child);
    }
  };
  count(count, *root);
  EXPECT_LE(parts, 10'000u + 100u);
  EXPECT_NE(root->Children().back()->Data().find("i299_"), std::string::npos)
      << "the rest of every multipart is kept";
}

TEST(HostileEntity, DelimitersWithoutEndTakeLinearTime) {
  constexpr size_t kBytes = 10'000'000;
  for (const char* piece : {"\r\n--b0", "\r\n--", "\r\n--b0\r\n", "\r\n", "\r\n\r\n", "--b0", "\n-",
                            "\r\n--b0\r\nContent-Type: multipart/mixed; boundary=c\r\n\r\n"}) {
    Parse("\r\n\r\n--b0\r\n\r\n" + Repeated(piece, kBytes));
  }
}

TEST(HostileEntity, PartsWithoutABlankLineAnywhereTakeLinearTime) {
  Parse("\r\n\r\n" + Repeated("--b0\r\nx: y\r\n", 20'000'000));
}

TEST(HostileEntity, AHundredOpenBoundariesWithOneBeginningTakeLinearTime) {
  const std::string common(60, 'b');
  std::string text = "\r\n\r\n";
  std::string boundary = "b0";
  for (int i = 1; i <= 99; ++i) {
    const std::string next = common + std::to_string(1000 + i);
    text += "--" + boundary + "\r\nContent-Type: multipart/mixed; boundary=" + next + "\r\n\r\n";
    boundary = next;
  }
  text += Repeated("\r\n--" + common + "9", 20'000'000);
  Parse(text);
}

TEST(HostileEntity, AHundredThousandHeaderLinesTakeLinearTime) {
  const auto root = Parse("\r\n\r\n--b0\r\n" +
                          Repeated("Content-Type: text/plain; name=x\r\n", 3'500'000) + "\r\nbody");
  ASSERT_EQ(root->Children().size(), 1u);
  EXPECT_EQ(root->Children()[0]->Data(), "body");
}

TEST(HostileEntity, AFieldOfManyMegabytesTakesLinearTime) {
  for (const char* piece :
       {"\"", ";", "name", "name=", "=?a?q?", "*0*=", "\r\n ", "boundary=\";"}) {
    Parse("\r\n\r\n--b0\r\nContent-Type: multipart/x; " + Repeated(piece, 5'000'000) +
          "\r\n\r\nbody\r\n--b0--");
  }
}

}  // namespace
}  // namespace korvane
