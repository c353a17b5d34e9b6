// The conversion to HTML where its result is larger than 32-bit lengths can say.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <limits>
#include <string>

#include "Tarsel_MailConversions.h"

namespace {

constexpr int64_t kLongest = std::numeric_limits<int32_t>::max();

// A text whose HTML would be 2,400,000,000 bytes.
const std::string& Tabs() {
  static const std::string tabs(50'000'000, '\t');
  return tabs;
}

TEST(ConvTextToHTML, TheExtraLengthNeverPassesWhatALengthCanSay) {
  const auto length = static_cast<int32_t>(Tabs().size());
  const int64_t more = NumCharReqPlusForConvTextToHTML(Tabs().data(), length);
  EXPECT_LE(length + more + 1, kLongest);
  EXPECT_GT(length + more + 1, kLongest - 8) << "and is as large as it may be";
}

TEST(ConvTextToHTML, TheTextEndsWhereTheExtraLengthSays) {
  auto length = static_cast<int32_t>(Tabs().size());
  const int64_t size = length + NumCharReqPlusForConvTextToHTML(Tabs().data(), length);
  // The page behind the end cannot be touched.
  constexpr int64_t kPage = 4096;
  const int64_t room = (size + kPage) / kPage * kPage;
  void* const mapped = mmap(nullptr, static_cast<size_t>(room + kPage), PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(mapped, MAP_FAILED);
  ASSERT_EQ(mprotect(static_cast<char*>(mapped) + room, kPage, PROT_NONE), 0);
  char* const output = static_cast<char*>(mapped) + room - size;
  ConvTextToHTML(Tabs().data(), output, &length);
  EXPECT_EQ(length, size);
  EXPECT_EQ(std::string(output + size - 6, 6), "&nbsp;");
  munmap(mapped, static_cast<size_t>(room + kPage));
}

}  // namespace
