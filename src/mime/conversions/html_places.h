// What the vector forms of the conversion to HTML share: the tables that find what is replaced, and
// the second of their two steps, which copies what lies between the places and writes the
// replacements.
#pragma once

#include "mime/conversions/html_pieces.h"
#include "mime/conversions/wide.h"

#ifdef KORVANE_WIDE_CONVERSIONS

#include <string_view>

namespace korvane::conversions::wide {

constexpr size_t kHtmlBlock = 64;
/// The bytes whose places are collected at a time.
constexpr size_t kStretch = 2048;
/// As much as is copied between two places, whatever lies between them: more than a line of mail.
constexpr size_t kRun = 80;

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

/// What the bytes before a block leave open in it, as a bit for its first byte.
struct Before {
  uint64_t line_end = 1;
  uint64_t carriage_return = 0;
};

/// What becomes of 64 bytes, one bit a byte.
struct Fates {
  uint64_t replaced;        // all that are not copied, but for the next
  uint64_t second_of_pair;  // the LF of CR LF, which vanishes
  uint64_t hard_blanks;     // of the replaced
};

/// Which of 64 bytes are what, one bit a byte; `blank_follows` is said of the byte behind each.
struct Kinds {
  uint64_t found;  // whatever may be replaced
  uint64_t spaces;
  uint64_t blank_follows;
  uint64_t line_ends;
  uint64_t returns;
};

KORVANE_WIDE_INLINE Fates Judge(const Kinds& kinds, Before& before) {
  const uint64_t first_in_line = kinds.line_ends << 1 | before.line_end;
  const uint64_t hard_blanks = kinds.spaces & (kinds.blank_follows | first_in_line);
  const uint64_t second_of_pair =
      kinds.line_ends & ~kinds.returns & (kinds.returns << 1 | before.carriage_return);
  before = {kinds.line_ends >> 63, kinds.returns >> 63};
  return {(kinds.found & ~kinds.spaces & ~second_of_pair) | hard_blanks, second_of_pair,
          hard_blanks};
}

// What is written for a character, by its lower half; written eight bytes at a time.
struct Replacement {
  char bytes[8];
  uint32_t size;
  // What is copied before it must be shorter for both to be written at once; never before a tab.
  uint32_t run_limit;
};

constexpr std::array<Replacement, 16> MakeReplacements() {
  std::array<Replacement, 16> replacements{};
  for (const char character : std::string_view("&<>\"'\r\n ")) {
    const std::string_view html = character == ' ' ? kHardBlank : ReplacementOf(character);
    Replacement& replacement = replacements[static_cast<uint8_t>(character) & 0x0F];
    for (size_t i = 0; i < html.size(); ++i) replacement.bytes[i] = html[i];
    replacement.size = static_cast<uint32_t>(html.size());
    replacement.run_limit = kRun + 1;
  }
  return replacements;
}

inline constexpr std::array<Replacement, 16> kReplacements = MakeReplacements();

inline const Replacement& ReplacementFor(char character) {
  return kReplacements[static_cast<uint8_t>(character) & 0x0F];
}

inline bool StartsWithCrLf(const char* at) { return std::memcmp(at, "\r\n", 2) == 0; }

// Byte by byte: whether this one is replaced.
inline bool IsReplaced(const char* start, const char* at, const char* end) {
  if (*at == ' ') return !TextFollows(at, end) || at == start || IsLineEnd(at[-1]);
  if (*at == '\n') return at == start || at[-1] != '\r';
  return *at == '\t' || !ReplacementOf(*at).empty();
}

inline char* WriteTab(size_t width, bool last_stays, char* out) {
  for (; width > (last_stays ? 1 : 0); --width) {
    std::memcpy(out, kHardBlank.data(), kHardBlank.size());
    out += kHardBlank.size();
  }
  if (last_stays) *out++ = ' ';
  return out;
}

inline size_t TabSize(size_t width, bool last_stays) {
  return last_stays ? (width - 1) * kHardBlank.size() + 1 : width * kHardBlank.size();
}

/// `Places` collects, from one stretch of a text to the next, how far from the stretch's start
/// something is replaced; Collect(start, at, end) returns how far it came.
template <typename Places>
KORVANE_WIDE_INLINE size_t WriteHtml(const char* input, size_t size, char* output) {
  const char* const end = input + size;
  const char* at = input;
  const char* plain = input;  // what is before this is written
  char* out = output;
  Columns columns(input);
  Places places;
  while (at < end) {
    const size_t stretch = places.Collect(input, at, end);
    // HTML is never shorter than its text: there is room for as much as is still to be read.
    const bool room = static_cast<size_t>(end - at) >= stretch + kRun + sizeof(Replacement::bytes);
    for (const size_t distance : places) {
      const char* const place = at + distance;
      const auto run = static_cast<size_t>(place - plain);
      const Replacement& replacement = ReplacementFor(*place);
      if (run < replacement.run_limit && room) {
        _mm_prefetch(out + kAhead, _MM_HINT_T0);
        Store(out, Load(plain));
        Store(out + 32, Load(plain + 32));
        Store(out + 64, LoadHalf(plain + 64));
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
