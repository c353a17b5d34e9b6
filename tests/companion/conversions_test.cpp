// What the six conversion functions give, called as any caller calls them. Buffers are exactly as
// large as the header says, so that a sanitizer sees whatever leaves them.
#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
// Behind the one that it needs.
#include <wincrypt.h>
#else
#include <openssl/evp.h>
#endif

#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Tarsel_MailConversions.h"

namespace {

constexpr char kUntouched = '\x5A';

int32_t Length(std::string_view text) { return static_cast<int32_t>(text.size()); }

using Decoder = int32_t(MP_CALL*)(const char*, char*, int32_t*);

std::string Decode(Decoder decoder, std::string_view input) {
  const size_t most = input.size() * 3 / 4;
  std::vector<char> output(most + 2, kUntouched);
  // A copy without a terminator behind it.
  const std::vector<char> text(input.begin(), input.end());
  int32_t length = Length(input);
  decoder(text.data(), output.data(), &length);
  EXPECT_GE(length, 0);
  EXPECT_LE(static_cast<size_t>(length), most);
  EXPECT_EQ(output[most], kUntouched);
  EXPECT_EQ(output[most + 1], kUntouched);
  return {output.data(), static_cast<size_t>(length)};
}

std::string Base64(std::string_view input) { return Decode(Base64Decode, input); }
std::string Uu(std::string_view input) { return Decode(UUDecode, input); }

std::string QuotedPrintable(std::string_view input) {
  std::vector<char> buffer(input.begin(), input.end());
  int32_t length = Length(input);
  QuotedPrintableDecode(buffer.data(), &length);
  EXPECT_LE(length, Length(input));
  return {buffer.data(), static_cast<size_t>(length)};
}

std::u16string Utf8(std::u16string text) {
  const size_t size = text.size();
  std::vector<uint16_t> buffer(text.begin(), text.end());
  buffer.push_back(0);
  UTF8Decode(buffer.data());
  EXPECT_EQ(buffer[size], 0);
  return {buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(size)};
}

std::string Html(std::string_view text) {
  const std::vector<char> input(text.begin(), text.end());
  int32_t length = Length(text);
  const int32_t more = NumCharReqPlusForConvTextToHTML(input.data(), length);
  EXPECT_GE(more, 0);
  std::vector<char> output(text.size() + static_cast<size_t>(more) + 1, kUntouched);
  ConvTextToHTML(input.data(), output.data(), &length);
  EXPECT_EQ(length, Length(text) + more);
  EXPECT_EQ(output.back(), kUntouched);
  return {output.data(), static_cast<size_t>(length)};
}

std::string Repeat(std::string_view text, size_t times) {
  std::string all;
  for (size_t i = 0; i < times; ++i) all += text;
  return all;
}

// ---------------------------------------------------------------------------------- Base64

TEST(Base64Decode, ABodyOfNCharactersNeverYieldsMoreThanThreeQuartersAndTheTwoSparesStayUnused) {
  for (size_t n = 0; n < 400; ++n) EXPECT_EQ(Base64(std::string(n, 'A')).size(), n * 3 / 4);
}

TEST(Base64Decode, LineBreaksCarryNoData) {
  EXPECT_EQ(Base64("SGVs\r\nbG8s\r\nIHdv\r\ncmxk"), "Hello, world");
  EXPECT_EQ(Base64("S\r\nGVsbG8s\nIHdvcm\rxk\r\n\r\n"), "Hello, world");
}

TEST(Base64Decode, PaddingTellsHowManyBytesTheLastQuantumHolds) {
  EXPECT_EQ(Base64("TWFu"), "Man");
  EXPECT_EQ(Base64("TWE="), "Ma");
  EXPECT_EQ(Base64("TQ=="), "M");
}

TEST(Base64Decode, MissingPaddingLosesNothing) {
  EXPECT_EQ(Base64("TWE"), "Ma");
  EXPECT_EQ(Base64("TQ"), "M");
  EXPECT_EQ(Base64("TWFuT"), "Man");
}

TEST(Base64Decode, DecodingGoesOnBehindPadding) {
  EXPECT_EQ(Base64("TQ==TWE=TWFu"), "MMaMan");
  EXPECT_EQ(Base64("TQ==\r\nTWFuTWFuTWFuTWFuTWFuTWFuTWFuTWFuTWFuTWFuTWFuTWFuTWFuTWFuTWFuTWFu"),
            "M" + Repeat("Man", 16));
  EXPECT_EQ(Base64("=TWFu====TWFu"), "ManMan");
}

TEST(Base64Decode, CharactersOutsideTheAlphabetAreSkipped) {
  EXPECT_EQ(Base64("T-W_F.u"), "Man");
  EXPECT_EQ(Base64("\xFFTW\x80\x01 Fu\t"), "Man");
  EXPECT_EQ(Base64(std::string_view("TW\0Fu", 5)), "Man");
  EXPECT_EQ(Base64("!!!!"), "");
}

TEST(Base64Decode, ALineThatStartsWithADotIsDecodedAsItStands) {
  EXPECT_EQ(Base64("TWFu\r\n.TWFu\r\n..TWFu"), "ManManMan");
}

// Base64 by somebody else, as the platform has it.
std::string Encoded(std::string_view bytes) {
  const auto* from = reinterpret_cast<const unsigned char*>(bytes.data());
#ifdef _WIN32
  constexpr DWORD kInOneLine = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
  DWORD size = 0;
  CryptBinaryToStringA(from, static_cast<DWORD>(bytes.size()), kInOneLine, nullptr, &size);
  std::string encoded(size, '\0');
  CryptBinaryToStringA(from, static_cast<DWORD>(bytes.size()), kInOneLine, encoded.data(), &size);
  encoded.resize(size);
#else
  std::string encoded(bytes.size() * 4 / 3 + 4, '\0');
  encoded.resize(static_cast<size_t>(EVP_EncodeBlock(
      reinterpret_cast<unsigned char*>(encoded.data()), from, static_cast<int>(bytes.size()))));
#endif
  return encoded;
}

TEST(Base64Decode, EveryByteValueComesBack) {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  EXPECT_EQ(Base64(Encoded(bytes)), bytes);
}

TEST(Base64Decode, WhatAnotherLibraryEncodesInLinesComesBack) {
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    std::string bytes(random() % 700, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    std::string body;
    for (size_t i = 0; i < bytes.size(); i += 57) body += Encoded(bytes.substr(i, 57)) + "\r\n";
    ASSERT_EQ(Base64(body), bytes);
  }
}

// ----------------------------------------------------------------------- quoted-printable

TEST(QuotedPrintableDecode, EqualsSignAnd3DYieldsOneEqualsSign) {
  EXPECT_EQ(QuotedPrintable("a=3Db"), "a=b");
  EXPECT_EQ(QuotedPrintable("=3D"), "=");
  EXPECT_EQ(QuotedPrintable("=3D3D"), "=3D");
}

TEST(QuotedPrintableDecode, AnEqualsSignThatEndsALineDisappearsWithTheLineBreakAndJoinsTheLines) {
  EXPECT_EQ(QuotedPrintable("one=\r\ntwo\r\nthree"), "onetwo\r\nthree");
  EXPECT_EQ(QuotedPrintable("one=\r\n=\r\ntwo"), "onetwo");
}

TEST(QuotedPrintableDecode, ASoftBreakMayEndWithABareLineFeed) {
  EXPECT_EQ(QuotedPrintable("one=\ntwo"), "onetwo");
}

TEST(QuotedPrintableDecode, BlanksBetweenTheEqualsSignAndTheLineEndGoWithTheSoftBreak) {
  EXPECT_EQ(QuotedPrintable("one= \t \r\ntwo"), "onetwo");
  EXPECT_EQ(QuotedPrintable("one=  two"), "one=  two");
}

TEST(QuotedPrintableDecode, AnEqualsSignThatEndsTheTextEndsItsLastLine) {
  EXPECT_EQ(QuotedPrintable("one="), "one");
  EXPECT_EQ(QuotedPrintable("one= "), "one");
}

TEST(QuotedPrintableDecode, AStrayEqualsSignStaysText) {
  EXPECT_EQ(QuotedPrintable("a=zb"), "a=zb");
  EXPECT_EQ(QuotedPrintable("a=4"), "a=4");
  EXPECT_EQ(QuotedPrintable("a=4Gb"), "a=4Gb");
  EXPECT_EQ(QuotedPrintable("a==41"), "a=A");
  EXPECT_EQ(QuotedPrintable("a=\rb"), "a=\rb");
  EXPECT_EQ(QuotedPrintable("x = y + z; is all of this text, which has no escape in it"),
            "x = y + z; is all of this text, which has no escape in it");
}

TEST(QuotedPrintableDecode, LowerCaseDigitsCount) {
  EXPECT_EQ(QuotedPrintable("Citt=c3=a0 =C3=a0"), "Citt\xC3\xA0 \xC3\xA0");
}

TEST(QuotedPrintableDecode, EverythingElseIsCopiedUnchangedHardBreaksAndBlanksIncluded) {
  const std::string text = "one  \r\n\ttwo \xE0\x80\r\n.\r\n_?";
  EXPECT_EQ(QuotedPrintable(text), text);
}

TEST(QuotedPrintableDecode, ADecodedZeroByteSurvives) {
  EXPECT_EQ(QuotedPrintable("a=00b"), std::string("a\0b", 3));
}

TEST(QuotedPrintableDecode, EveryEscapedByteComesBack) {
  std::string encoded, bytes;
  for (int i = 0; i < 256; ++i) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    encoded += '=';
    encoded += kDigits[i >> 4];
    encoded += kDigits[i & 15];
    bytes += static_cast<char>(i);
  }
  EXPECT_EQ(QuotedPrintable(encoded), bytes);
}

// ------------------------------------------------------------------------------ uuencoding

TEST(UUDecode, LinesAreJoinedByTheirCounts) {
  EXPECT_EQ(Uu("#0V%T"), "Cat");
  EXPECT_EQ(Uu("#0V%T\r\n#0V%T"), "CatCat");
  EXPECT_EQ(Uu("#0V%T\r\n"), "Cat");
}

TEST(UUDecode, OnlyAsManyBytesAsTheCountSaysAreTaken) {
  EXPECT_EQ(Uu("\"0V%T"), "Ca");
  EXPECT_EQ(Uu("!0V%T\r\n#0V%T"), "CCat");
}

TEST(UUDecode, AGraveAccentStandsForZero) {
  EXPECT_EQ(Uu("`"), "");
  EXPECT_EQ(Uu("`\r\n#0V%T"), "Cat");
  EXPECT_EQ(Uu("#````"), std::string(3, '\0'));
  EXPECT_EQ(Uu("#    "), std::string(3, '\0'));
}

TEST(UUDecode, ALineShorterThanItsCountGivesWhatItHolds) {
  EXPECT_EQ(Uu("M0V%T\r\n#0V%T"), "CatCat");
  EXPECT_EQ(Uu("M0V%\r\n#0V%T"), "CaCat");
  EXPECT_EQ(Uu("M0V\r\n#0V%T"), "CCat");
  EXPECT_EQ(Uu("M0\r\n#0V%T"), "Cat");
  EXPECT_EQ(Uu("M\r\n#0V%T"), "Cat");
}

TEST(UUDecode, EmptyLinesHoldNothing) {
  EXPECT_EQ(Uu("\r\n\r\n#0V%T\r\n\r\n"), "Cat");
  EXPECT_EQ(Uu("\n\n#0V%T\n"), "Cat");
  // As long as if the line end were the count of a line.
  EXPECT_EQ(Uu("\n!" + Repeat("0V%T", 13) + "0V%\r\n#0V%T" + std::string(40, ' ')), "CCat");
}

TEST(UUDecode, FullLinesOf45BytesComeBack) {
  std::mt19937 random(8);
  std::string bytes(45 * 20 + 13, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  std::string encoded;
  for (size_t i = 0; i < bytes.size(); i += 45) {
    std::string part = bytes.substr(i, 45);
    const size_t count = part.size();
    part.resize((count + 2) / 3 * 3);
    encoded += static_cast<char>(' ' + count);
    for (size_t j = 0; j < part.size(); j += 3) {
      const uint32_t group = static_cast<uint32_t>(static_cast<uint8_t>(part[j])) << 16 |
                             static_cast<uint32_t>(static_cast<uint8_t>(part[j + 1])) << 8 |
                             static_cast<uint8_t>(part[j + 2]);
      for (int shift = 18; shift >= 0; shift -= 6) {
        const uint32_t value = group >> shift & 63;
        encoded += value == 0 ? '`' : static_cast<char>(' ' + value);
      }
    }
    encoded += "\r\n";
  }
  EXPECT_EQ(Uu(encoded), bytes);
}

// ----------------------------------------------------------------------------------- UTF-8

TEST(UTF8Decode, BytesShownAsCodePageCharactersBecomeTheCharactersTheyEncode) {
  EXPECT_EQ(Utf8(u"Citt\u00C3\u00A0!"), std::u16string(u"Citt\u00E0!\0", 7));
  // The euro sign: E2 82 AC, of which Windows-1252 shows the middle byte as a low quotation mark.
  EXPECT_EQ(Utf8(u"\u00E2\u201A\u00AC"), std::u16string(u"\u20AC\0\0", 3));
}

TEST(UTF8Decode, EveryByteFrom80To9FIsFoundBehindItsCodePageCharacter) {
  constexpr char16_t kShown[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                   0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                   0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                   0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
  for (unsigned i = 0; i < 32; ++i) {
    const char16_t wanted = static_cast<char16_t>(0xC0 + i);
    EXPECT_EQ(Utf8({u'\u00C3', kShown[i]}), (std::u16string{wanted, 0})) << i;
    EXPECT_EQ(Utf8({u'\u00C3', static_cast<char16_t>(0x80 + i)}), (std::u16string{wanted, 0}));
  }
}

TEST(UTF8Decode, ACharacterBeyondTheFirstPlaneBecomesAPair) {
  // U+1F600: F0 9F 98 80.
  EXPECT_EQ(Utf8(u"\u00F0\u0178\u02DC\u20AC."), std::u16string(u"\xD83D\xDE00.\0\0", 5));
}

TEST(UTF8Decode, TheRestUpToTheOldEndIsNuls) {
  const std::u16string decoded = Utf8(u"\u00C3\u00A0\u00C3\u00A0abc");
  EXPECT_EQ(decoded, std::u16string(u"\u00E0\u00E0abc\0\0", 7));
}

TEST(UTF8Decode, AnInvalidByteStaysTheCharacterItWas) {
  for (const std::u16string text :
       {u"\u00E0 alone", u"\u00C3", u"\u00E2\u201A", u"\u201A\u00AC", u"\u00C0\u20AC",
        u"\u00E0\u20AC\u20AC", u"\u00F0\u20AC\u20AC\u20AC", u"\u00FF\u00FE"}) {
    EXPECT_EQ(Utf8(text), text);
  }
}

TEST(UTF8Decode, SurrogatesAndCharactersBeyondUnicodeAreNoSequences) {
  // ED A0 80 and F4 90 80 80.
  EXPECT_EQ(Utf8(u"\u00ED\u00A0\u20AC"), u"\u00ED\u00A0\u20AC");
  EXPECT_EQ(Utf8(u"\u00F4\u0090\u20AC\u20AC"), u"\u00F4\u0090\u20AC\u20AC");
}

TEST(UTF8Decode, AnInvalidLeadDoesNotSwallowTheSequenceBehindIt) {
  EXPECT_EQ(Utf8(u"\u00E2\u00C3\u00A0"), std::u16string(u"\u00E2\u00E0\0", 3));
}

TEST(UTF8Decode, ACharacterThatStandsForNoByteStays) {
  EXPECT_EQ(Utf8(u"\u0431\u00C3\u00A0\u0431"), std::u16string(u"\u0431\u00E0\u0431\0", 4));
  EXPECT_EQ(Utf8(u"\u00C3\u0431"), u"\u00C3\u0431");
}

TEST(UTF8Decode, NothingBehindTheFirstNulIsLookedAt) {
  uint16_t text[] = {'a', 0, 0xC3, 0xA0, 0};
  UTF8Decode(text);
  EXPECT_EQ(text[0], 'a');
  EXPECT_EQ(text[2], 0xC3);
  EXPECT_EQ(text[3], 0xA0);
}

TEST(UTF8Decode, EveryCharacterOfUnicodeComesBack) {
  constexpr char16_t kShown[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                   0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                   0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                   0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
  const auto shown = [&](uint32_t byte) {
    return byte >= 0x80 && byte < 0xA0 ? kShown[byte - 0x80] : static_cast<char16_t>(byte);
  };
  std::u16string bytes, wanted;
  for (uint32_t c = 1; c < 0x110000; ++c) {
    if (c >= 0xD800 && c < 0xE000) continue;
    if (c < 0x80) {
      bytes += shown(c);
    } else if (c < 0x800) {
      bytes += {shown(0xC0 | c >> 6), shown(0x80 | (c & 63))};
    } else if (c < 0x10000) {
      bytes += {shown(0xE0 | c >> 12), shown(0x80 | (c >> 6 & 63)), shown(0x80 | (c & 63))};
    } else {
      bytes += {shown(0xF0 | c >> 18), shown(0x80 | (c >> 12 & 63)), shown(0x80 | (c >> 6 & 63)),
                shown(0x80 | (c & 63))};
    }
    if (c < 0x10000) {
      wanted += static_cast<char16_t>(c);
    } else {
      wanted += static_cast<char16_t>(0xD800 | (c - 0x10000) >> 10);
      wanted += static_cast<char16_t>(0xDC00 | ((c - 0x10000) & 0x3FF));
    }
  }
  wanted.resize(bytes.size());
  EXPECT_TRUE(Utf8(bytes) == wanted);
}

// ------------------------------------------------------------------------------------ HTML

TEST(ConvTextToHTML, MarkupCharactersBecomeReferences) {
  EXPECT_EQ(Html("<a href=\"x\">'&'</a>"), "&lt;a href=&quot;x&quot;&gt;&#39;&amp;&#39;&lt;/a&gt;");
}

TEST(ConvTextToHTML, EachLineEndBecomesOneBreakAndNoLineEndIsLeft) {
  EXPECT_EQ(Html("a\r\nb\nc\rd"), "a<br>b<br>c<br>d");
  EXPECT_EQ(Html("\r\n\r\n"), "<br><br>");
  EXPECT_EQ(Html("\n\r"), "<br><br>");
  EXPECT_EQ(Html("\r\r\n\n"), "<br><br><br>");
}

TEST(ConvTextToHTML, ABlankBetweenWordsStaysABlank) {
  EXPECT_EQ(Html("one two three"), "one two three");
}

TEST(ConvTextToHTML, OfARunOfBlanksOnlyTheLastStaysABlank) {
  EXPECT_EQ(Html("a  b"), "a&nbsp; b");
  EXPECT_EQ(Html("a    b"), "a&nbsp;&nbsp;&nbsp; b");
}

TEST(ConvTextToHTML, BlanksAtTheEndsOfALineAreKept) {
  EXPECT_EQ(Html(" a"), "&nbsp;a");
  EXPECT_EQ(Html("  a"), "&nbsp; a");
  EXPECT_EQ(Html("a "), "a&nbsp;");
  EXPECT_EQ(Html("a \r\n b"), "a&nbsp;<br>&nbsp;b");
  EXPECT_EQ(Html("a \n"), "a&nbsp;<br>");
  EXPECT_EQ(Html("a \rb"), "a&nbsp;<br>b");
  EXPECT_EQ(Html(" "), "&nbsp;");
}

TEST(ConvTextToHTML, ATabFillsUpToTheNextMultipleOfEight) {
  EXPECT_EQ(Html("\tx"), Repeat("&nbsp;", 7) + " x");
  EXPECT_EQ(Html("abc\tx"), "abc" + Repeat("&nbsp;", 4) + " x");
  EXPECT_EQ(Html("1234567\tx"), "1234567 x");
  EXPECT_EQ(Html("12345678\tx"), "12345678" + Repeat("&nbsp;", 7) + " x");
  EXPECT_EQ(Html("a\tb\tc"), "a" + Repeat("&nbsp;", 6) + " b" + Repeat("&nbsp;", 6) + " c");
}

TEST(ConvTextToHTML, TabsAndBlanksNextToEachOtherAreOneRun) {
  EXPECT_EQ(Html("1234567\t x"), "1234567&nbsp; x");
  EXPECT_EQ(Html("123456 \tx"), "123456&nbsp; x");
  EXPECT_EQ(Html("a\t\r\n"), "a" + Repeat("&nbsp;", 7) + "<br>");
  EXPECT_EQ(Html("\t"), Repeat("&nbsp;", 8));
}

TEST(ConvTextToHTML, ATabsColumnIsCountedInCharactersFromTheLineStart) {
  EXPECT_EQ(Html("\xC3\xA0\xE2\x82\xAC\tx"), "\xC3\xA0\xE2\x82\xAC" + Repeat("&nbsp;", 5) + " x");
  EXPECT_EQ(Html("123456\r\nab\tx"), "123456<br>ab" + Repeat("&nbsp;", 5) + " x");
  EXPECT_EQ(Html("<&>\tx"), "&lt;&amp;&gt;" + Repeat("&nbsp;", 4) + " x");
  EXPECT_EQ(Html("123\n1\rab\tx"), "123<br>1<br>ab" + Repeat("&nbsp;", 5) + " x");
}

TEST(ConvTextToHTML, OtherBytesAreCopiedAsTheyAre) {
  std::string others;
  for (int i = 0; i < 256; ++i) {
    if (std::string_view("&<>\"'\r\n\t ").find(static_cast<char>(i)) == std::string_view::npos) {
      others += static_cast<char>(i);
    }
  }
  EXPECT_EQ(Html(others), others);
}

// What a browser makes of the HTML: references and breaks resolved; outside a preformatted block
// blanks are swallowed as it does, inside they are not.
std::string Rendered(const std::string& html, bool preformatted) {
  static const std::pair<std::string_view, std::string_view> kReferences[] = {
      {"&amp;", "&"}, {"&lt;", "<"},  {"&gt;", ">"},     {"&quot;", "\""},
      {"&#39;", "'"}, {"<br>", "\n"}, {"&nbsp;", "\x01"}};
  std::string text;
  for (size_t i = 0; i < html.size();) {
    bool found = false;
    for (const auto& [reference, character] : kReferences) {
      if (html.compare(i, reference.size(), reference) != 0) continue;
      text += character;
      i += reference.size();
      found = true;
      break;
    }
    if (!found) text += html[i++];
  }
  std::string shown;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool swallowed = !preformatted && text[i] == ' ' &&
                           (shown.empty() || shown.back() == '\n' || shown.back() == ' ' ||
                            i + 1 == text.size() || text[i + 1] == '\n');
    if (!swallowed) shown += text[i];
  }
  for (char& c : shown) {
    if (c == '\x01') c = ' ';
  }
  return shown;
}

std::string Expanded(const std::string& text) {
  std::string shown;
  size_t column = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' || text[i] == '\n') {
      if (text.compare(i, 2, "\r\n") == 0) ++i;
      shown += '\n';
      column = 0;
    } else if (text[i] == '\t') {
      do shown += ' ';
      while (++column % 8 != 0);
    } else {
      shown += text[i];
      ++column;
    }
  }
  return shown;
}

TEST(ConvTextToHTML, ReadsTheSameInsideAndOutsideAPreformattedBlock) {
  std::mt19937 random(9);
  for (int round = 0; round < 4000; ++round) {
    std::string text;
    for (unsigned n = random() % 120; n > 0; --n) text += "ab<&>\"' \t  \r\n\n\rcde"[random() % 19];
    const std::string html = Html(text);
    ASSERT_EQ(Rendered(html, true), Expanded(text)) << html;
    ASSERT_EQ(Rendered(html, false), Expanded(text)) << html;
  }
}

TEST(ConvTextToHTML, TheExtraLengthIsExactForAnyText) {
  std::mt19937 random(10);
  for (int round = 0; round < 3000; ++round) {
    std::string text(random() % 300, '\0');
    for (char& c : text)
      c = random() % 3 ? static_cast<char>(random()) : "&<>\"' \t\r\n"[random() % 9];
    Html(text);
  }
}

TEST(ConvTextToHTML, ManyTabsInOneLineTakeLinearTime) {
  const std::string text(2'000'000, '\t');
  EXPECT_EQ(Html(text).size(), text.size() * 48);
}

// ------------------------------------------------------------------------------ hostile use

TEST(Conversions, AnEmptyInputStoresZero) {
  char buffer[4] = {};
  for (const int32_t empty : {0, -1, std::numeric_limits<int32_t>::min()}) {
    int32_t length = empty;
    Base64Decode("TWFu", buffer, &length);
    EXPECT_EQ(length, 0);
    length = empty;
    UUDecode("#0V%T", buffer, &length);
    EXPECT_EQ(length, 0);
    length = empty;
    QuotedPrintableDecode(buffer, &length);
    EXPECT_EQ(length, 0);
    length = empty;
    ConvTextToHTML("<", buffer, &length);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(NumCharReqPlusForConvTextToHTML("<", empty), 0);
  }
  uint16_t nothing = 0;
  UTF8Decode(&nothing);
  EXPECT_EQ(nothing, 0);
}

TEST(Conversions, MissingPointersAreNothingToWorkOn) {
  int32_t length = 4;
  Base64Decode(nullptr, nullptr, &length);
  EXPECT_EQ(length, 0);
  length = 4;
  UUDecode("#0V%T", nullptr, &length);
  EXPECT_EQ(length, 0);
  length = 4;
  QuotedPrintableDecode(nullptr, &length);
  EXPECT_EQ(length, 0);
  length = 4;
  ConvTextToHTML("abcd", nullptr, &length);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(NumCharReqPlusForConvTextToHTML(nullptr, 4), 0);
  Base64Decode("TWFu", nullptr, nullptr);
  UTF8Decode(nullptr);
}

TEST(Conversions, ManyThreadsMayCallThemAtOnce) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int round = 0; round < 300; ++round) {
        EXPECT_EQ(Base64(Repeat("TWFu", 100)), Repeat("Man", 100));
        EXPECT_EQ(QuotedPrintable(Repeat("=3D", 100)), Repeat("=", 100));
        EXPECT_EQ(Uu("#0V%T"), "Cat");
        EXPECT_EQ(Html("<  >"), "&lt;&nbsp; &gt;");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
