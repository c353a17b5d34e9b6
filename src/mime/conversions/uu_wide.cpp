// The data lines of a uuencoded file, 32 characters at a time where a line is as long as its count
// says and long enough; any other line goes the portable way.
#include <cstring>

#include "mime/conversions/wide.h"

#ifdef KORVANE_WIDE_CONVERSIONS

namespace korvane::conversions::wide {

namespace {

constexpr size_t kBlock = 32;

KORVANE_WIDE_INLINE __m256i Decode(__m256i characters) {
  return PackSextets(_mm256_and_si256(_mm256_sub_epi8(characters, Each(' ')), Each(0x3F)));
}

// The end of the line at `in`, with its line end.
const char* NextLine(const char* in, const char* end) {
  const auto* feed = static_cast<const char*>(std::memchr(in, '\n', static_cast<size_t>(end - in)));
  return feed == nullptr ? end : feed + 1;
}

}  // namespace

KORVANE_WIDE size_t UuDecode(const char* input, size_t size, char* output) {
  const char* in = input;
  const char* const end = input + size;
  char* out = output;
  // The lines of a file are alike: as long as they are, where the next one starts does not have to
  // wait for the count of this one to be read.
  char mark = ' ';
  size_t count = 0;
  size_t characters = 0;
  while (in < end) {
    if (*in != mark) {
      mark = *in;
      count = (static_cast<uint8_t>(mark) - 32u) & 63u;
      // A line end has a value like any character, but is an empty line.
      characters = mark == '\n' ? 0 : (count + 2) / 3 * 4;
    }
    // A block's store reaches 8 bytes beyond what it decodes; the characters behind it leave room.
    if (characters >= kBlock && static_cast<size_t>(end - in) >= 1 + characters + 2 + 16) {
      const char* const line = in + 1;
      _mm_prefetch(line + kAhead, _MM_HINT_T0);
      _mm_prefetch(out + kAhead, _MM_HINT_T0);
      const size_t last = characters - kBlock;
      const __m256i first_block = Load(line);
      const __m256i last_block = Load(line + last);
      // The longest line has 84 characters: two blocks reach over 64 of them.
      const __m256i middle_block = Load(line + (last > kBlock ? kBlock : last));
      const __m256i feed = Each('\n');
      const __m256i feeds = _mm256_or_si256(_mm256_or_si256(_mm256_cmpeq_epi8(first_block, feed),
                                                            _mm256_cmpeq_epi8(middle_block, feed)),
                                            _mm256_cmpeq_epi8(last_block, feed));
      if (_mm256_testz_si256(feeds, feeds) && line[characters] == '\r' &&
          line[characters + 1] == '\n') {
        Store(out, Decode(first_block));
        if (last > kBlock) Store(out + kBlock / 4 * 3, Decode(middle_block));
        Store(out + last / 4 * 3, Decode(last_block));
        out += count;
        in = line + characters + 2;
        continue;
      }
    }
    const char* const next = NextLine(in, end);
    out += portable::UuDecode(in, static_cast<size_t>(next - in), out);
    in = next;
  }
  return static_cast<size_t>(out - output);
}

}  // namespace korvane::conversions::wide

#endif
