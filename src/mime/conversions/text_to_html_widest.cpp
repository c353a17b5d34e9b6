// Plain text as HTML as the wide form writes it; the places are collected with instructions of 64
// bytes, which close up the numbers of a mask's bits at once.
#include "mime/conversions/html_places.h"
#include "mime/conversions/widest.h"

#ifdef KORVANE_WIDE_CONVERSIONS

namespace korvane::conversions::widest {

namespace {

using wide::Before;
using wide::kHtmlBlock;
using wide::kStretch;
using wide::Nibbles;

KORVANE_WIDEST_INLINE uint64_t Find(__m512i bytes, const Nibbles& finder) {
  const __m512i table =
      _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(finder.data())));
  return _mm512_cmpeq_epi8_mask(bytes, _mm512_shuffle_epi8(table, bytes));
}

// There is at least one byte behind the block.
KORVANE_WIDEST_INLINE uint64_t Replaced(const char* at, Before& before) {
  _mm_prefetch(at + wide::kAhead, _MM_HINT_T0);
  const __m512i bytes = Load(at);
  return Judge({.found = Find(bytes, wide::kReplaced),
                .spaces = _mm512_cmpeq_epi8_mask(bytes, Each(' ')),
                .blank_follows = Find(Load(at + 1), wide::kBlanks),
                .line_ends = Find(bytes, wide::kLineEnds),
                .returns = _mm512_cmpeq_epi8_mask(bytes, Each('\r'))},
               before)
      .replaced;
}

class Places {
 public:
  // Kept apart from the writing of the text, which wants all registers for itself.
  KORVANE_WIDEST __attribute__((noinline)) size_t Collect(const char* start, const char* at,
                                                          const char* end) {
    Before before = before_;
    uint16_t* to = places_;
    size_t done = 0;
    const auto left = static_cast<size_t>(end - at);
    for (; left - done > kHtmlBlock && done < kStretch; done += kHtmlBlock) {
      to = Add(Replaced(at + done, before), done, to);
    }
    before_ = before;
    if (done < kStretch) {
      for (; done < left; ++done) {
        if (wide::IsReplaced(start, at + done, end)) *to++ = static_cast<uint16_t>(done);
      }
    }
    end_ = to;
    return done;
  }

  const uint16_t* begin() const { return places_; }
  const uint16_t* end() const { return end_; }

 private:
  static KORVANE_WIDEST_INLINE uint16_t* Add(uint64_t mask, size_t base, uint16_t* to) {
    const __m512i numbers = _mm512_maskz_compress_epi8(mask, Numbers());
    const __m512i bases = _mm512_set1_epi16(static_cast<int16_t>(base));
    const auto count = static_cast<size_t>(_mm_popcnt_u64(mask));
    // In 32s, whatever their number: what is too many is overwritten.
    Store(to, _mm512_add_epi16(_mm512_cvtepu8_epi16(_mm512_castsi512_si256(numbers)), bases));
    if (count > 32) {
      Store(to + 32,
            _mm512_add_epi16(_mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(numbers, 1)), bases));
    }
    return to + count;
  }

  Before before_;
  uint16_t* end_ = nullptr;
  uint16_t places_[kStretch + 2 * kHtmlBlock];
};

}  // namespace

KORVANE_WIDEST size_t TextToHtml(const char* input, size_t size, char* output) {
  return wide::WriteHtml<Places>(input, size, output);
}

}  // namespace korvane::conversions::widest

#endif
