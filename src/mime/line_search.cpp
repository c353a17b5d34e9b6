#include "mime/line_search.h"

#include <algorithm>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace korvane {

namespace {

constexpr size_t kNone = std::string_view::npos;
constexpr size_t kBlock = 16;

#ifdef __SSE2__
__m128i Load(const char* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); }

// One bit for each of the sixteen bytes that is `c`.
unsigned Matches(const char* at, __m128i c) {
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(Load(at), c)));
}
#endif

template <size_t kCount>
size_t Find(std::string_view text, size_t from, size_t limit, const char* behind) {
  if (text.size() < kCount + 2) return kNone;
  // From here on positions are those of the LF.
  const size_t last = std::min(limit, text.size() - kCount - 1) + 1;
  const char* const data = text.data();
  size_t at = from + 1;
#ifdef __SSE2__
  const __m128i lf = _mm_set1_epi8('\n');
  const __m128i first = _mm_set1_epi8(behind[0]);
  const __m128i second = _mm_set1_epi8(behind[kCount - 1]);
  for (; at + kBlock + kCount <= text.size() && at < last; at += kBlock) {
    unsigned found = Matches(data + at, lf) & Matches(data + at + 1, first);
    if constexpr (kCount == 2) found &= Matches(data + at + 2, second);
    for (; found != 0; found &= found - 1) {
      const size_t hit = at + static_cast<size_t>(__builtin_ctz(found));
      if (hit >= last) return kNone;
      if (data[hit - 1] == '\r') return hit - 1;
    }
  }
#endif
  for (; at < last; ++at) {
    if (data[at] == '\n' && data[at - 1] == '\r' &&
        std::memcmp(data + at + 1, behind, kCount) == 0) {
      return at - 1;
    }
  }
  return kNone;
}

size_t CountLineFeeds(std::string_view text) {
  size_t lines = 0;
  size_t at = 0;
#ifdef __SSE2__
  const __m128i lf = _mm_set1_epi8('\n');
  for (; at + kBlock <= text.size(); at += kBlock) {
    lines += static_cast<size_t>(__builtin_popcount(Matches(text.data() + at, lf)));
  }
#endif
  for (; at < text.size(); ++at) lines += text[at] == '\n' ? 1 : 0;
  return lines;
}

// The text with a CR before every LF; there are `lines` of those.
std::string WithCarriageReturns(std::string_view text, size_t lines) {
  // Whole blocks are stored, also where a line end cuts them short: hence the room behind the end.
  std::string spread(text.size() + lines + kBlock, '\0');
  char* out = spread.data();
  const char* in = text.data();
  const char* const end = in + text.size();
#ifdef __SSE2__
  const __m128i lf = _mm_set1_epi8('\n');
  while (end - in >= static_cast<ptrdiff_t>(kBlock)) {
    const __m128i block = Load(in);
    const auto found = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, lf)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), block);
    if (found == 0) {
      in += kBlock;
      out += kBlock;
    } else {
      const int before = __builtin_ctz(found);
      in += before + 1;
      out += before;
      *out++ = '\r';
      *out++ = '\n';
    }
  }
#endif
  for (; in != end; ++in) {
    if (*in == '\n') *out++ = '\r';
    *out++ = *in;
  }
  spread.resize(text.size() + lines);
  return spread;
}

}  // namespace

size_t FindLineEndBefore(std::string_view text, size_t from, size_t limit,
                         const char (&behind)[2]) {
  return Find<1>(text, from, limit, behind);
}

size_t FindLineEndBefore(std::string_view text, size_t from, size_t limit,
                         const char (&behind)[3]) {
  return Find<2>(text, from, limit, behind);
}

void ReadLineFeedsAsLineEnds(std::string& text) {
  // In an ordinary mail the first line answers.
  const size_t lf = text.find('\n');
  if (lf == std::string::npos || (lf > 0 && text[lf - 1] == '\r')) return;
  if (lf != 0 && text.find("\n\n", lf) == std::string::npos) return;
  if (text.find("\r\n", lf) != std::string::npos) return;
  text = WithCarriageReturns(text, CountLineFeeds(text));
}

}  // namespace korvane
