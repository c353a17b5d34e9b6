// Plain text as HTML, in two steps a stretch of text: the places where something changes are
// collected from masks of 64 bytes, then what lies between them is copied and the replacements are
// written. Neither step has a branch that depends on where exactly the places are.
#include <cstring>

#include "mime/conversions/html_pieces.h"
#include "mime/conversions/wide.h"

#ifdef KORVANE_WIDE_CONVERSIONS

namespace korvane::conversions::wide {

namespace {

constexpr size_t kBlock = 64;
constexpr size_t kStretch = 2048;

using Nibbles = std::array<uint8_t, 16>;

// Characters that differ in their lower halves are found by one look-up: the entry of a lower half
// is the character itself, or, where there is none, something with another lower half.
constexpr Nibbles MakeFinder(std::string_view characters) {
  Nibbles finder{};
  finder[0] = 1;
  for (const char character : characters) {
    finder[static_cast<uint8_t>(character) & 0x0F] = static_cast<uint8_t>(character);
  }
  return finder;
}

constexpr Nibbles kReplaced = MakeFinder("&<>\"'\r\n\t ");
constexpr Nibbles kBlanks = MakeFinder(" \t\r\n");
constexpr Nibbles kLineEnds = MakeFinder("\r\n");

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

// What the bytes before a block leave open in it, as a bit for its first byte.
struct Before {
  uint64_t line_end = 1;
  uint64_t carriage_return = 0;
};

// What becomes of 64 bytes, one bit a byte.
struct Fates {
  uint64_t replaced;        // all that are not copied, but for the next
  uint64_t second_of_pair;  // the LF of CR LF, which vanishes
  uint64_t hard_blanks;     // of the replaced
};

// There is at least one byte behind the block.
KORVANE_WIDE_INLINE Fates Judge(const char* at, Before& before) {
  _mm_prefetch(at + kAhead, _MM_HINT_T0);
  const __m256i low = Load(at);
  const __m256i high = Load(at + 32);
  const uint64_t found = Join(Find(low, kReplaced), Find(high, kReplaced));
  const uint64_t spaces =
      Join(_mm256_cmpeq_epi8(low, Each(' ')), _mm256_cmpeq_epi8(high, Each(' ')));
  const uint64_t blanks = Join(Find(low, kBlanks), Find(high, kBlanks));
  const uint64_t line_ends = Join(Find(low, kLineEnds), Find(high, kLineEnds));
  const uint64_t returns =
      Join(_mm256_cmpeq_epi8(low, Each('\r')), _mm256_cmpeq_epi8(high, Each('\r')));

  const uint64_t blank_follows =
      blanks >> 1 | (Bits(Find(Load(at + kBlock + 1 - 32), kBlanks)) & uint64_t{1} << 31) << 32;
  const uint64_t first_in_line = line_ends << 1 | before.line_end;
  const uint64_t hard_blanks = spaces & (blank_follows | first_in_line);
  const uint64_t second_of_pair = line_ends & ~returns & (returns << 1 | before.carriage_return);
  before = {line_ends >> 63, returns >> 63};
  return {(found & ~spaces & ~second_of_pair) | hard_blanks, second_of_pair, hard_blanks};
}

// What is written for a character, by its lower half; written eight bytes at a time.
struct Replacement {
  char bytes[8];
  size_t size;
};

constexpr std::array<Replacement, 16> MakeReplacements() {
  std::array<Replacement, 16> replacements{};
  for (const char character : std::string_view("&<>\"'\r\n ")) {
    const std::string_view html = character == ' ' ? kHardBlank : ReplacementOf(character);
    Replacement& replacement = replacements[static_cast<uint8_t>(character) & 0x0F];
    for (size_t i = 0; i < html.size(); ++i) replacement.bytes[i] = html[i];
    replacement.size = html.size();
  }
  return replacements;
}

constexpr std::array<Replacement, 16> kReplacements = MakeReplacements();

const Replacement& ReplacementFor(char character) {
  return kReplacements[static_cast<uint8_t>(character) & 0x0F];
}

bool StartsWithCrLf(const char* at) { return std::memcmp(at, "\r\n", 2) == 0; }

// Byte by byte: whether this one is replaced.
bool IsReplaced(const char* start, const char* at, const char* end) {
  if (*at == ' ') return !TextFollows(at, end) || at == start || IsLineEnd(at[-1]);
  if (*at == '\n') return at == start || at[-1] != '\r';
  return *at == '\t' || !ReplacementOf(*at).empty();
}

char* WriteTab(size_t width, bool last_stays, char* out) {
  for (; width > (last_stays ? 1 : 0); --width) {
    std::memcpy(out, kHardBlank.data(), kHardBlank.size());
    out += kHardBlank.size();
  }
  if (last_stays) *out++ = ' ';
  return out;
}

size_t TabSize(size_t width, bool last_stays) {
  return last_stays ? (width - 1) * kHardBlank.size() + 1 : width * kHardBlank.size();
}

// The places where something is replaced, in one stretch of a text after the other.
class Places {
 public:
  // Collects from `at` on, as distances from `at`; returns how far it came.
  KORVANE_WIDE size_t Collect(const char* start, const char* at, const char* end) {
    count_ = 0;
    size_t done = 0;
    const auto left = static_cast<size_t>(end - at);
    for (; left - done > kBlock; done += kBlock) {
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
  uint32_t places_[kStretch + kBlock + 8];
};

}  // namespace

KORVANE_WIDE size_t HtmlSize(const char* input, size_t size) {
  const char* const end = input + size;
  const char* at = input;
  size_t html = size;
  Columns columns(input);
  Before before;
  for (; static_cast<size_t>(end - at) > kBlock; at += kBlock) {
    const Fates fates = Judge(at, before);
    html += (kHardBlank.size() - 1) * static_cast<size_t>(_mm_popcnt_u64(fates.hard_blanks));
    // Counted below like a line end of its own.
    html -= ReplacementOf('\n').size() * static_cast<size_t>(_mm_popcnt_u64(fates.second_of_pair));
    __m256i sums = _mm256_setzero_si256();
    uint64_t tabs = 0;
    for (size_t i = 0; i < kBlock; i += 32) {
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
  const char* const end = input + size;
  const char* at = input;
  const char* plain = input;  // what is before this is written
  char* out = output;
  Columns columns(input);
  Places places;
  while (at < end) {
    const size_t stretch = places.Collect(input, at, end);
    for (const uint32_t distance : places) {
      const char* const place = at + distance;
      const auto run = static_cast<size_t>(place - plain);
      const Replacement& replacement = ReplacementFor(*place);
      // HTML is never shorter than its text: there is room for as much as is still to be read.
      if (static_cast<size_t>(end - place) >= kBlock + sizeof replacement.bytes && run <= kBlock &&
          *place != '\t') {
        _mm_prefetch(out + kAhead, _MM_HINT_T0);
        const __m256i low = Load(plain);
        const __m256i high = Load(plain + 32);
        Store(out, low);
        Store(out + 32, high);
        out += run;
        std::memcpy(out, replacement.bytes, sizeof replacement.bytes);
        out += replacement.size;
        // Not a branch: nothing foretells which of the places are line ends.
        plain = place + 1 + static_cast<size_t>(StartsWithCrLf(place));
        continue;
      }
      std::memcpy(out, plain, run);
      out += run;
      plain = place + 1;
      if (*place == '\t') {
        out = WriteTab(columns.WidthOf(place), TextFollows(place, end), out);
        continue;
      }
      std::memcpy(out, replacement.bytes, replacement.size);
      out += replacement.size;
      if (end - place >= 2 && StartsWithCrLf(place)) ++plain;
    }
    at += stretch;
  }
  const auto rest = static_cast<size_t>(end - plain);
  std::memcpy(out, plain, rest);
  return static_cast<size_t>(out - output) + rest;
}

}  // namespace korvane::conversions::wide

#endif
