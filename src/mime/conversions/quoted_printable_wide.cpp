// Quoted-printable, 30 bytes of 32 at a time, however many escapes they hold.
//
// Whether a "=" starts an escape depends on the two bytes behind it only, and these are no "=", so
// escapes never overlap: all positions are judged at once, the decoded bytes put where their "="
// were, and what is left is closed up in groups of eight. Escapes that reach into the next round
// leave it the number of bytes to drop. A "=" that is neither an escape nor a plain soft break goes
// the portable way.
#include "mime/conversions/quoted_printable_escape.h"
#include "mime/conversions/wide.h"

#ifdef KORVANE_WIDE_CONVERSIONS

namespace korvane::conversions::wide {

namespace {

constexpr size_t kBlock = 32;
// The last two bytes of a block are looked at for the escapes before them only.
constexpr size_t kStride = 30;
constexpr uint32_t kJudged = (1u << kStride) - 1;

// For each choice of eight bytes, where the chosen ones are found, closed up.
struct Choices {
  uint8_t places[256][8];
};

constexpr Choices MakeChoices() {
  Choices choices{};
  for (unsigned chosen = 0; chosen < 256; ++chosen) {
    unsigned count = 0;
    for (uint8_t place = 0; place < 8; ++place) {
      if (chosen >> place & 1) choices.places[chosen][count++] = place;
    }
  }
  return choices;
}

constexpr Choices kChoices = MakeChoices();

// The hexadecimal digits among 32 characters: their values, and which they are.
struct Digits {
  __m256i values;
  __m256i valid;
};

KORVANE_WIDE_INLINE Digits ReadDigits(__m256i characters) {
  // Moved so that the valid ones are the lowest of all signed bytes.
  const __m256i number = _mm256_cmpgt_epi8(
      Each(-128 + 10), _mm256_sub_epi8(characters, Each(static_cast<char>('0' + 128))));
  const __m256i folded = _mm256_or_si256(characters, Each(0x20));
  const __m256i letter = _mm256_cmpgt_epi8(
      Each(-128 + 6), _mm256_sub_epi8(folded, Each(static_cast<char>('a' + 128))));
  return {
      _mm256_add_epi8(_mm256_and_si256(characters, Each(0x0F)), _mm256_and_si256(letter, Each(9))),
      _mm256_or_si256(number, letter)};
}

// Writes those of the 32 bytes that `kept` names, closed up; up to 32 bytes at `out` are touched.
KORVANE_WIDE_INLINE char* CloseUp(__m256i bytes, uint32_t kept, char* out) {
  const __m128i halves[2] = {_mm256_castsi256_si128(bytes), _mm256_extracti128_si256(bytes, 1)};
  const __m128i groups[4] = {halves[0], _mm_unpackhi_epi64(halves[0], halves[0]), halves[1],
                             _mm_unpackhi_epi64(halves[1], halves[1])};
  for (unsigned i = 0; i < 4; ++i) {
    const uint32_t before = kept & ((1u << 8 * i) - 1);
    const __m128i places =
        _mm_loadl_epi64(reinterpret_cast<const __m128i*>(kChoices.places[kept >> 8 * i & 0xFF]));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + _mm_popcnt_u32(before)),
                     _mm_shuffle_epi8(groups[i], places));
  }
  return out + _mm_popcnt_u32(kept);
}

}  // namespace

KORVANE_WIDE size_t QuotedPrintableDecode(char* buffer, size_t size) {
  const char* const end = buffer + size;
  char* out = buffer;
  // Behind the first escape a round may write as much as it has read without reaching what the next
  // one reads.
  const char* in = DecodeFirstEscape(end, out);
  uint32_t dropped = 0;  // bytes at `in` that belong to an escape before it, one bit each
  while (static_cast<size_t>(end - in) >= kBlock) {
    _mm_prefetch(in + kAhead, _MM_HINT_T0);
    const __m256i bytes = Load(in);
    const __m256i signs = _mm256_cmpeq_epi8(bytes, Each('='));
    const uint32_t equals = Bits(signs) & kJudged;
    const Digits digits = ReadDigits(bytes);
    const uint32_t valid = Bits(digits.valid);
    const uint32_t escapes = equals & valid >> 1 & valid >> 2;
    const uint32_t breaks = equals & Bits(_mm256_cmpeq_epi8(bytes, Each('\r'))) >> 1 &
                            Bits(_mm256_cmpeq_epi8(bytes, Each('\n'))) >> 2;
    const uint32_t known = escapes | breaks;
    if (known != equals) {
      const char* const odd = in + _tzcnt_u32(known ^ equals);
      in += _mm_popcnt_u32(dropped);
      dropped = 0;
      in = portable::QuotedPrintableDecode(in, odd + 1, end, out);
      continue;
    }
    // Each value moved to the place of the byte before it, and of the one before that.
    const __m256i upper = _mm256_permute2x128_si256(digits.values, digits.values, 0x81);
    const __m256i high = _mm256_alignr_epi8(upper, digits.values, 1);
    const __m256i low = _mm256_alignr_epi8(upper, digits.values, 2);
    const __m256i decoded = _mm256_or_si256(_mm256_slli_epi16(high, 4), low);
    const uint32_t followers = known << 1 | known << 2;
    const uint32_t gone = dropped | followers | breaks;
    out = CloseUp(_mm256_blendv_epi8(bytes, decoded, signs), ~gone & kJudged, out);
    dropped = followers >> kStride;
    in += kStride;
  }
  in += _mm_popcnt_u32(dropped);
  portable::QuotedPrintableDecode(in, end, end, out);
  return static_cast<size_t>(out - buffer);
}

}  // namespace korvane::conversions::wide

#endif
