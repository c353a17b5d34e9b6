// What the vector forms share: the instructions that they are compiled for, and the packing of
// six-bit values, which Base64 and uuencoding have in common.
#pragma once

#include "mime/conversions/conversions.h"

#ifdef KORVANE_WIDE_CONVERSIONS

// GCC sees uninitialised values in its own header (its bug 105593).
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif
#include <immintrin.h>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

#include <array>

// Only functions marked so may use these instructions: the rest of the library runs on any x86.
#define KORVANE_WIDE __attribute__((target("avx2,bmi,bmi2,popcnt")))
#define KORVANE_WIDE_INLINE __attribute__((target("avx2,bmi,bmi2,popcnt"), always_inline)) inline

namespace korvane::conversions::wide {

KORVANE_WIDE_INLINE __m256i Load(const void* from) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}

KORVANE_WIDE_INLINE void Store(void* to, __m256i bytes) {
  _mm256_storeu_si256(static_cast<__m256i*>(to), bytes);
}

KORVANE_WIDE_INLINE __m128i LoadHalf(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

KORVANE_WIDE_INLINE void Store(void* to, __m128i bytes) {
  _mm_storeu_si128(static_cast<__m128i*>(to), bytes);
}

KORVANE_WIDE_INLINE __m256i Each(char byte) { return _mm256_set1_epi8(byte); }

/// How far ahead a loop asks for its input. Rounds of this length keep the processor's own
/// prefetching from seeing far enough: on texts larger than the caches this doubles their speed.
constexpr size_t kAhead = 2048;

/// One bit for each byte whose top bit is set.
KORVANE_WIDE_INLINE uint32_t Bits(__m256i bytes) {
  return static_cast<uint32_t>(_mm256_movemask_epi8(bytes));
}

/// A table of 16 bytes, looked up by the low half of each byte; 0 for bytes from 0x80 up.
KORVANE_WIDE_INLINE __m256i Table(const std::array<uint8_t, 16>& table) {
  return _mm256_broadcastsi128_si256(
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(table.data())));
}

/// 32 values of six bits as 24 bytes, in the lower part of the result.
KORVANE_WIDE_INLINE __m256i PackSextets(__m256i values) {
  const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
  const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
  const __m256i order = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1,  //
                                         2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
  return _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(groups, order),
                                     _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
}

}  // namespace korvane::conversions::wide

#endif
