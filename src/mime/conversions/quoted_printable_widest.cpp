// Quoted-printable, 62 bytes of 64 at a time, as the wide form decodes 30 of 32.
#include "mime/conversions/quoted_printable_escape.h"
#include "mime/conversions/widest.h"

#ifdef KORVANE_WIDE_CONVERSIONS

namespace korvane::conversions::widest {

namespace {

constexpr size_t kBlock = 64;
// The last two bytes of a block are looked at for the escapes before them only.
constexpr size_t kStride = 62;
constexpr uint64_t kJudged = (uint64_t{1} << kStride) - 1;

}  // namespace

KORVANE_WIDEST size_t QuotedPrintableDecode(char* buffer, size_t size) {
  const char* const end = buffer + size;
  char* out = buffer;
  // Behind the first escape a round may write as much as it has read without reaching what the next
  // one reads.
  const char* in = DecodeFirstEscape(end, out);
  const __m512i low_values = Load(kHexValues.data());
  const __m512i high_values = Load(kHexValues.data() + kBlock);
  uint64_t dropped = 0;  // bytes at `in` that belong to an escape before it, one bit each
  while (static_cast<size_t>(end - in) >= kBlock) {
    _mm_prefetch(in + wide::kAhead, _MM_HINT_T0);
    const __m512i bytes = Load(in);
    const uint64_t signs = _mm512_cmpeq_epi8_mask(bytes, Each('='));
    const uint64_t equals = signs & kJudged;
    const __m512i values = _mm512_permutex2var_epi8(low_values, bytes, high_values);
    const uint64_t valid = ~(_mm512_movepi8_mask(_mm512_or_si512(values, bytes)));
    const uint64_t escapes = equals & valid >> 1 & valid >> 2;
    const uint64_t breaks = equals & _mm512_cmpeq_epi8_mask(bytes, Each('\r')) >> 1 &
                            _mm512_cmpeq_epi8_mask(bytes, Each('\n')) >> 2;
    const uint64_t known = escapes | breaks;
    if (known != equals) {
      const char* const odd = in + _tzcnt_u64(known ^ equals);
      in += _mm_popcnt_u64(dropped);
      dropped = 0;
      in = portable::QuotedPrintableDecode(in, odd + 1, end, out);
      continue;
    }
    // Each value moved to the place of the byte before it, and of the one before that; what is no
    // digit must not be shifted into its neighbour.
    const __m512i second = _mm512_add_epi8(Numbers(), Each(1));
    const __m512i third = _mm512_add_epi8(Numbers(), Each(2));
    const __m512i high = _mm512_maskz_permutexvar_epi8(escapes, second, values);
    const __m512i low = _mm512_permutexvar_epi8(third, values);
    const __m512i decoded = _mm512_or_si512(_mm512_slli_epi16(high, 4), low);
    const uint64_t followers = known << 1 | known << 2;
    const uint64_t kept = ~(dropped | followers | breaks) & kJudged;
    Store(out, _mm512_maskz_compress_epi8(kept, _mm512_mask_mov_epi8(bytes, escapes, decoded)));
    out += _mm_popcnt_u64(kept);
    dropped = followers >> kStride;
    in += kStride;
  }
  in += _mm_popcnt_u64(dropped);
  portable::QuotedPrintableDecode(in, end, end, out);
  return static_cast<size_t>(out - buffer);
}

}  // namespace korvane::conversions::widest

#endif
