// What the forms of 64 bytes at a time share. They exist for the conversions whose output is a
// selection of their input: only here can a processor close up bytes at once.
#pragma once

#include "mime/conversions/wide.h"

#ifdef KORVANE_WIDE_CONVERSIONS

// Only functions marked so may use these instructions.
#define KORVANE_WIDEST_TARGET target("avx2,bmi,bmi2,popcnt,avx512f,avx512bw,avx512vbmi,avx512vbmi2")
#define KORVANE_WIDEST __attribute__((KORVANE_WIDEST_TARGET))
#define KORVANE_WIDEST_INLINE __attribute__((KORVANE_WIDEST_TARGET, always_inline)) inline

namespace korvane::conversions::widest {

KORVANE_WIDEST_INLINE __m512i Load(const void* from) { return _mm512_loadu_si512(from); }

KORVANE_WIDEST_INLINE void Store(void* to, __m512i bytes) { _mm512_storeu_si512(to, bytes); }

KORVANE_WIDEST_INLINE __m512i Each(char byte) { return _mm512_set1_epi8(byte); }

constexpr std::array<uint8_t, 64> MakeNumbers() {
  std::array<uint8_t, 64> numbers{};
  for (uint8_t i = 0; i < 64; ++i) numbers[i] = i;
  return numbers;
}

inline constexpr std::array<uint8_t, 64> kNumbers = MakeNumbers();

/// Each byte's own number.
KORVANE_WIDEST_INLINE __m512i Numbers() { return Load(kNumbers.data()); }

}  // namespace korvane::conversions::widest

#endif
