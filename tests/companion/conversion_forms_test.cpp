// Every form of the conversions that this processor can run against the plain ones: on every input
// the same bytes, and nothing read or written outside the stated sizes (each buffer ends at a page
// that cannot be touched). The plain form itself is run too: for it the pages are the test.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <string_view>

#include "mime/conversions/conversions.h"
#include "support/guarded_memory.h"

namespace korvane::conversions {
namespace {

// Bytes that end right before a page without access.
class Guarded : public test::GuardedMemory {
 public:
  explicit Guarded(size_t size) : GuardedMemory(size) { EXPECT_TRUE(IsGuarded()); }
  explicit Guarded(std::string_view bytes) : Guarded(bytes.size()) {
    if (!bytes.empty()) std::memcpy(data(), bytes.data(), bytes.size());
  }
  std::string First(size_t count) const { return {data(), count}; }
};

std::string Portable64(std::string_view input) {
  std::string output(input.size() * 3 / 4, '\0');
  output.resize(portable::Base64Decode(input.data(), input.size(), output.data()));
  return output;
}

std::string PortableUu(std::string_view input) {
  std::string output(input.size() * 3 / 4, '\0');
  output.resize(portable::UuDecode(input.data(), input.size(), output.data()));
  return output;
}

std::string PortableQp(std::string input) {
  input.resize(portable::QuotedPrintableDecode(input.data(), input.size()));
  return input;
}

std::string PortableHtml(std::string_view input) {
  std::string output(portable::HtmlSize(input.data(), input.size(), SIZE_MAX), '\0');
  EXPECT_EQ(portable::TextToHtml(input.data(), input.size(), output.data(), SIZE_MAX),
            output.size());
  return output;
}

class ConversionForms : public testing::TestWithParam<size_t> {
 protected:
  std::string TheForm64(std::string_view input) {
    Guarded in(input);
    Guarded out(input.size() * 3 / 4);
    return out.First(form_.base64_decode(in.data(), input.size(), out.data()));
  }

  std::string TheFormUu(std::string_view input) {
    Guarded in(input);
    Guarded out(input.size() * 3 / 4);
    return out.First(form_.uu_decode(in.data(), input.size(), out.data()));
  }

  std::string TheFormQp(std::string_view input) {
    Guarded buffer(input);
    return buffer.First(form_.quoted_printable_decode(buffer.data(), input.size()));
  }

  std::string TheFormHtml(std::string_view input) {
    Guarded in(input);
    const size_t size = form_.html_size(in.data(), input.size());
    Guarded out(size);
    const size_t written = form_.text_to_html(in.data(), input.size(), out.data());
    EXPECT_EQ(written, size);
    return out.First(written);
  }

 private:
  const Forms form_ = AvailableForms()[GetParam()];
};

INSTANTIATE_TEST_SUITE_P(OfThisProcessor, ConversionForms,
                         testing::Range<size_t>(0, AvailableForms().size()));

using Random = std::mt19937;

// Text of which each byte comes from `common`, one in `rare_every` from `rare`.
std::string Mixture(Random& random, size_t size, std::string_view common, std::string_view rare,
                    unsigned rare_every) {
  std::string text;
  while (text.size() < size) {
    const std::string_view from = random() % rare_every == 0 ? rare : common;
    text += from[random() % from.size()];
  }
  return text;
}

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

TEST_P(ConversionForms, Base64LinesOfAnyLengthAndEndDecodeTheSame) {
  Random random(1);
  for (const std::string_view line_end : {"\r\n", "\n", "", "\r\n\r\n", " \r\n", "=\r\n"}) {
    for (size_t width = 1; width < 140; ++width) {
      std::string input;
      for (int line = 0; line < 12; ++line) {
        input += Mixture(random, width, kAlphabet, kAlphabet, 2) + std::string(line_end);
      }
      ASSERT_EQ(TheForm64(input), Portable64(input)) << width;
    }
  }
}

TEST_P(ConversionForms, Base64WithDisturbancesAnywhereDecodesTheSame) {
  Random random(2);
  std::string every_byte;
  for (int i = 0; i < 256; ++i) every_byte += static_cast<char>(i);
  for (int round = 0; round < 4000; ++round) {
    std::string input;
    const size_t width = round % 3 == 0 ? 60 : 76;
    while (input.size() < 600) input += Mixture(random, width, kAlphabet, "=", 500) + "\r\n";
    for (unsigned i = random() % 4; i > 0; --i) {
      input[random() % input.size()] = every_byte[random() % 256];
    }
    if (round % 2) input.erase(random() % input.size(), random() % 5);
    input.resize(random() % input.size());
    ASSERT_EQ(TheForm64(input), Portable64(input));
  }
}

TEST_P(ConversionForms, Base64EveryByteInEveryPlaceOfABlockIsJudgedTheSame) {
  for (int byte = 0; byte < 256; ++byte) {
    for (size_t place = 0; place < 34; ++place) {
      std::string input(100, 'Q');
      input[place] = static_cast<char>(byte);
      ASSERT_EQ(TheForm64(input), Portable64(input)) << byte << " at " << place;
    }
  }
}

TEST_P(ConversionForms, QuotedPrintableOfAnyDensityDecodesTheSame) {
  Random random(3);
  for (const unsigned every : {1u, 2u, 3u, 5u, 20u, 100u, 1000u}) {
    for (int round = 0; round < 1500; ++round) {
      std::string input;
      const size_t size = random() % 400;
      while (input.size() < size) {
        if (random() % every != 0) {
          input += static_cast<char>(' ' + random() % 0x60);
          continue;
        }
        static constexpr std::string_view kPieces[] = {
            "=3D",
            "=\r\n",
            "=c3=A9",
            "=\n",
            "= \t\r\n",
            "=",
            "==",
            "=4",
            "=4G",
            "=G4",
            "=\r",
            "=\rx",
            "= ",
            "\r\n",
            "=0D=0A",
            "=D0=BF=D1=80=D0=B8=D0=B2",
            "=D0=B5=D1=82=D0=BF=D1=80=D0=B8=D0=B2=D0=B5=D1=82=D0=BF=D1=80=D0=B8=D0=B2"};
        input += kPieces[random() % std::size(kPieces)];
      }
      ASSERT_EQ(TheFormQp(input), PortableQp(input)) << input;
    }
  }
}

TEST_P(ConversionForms, QuotedPrintableEveryPairOfBytesBehindAnEqualsSignIsJudgedTheSame) {
  std::string input;
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      input += '=';
      input += static_cast<char>(first);
      input += static_cast<char>(second);
      input += "....";
    }
  }
  ASSERT_EQ(TheFormQp(input), PortableQp(input));
}

TEST_P(ConversionForms, UuencodedLinesRightOrWrongDecodeTheSame) {
  Random random(4);
  for (int round = 0; round < 4000; ++round) {
    std::string input;
    for (unsigned lines = random() % 8; lines > 0; --lines) {
      const unsigned count = round % 2 ? 45 : random() % 64;
      input += static_cast<char>(' ' + count);
      const size_t right = (count + 2) / 3 * 4;
      const size_t length = random() % 4 ? right : random() % 90;
      for (size_t i = 0; i < length; ++i) input += static_cast<char>('!' + random() % 64);
      if (random() % 10 == 0 && length > 0) input[input.size() - 1 - random() % length] = '\n';
      input += random() % 10 ? "\r\n" : "\n";
    }
    if (round % 3 == 0) input.resize(random() % (input.size() + 1));
    ASSERT_EQ(TheFormUu(input), PortableUu(input));
  }
}

TEST_P(ConversionForms, HtmlOfAnyDensityOfSpecialCharactersIsTheSame) {
  Random random(5);
  for (const unsigned every : {1u, 2u, 4u, 10u, 50u, 300u}) {
    for (int round = 0; round < 1500; ++round) {
      const std::string input = Mixture(random, random() % 500, "abcdefg hij\xC3\xA9\xE2\x82\xAC",
                                        "&<>\"'\r\n\t  \r\n", every);
      ASSERT_EQ(TheFormHtml(input), PortableHtml(input)) << input;
    }
  }
}

TEST_P(ConversionForms, HtmlOfTextsLongerThanAStretchIsTheSame) {
  Random random(6);
  for (int round = 0; round < 60; ++round) {
    const std::string input = Mixture(random, 4000 + random() % 3000, "abcdefghijkl",
                                      "&<>\"'\r\n\t  ", 1 + random() % 200);
    ASSERT_EQ(TheFormHtml(input), PortableHtml(input));
  }
}

TEST_P(ConversionForms, HtmlEveryPairOfBytesIsTheSame) {
  std::string input;
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      input += static_cast<char>(first);
      input += static_cast<char>(second);
    }
  }
  ASSERT_EQ(TheFormHtml(input), PortableHtml(input));
  ASSERT_EQ(TheFormHtml(input.substr(1)), PortableHtml(input.substr(1)));
}

TEST_P(ConversionForms, EveryLengthFromNothingOnIsTheSame) {
  std::string text;
  for (int i = 0; text.size() < 400; ++i) text += "Zm9v=41 \r\n<a\tb>  \"x\" =\r\n"[i % 25];
  for (size_t size = 0; size < text.size(); ++size) {
    const std::string input = text.substr(text.size() - size);
    ASSERT_EQ(TheForm64(input), Portable64(input));
    ASSERT_EQ(TheFormQp(input), PortableQp(input));
    ASSERT_EQ(TheFormUu(input), PortableUu(input));
    ASSERT_EQ(TheFormHtml(input), PortableHtml(input));
  }
}

TEST(HtmlLimit, TheTextEndsBeforeThePieceThatWouldPassIt) {
  const std::string input = "ab<c\td";
  const std::string whole = PortableHtml(input);
  ASSERT_EQ(whole, "ab&lt;c&nbsp;&nbsp;&nbsp; d");
  for (size_t limit = 0; limit <= whole.size() + 1; ++limit) {
    std::string output(whole.size(), '\0');
    const size_t size = portable::HtmlSize(input.data(), input.size(), limit);
    ASSERT_LE(size, limit);
    ASSERT_EQ(portable::TextToHtml(input.data(), input.size(), output.data(), limit), size);
    EXPECT_EQ(output.substr(0, size), whole.substr(0, size));
    EXPECT_TRUE(size == whole.size() || limit - size < 6) << limit;
  }
}

}  // namespace
}  // namespace korvane::conversions
