// Base64, 32 characters at a time, and whole lines where they are as long as the line before.
//
// Nearly all Base64 in mail comes in lines of one length, a multiple of four. Once a line's length
// is known, the next line is taken as having it: its blocks are then independent of each other (the
// last one reaches back into the one before instead of over the line end), and one test at the end
// tells whether the guess was right. Whatever is irregular goes character by character until the
// quantum is whole again.
#include "mime/conversions/base64_quantum.h"
#include "mime/conversions/wide.h"

#ifdef KORVANE_WIDE_CONVERSIONS

namespace korvane::conversions::wide {

namespace {

constexpr size_t kBlock = 32;
constexpr size_t kBlockBytes = 24;

using Nibbles = std::array<uint8_t, 16>;

// Which characters an upper half makes with the 16 lower halves.
constexpr uint16_t Members(unsigned upper) {
  unsigned members = 0;
  for (unsigned lower = 0; lower < 16; ++lower) {
    if (kBase64Values[upper << 4 | lower] < kBase64Padding) members |= 1u << lower;
  }
  return static_cast<uint16_t>(members);
}

// A character is outside the alphabet when the entries for its two halves share a bit. Upper halves
// with the same members share a bit of their own; the entry of a lower half holds the bits of those
// that it makes no character with.
struct Classes {
  Nibbles upper{};
  Nibbles lower{};
};

constexpr Classes MakeClasses() {
  Classes classes;
  unsigned bit = 1;
  for (unsigned upper = 0; upper < 16; ++upper) {
    for (unsigned before = 0; before < upper; ++before) {
      if (Members(before) == Members(upper)) classes.upper[upper] = classes.upper[before];
    }
    if (classes.upper[upper] != 0) continue;
    classes.upper[upper] = static_cast<uint8_t>(bit);
    for (unsigned lower = 0; lower < 16; ++lower) {
      if ((Members(upper) >> lower & 1) == 0) {
        classes.lower[lower] = static_cast<uint8_t>(classes.lower[lower] | bit);
      }
    }
    bit <<= 1;
  }
  return classes;
}

// What has to be added to a character to make it its value depends on its upper half only, but for
// "/", which shares one with "+": it takes the entry of upper half 1, which has no character.
constexpr unsigned kSlashEntry = 1;

constexpr Nibbles MakeOffsets() {
  Nibbles offsets{};
  const auto offset = [](char character) {
    return static_cast<uint8_t>(kBase64Values[static_cast<uint8_t>(character)] - character);
  };
  offsets['/' >> 4] = offset('+');
  offsets[kSlashEntry] = offset('/');
  offsets['0' >> 4] = offset('0');
  offsets['A' >> 4] = offsets['Z' >> 4] = offset('A');
  offsets['a' >> 4] = offsets['z' >> 4] = offset('a');
  return offsets;
}

constexpr Classes kClasses = MakeClasses();
constexpr Nibbles kOffsets = MakeOffsets();

KORVANE_WIDE_INLINE __m256i UpperHalves(__m256i characters) {
  return _mm256_and_si256(_mm256_srli_epi16(characters, 4), Each(0x0F));
}

// Not 0 in each byte that is no character of the alphabet.
KORVANE_WIDE_INLINE __m256i Outside(__m256i characters) {
  const __m256i lower = _mm256_and_si256(characters, Each(0x0F));
  return _mm256_and_si256(_mm256_shuffle_epi8(Table(kClasses.upper), UpperHalves(characters)),
                          _mm256_shuffle_epi8(Table(kClasses.lower), lower));
}

KORVANE_WIDE_INLINE __m256i Decode(__m256i characters) {
  const __m256i slash = _mm256_cmpeq_epi8(characters, Each('/'));
  const __m256i entry = _mm256_add_epi8(UpperHalves(characters), slash);
  return PackSextets(_mm256_add_epi8(characters, _mm256_shuffle_epi8(Table(kOffsets), entry)));
}

static_assert(('/' >> 4) - 1 == kSlashEntry);

// The lines as the last one was: how many characters, whole quanta, and how many bytes end it.
struct Line {
  size_t length = 0;  // 0: not known; at least a block
  size_t end = 0;
};

KORVANE_WIDE_INLINE bool EndsAt(const char* at, size_t end) {
  return end == 2 ? at[0] == '\r' && at[1] == '\n' : at[0] == '\n';
}

}  // namespace

KORVANE_WIDE size_t Base64Decode(const char* input, size_t size, char* output) {
  const char* in = input;
  const char* const end = input + size;
  const char* line_start = input;
  char* out = output;
  Line line;
  // 32 bytes are written where 24 count. A block needs 43 characters for that to stay within
  // three quarters of the input, a line 11 more than it has.
  constexpr size_t kRoom = 16;
  while (static_cast<size_t>(end - in) >= kBlock + kRoom) {
    while (line.length != 0 && static_cast<size_t>(end - in) >= line.length + kRoom) {
      _mm_prefetch(in + kAhead, _MM_HINT_T0);
      _mm_prefetch(in + kAhead + 64, _MM_HINT_T0);
      _mm_prefetch(out + kAhead, _MM_HINT_T0);
      __m256i outside = _mm256_setzero_si256();
      size_t i = 0;
      for (; i + kBlock < line.length; i += kBlock) {
        const __m256i characters = Load(in + i);
        outside = _mm256_or_si256(outside, Outside(characters));
        Store(out + i / 4 * 3, Decode(characters));
      }
      i = line.length - kBlock;
      const __m256i characters = Load(in + i);
      outside = _mm256_or_si256(outside, Outside(characters));
      Store(out + i / 4 * 3, Decode(characters));
      if (!_mm256_testz_si256(outside, outside) || !EndsAt(in + line.length, line.end)) {
        line.length = 0;
        break;
      }
      in += line.length + line.end;
      out += line.length / 4 * 3;
      line_start = in;
    }
    if (static_cast<size_t>(end - in) < kBlock + kRoom) break;

    _mm_prefetch(in + kAhead, _MM_HINT_T0);
    const __m256i characters = Load(in);
    const uint32_t inside = Bits(_mm256_cmpeq_epi8(Outside(characters), _mm256_setzero_si256()));
    Store(out, Decode(characters));
    if (inside == 0xFFFFFFFF) {
      in += kBlock;
      out += kBlockBytes;
      continue;
    }
    const size_t good = _tzcnt_u32(~inside) & ~size_t{3};
    in += good;
    out += good / 4 * 3;
    const size_t line_end = in[0] == '\n' ? 1 : EndsAt(in, 2) ? 2 : 0;
    if (line_end == 0) {
      // Something inside a quantum, or padding: on to the end of that quantum.
      in = DecodeQuantum(in, end, out);
      line_start = nullptr;
      continue;
    }
    const size_t length = line_start == nullptr ? 0 : static_cast<size_t>(in - line_start);
    line = length >= kBlock ? Line{length, line_end} : Line{};
    in += line_end;
    line_start = in;
  }
  out += portable::Base64Decode(in, static_cast<size_t>(end - in), out);
  return static_cast<size_t>(out - output);
}

}  // namespace korvane::conversions::wide

#endif
