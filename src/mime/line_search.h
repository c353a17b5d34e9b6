// Finds what a parser looks for in a mail: a CR LF with certain characters behind it. Sixteen
// positions a step where the processor can, because whole bodies pass through here.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace korvane {

/// The position of the first CR LF at or after `from` and before `limit` that is followed by the
/// two characters of `behind`; npos when there is none. The match may reach beyond `limit`.
inline size_t FindLineEndBefore(std::string_view text, size_t from, size_t limit,
                                const char (&behind)[3]) {
  constexpr size_t kNone = std::string_view::npos;
  if (text.size() < 4) return kNone;
  // From here on positions are those of the LF.
  const size_t last = (limit < text.size() - 3 ? limit : text.size() - 3) + 1;
  const char* const data = text.data();
  size_t at = from + 1;
#ifdef __SSE2__
  const __m128i lf = _mm_set1_epi8('\n');
  const __m128i first = _mm_set1_epi8(behind[0]);
  const __m128i second = _mm_set1_epi8(behind[1]);
  for (; at + 18 <= text.size() && at < last; at += 16) {
    const auto* const block = reinterpret_cast<const __m128i*>(data + at);
    const auto* const next = reinterpret_cast<const __m128i*>(data + at + 1);
    const auto* const after = reinterpret_cast<const __m128i*>(data + at + 2);
    auto found = static_cast<unsigned>(_mm_movemask_epi8(
        _mm_and_si128(_mm_cmpeq_epi8(_mm_loadu_si128(block), lf),
                      _mm_and_si128(_mm_cmpeq_epi8(_mm_loadu_si128(next), first),
                                    _mm_cmpeq_epi8(_mm_loadu_si128(after), second)))));
    for (; found != 0; found &= found - 1) {
      const size_t hit = at + static_cast<size_t>(__builtin_ctz(found));
      if (hit >= last) return kNone;
      if (data[hit - 1] == '\r') return hit - 1;
    }
  }
#endif
  for (; at < last; ++at) {
    if (data[at] == '\n' && data[at - 1] == '\r' && data[at + 1] == behind[0] &&
        data[at + 2] == behind[1]) {
      return at - 1;
    }
  }
  return kNone;
}

}  // namespace korvane
