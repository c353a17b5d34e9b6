// The conversions behind the companion library's six functions, on sizes that have been checked.
//
// `portable` is the plain form of each, one character at a time: it says what the result is. `wide`
// gives the same bytes with vector instructions, where the processor has them. The choice between
// the two is made once, in functions.cpp. None of these allocates, keeps state or reports an error.
#pragma once

#include <cstddef>
#include <cstdint>

namespace korvane::conversions {

/// The longest HTML text that the interface's 32-bit lengths can describe, a terminator included.
constexpr size_t kLongestHtml = 0x7FFFFFFE;

namespace portable {

/// Writes at most 3 * size / 4 bytes; returns how many.
size_t Base64Decode(const char* input, size_t size, char* output);

/// Decodes in place; returns the new size.
size_t QuotedPrintableDecode(char* buffer, size_t size);

/// Writes at most 3 * size / 4 bytes; returns how many.
size_t UuDecode(const char* input, size_t size, char* output);

/// In place, up to the first 0.
void Utf8Decode(uint16_t* text);

/// The size of the HTML form of the text; it stops before the first character whose HTML would
/// take it beyond `limit`.
size_t HtmlSize(const char* input, size_t size, size_t limit);

/// Writes exactly HtmlSize(input, size, limit) bytes; returns how many.
size_t TextToHtml(const char* input, size_t size, char* output, size_t limit);

}  // namespace portable

}  // namespace korvane::conversions
