// Plain text as HTML, in two steps a stretch of text: the places where something changes are
// collected from masks of 64 bytes, then what lies between them is copied and the replacements are
// written. Neither step has a branch that depends on where exactly the places are.
#include "mime/conversions/html_places.h"

#ifdef KORVANE_WIDE_CONVERSIONS

namespace korvane::conversions::wide {

namespace {

// How many bytes longer the replacement is, by the lower half of what is replaced; for blanks and
// tabs nothing, they are counted apart.
constexpr Nibbles MakeGrowth() {
  Nibbles growth{};
  for (const char character : std::string_view("&<>\"'\r\n")) {
    growth[static_cast<uint8_t>(character) & 0x0F] =
        static_cast<uint8_t>(ReplacementOf(character).size() - 1);
  }
  return growth;
}

constexpr Nibbles kGrowth = MakeGrowth();

KORVANE_WIDE_INLINE __m256i Find(__m256i bytes, const Nibbles& finder) {
  return _mm256_cmpeq_epi8(bytes, _mm256_shuffle_epi8(Table(finder), bytes));
}

KORVANE_WIDE_INLINE uint64_t Join(__m256i low, __m256i high) {
  return Bits(low) | uint64_t{Bits(high)} << 32;
}

// There is at least one byte behind the block.
KORVANE_WIDE_INLINE Fates Judge(const char* at, Before& before) {
  _mm_prefetch(at + kAhead, _MM_HINT_T0);
  const __m256i low = Load(at);
  const __m256i high = Load(at + 32);
  const uint64_t blanks = Join(Find(low, kBlanks), Find(high, kBlanks));
  const uint64_t last = Bits(Find(Load(at + kHtmlBlock + 1 - 32), kBlanks)) & uint64_t{1} << 31;
  return Judge(
      {.found = Join(Find(low, kReplaced), Find(high, kReplaced)),
       .spaces = Join(_mm256_cmpeq_epi8(low, Each(' ')), _mm256_cmpeq_epi8(high, Each(' '))),
       .blank_follows = blanks >> 1 | last << 32,
       .line_ends = Join(Find(low, kLineEnds), Find(high, kLineEnds)),
       .returns = Join(_mm256_cmpeq_epi8(low, Each('\r')), _mm256_cmpeq_epi8(high, Each('\r')))},
      before);
}

// The places where something is replaced, in one stretch of a text after the other.
class Places {
 public:
  // Collects from `at` on, as distances from `at`; returns how far it came.
  KORVANE_WIDE size_t Collect(const char* start, const char* at, const char* end) {
    count_ = 0;
    size_t done = 0;
    const auto left = static_cast<size_t>(end - at);
    for (; left - done > kHtmlBlock; done += kHtmlBlock) {
      if (done == kStretch) return done;
      Add(Judge(at + done, before_).replaced, static_cast<uint32_t>(done));
    }
    for (; done < left; ++done) {
      if (IsReplaced(start, at + done, end)) places_[count_++] = static_cast<uint32_t>(done);
    }
    return done;
  }

  const uint32_t* begin() const { return places_; }
  const uint32_t* end() const { return places_ + count_; }

 private:
  KORVANE_WIDE_INLINE void Add(uint64_t mask, uint32_t base) {
    uint32_t* to = places_ + count_;
    count_ += static_cast<size_t>(_mm_popcnt_u64(mask));
    // In eights, whatever their number: what is too many is overwritten.
    do {
      for (int i = 0; i < 8; ++i) {
        *to++ = base + static_cast<uint32_t>(_tzcnt_u64(mask));
        mask = _blsr_u64(mask);
      }
    } while (mask != 0);
  }

  Before before_;
  size_t count_ = 0;
  uint32_t places_[kStretch + kHtmlBlock + 8];
};

}  // namespace

KORVANE_WIDE size_t HtmlSize(const char* input, size_t size) {
  const char* const end = input + size;
  const char* at = input;
  size_t html = size;
  Columns columns(input);
  Before before;
  for (; static_cast<size_t>(end - at) > kHtmlBlock; at += kHtmlBlock) {
    const Fates fates = Judge(at, before);
    html += (kHardBlank.size() - 1) * static_cast<size_t>(_mm_popcnt_u64(fates.hard_blanks));
    // Counted below like a line end of its own.
    html -= ReplacementOf('\n').size() * static_cast<size_t>(_mm_popcnt_u64(fates.second_of_pair));
    __m256i sums = _mm256_setzero_si256();
    uint64_t tabs = 0;
    for (size_t i = 0; i < kHtmlBlock; i += 32) {
      const __m256i bytes = Load(at + i);
      const __m256i growth =
          _mm256_and_si256(_mm256_shuffle_epi8(Table(kGrowth), bytes), Find(bytes, kReplaced));
      sums = _mm256_add_epi64(sums, _mm256_sad_epu8(growth, _mm256_setzero_si256()));
      tabs |= uint64_t{Bits(_mm256_cmpeq_epi8(bytes, Each('\t')))} << i;
    }
    const __m128i pair =
        _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
    html += static_cast<uint64_t>(_mm_cvtsi128_si64(pair)) +
            static_cast<uint64_t>(_mm_extract_epi64(pair, 1));
    for (; tabs != 0; tabs = _blsr_u64(tabs)) {
      const char* const tab = at + _tzcnt_u64(tabs);
      html += TabSize(columns.WidthOf(tab), TextFollows(tab, end)) - 1;
    }
  }
  for (; at < end; ++at) {
    if (*at == '\t') {
      html += TabSize(columns.WidthOf(at), TextFollows(at, end)) - 1;
    } else if (IsReplaced(input, at, end)) {
      html += ReplacementFor(*at).size - 1;
    } else if (*at == '\n') {
      html -= 1;
    }
  }
  return html;
}

KORVANE_WIDE size_t TextToHtml(const char* input, size_t size, char* output) {
  return WriteHtml<Places>(input, size, output);
}

}  // namespace korvane::conversions::wide

#endif
