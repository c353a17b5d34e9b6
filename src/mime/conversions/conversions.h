// The conversions behind the companion library's six functions, on sizes that have been checked.
//
// `portable` is the plain form of each, one character at a time: it says what the result is. `wide`
// and `widest` give the same bytes with vector instructions of 32 and 64 bytes, where the processor
// has them. The choice between them is made once. None of these allocates, keeps state or reports
// an error.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

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

#if defined(__x86_64__)
#define KORVANE_WIDE_CONVERSIONS 1

/// As in `portable`, byte for byte. Only for processors whose AvailableForms() hold them.
namespace wide {

size_t Base64Decode(const char* input, size_t size, char* output);
size_t QuotedPrintableDecode(char* buffer, size_t size);
size_t UuDecode(const char* input, size_t size, char* output);
/// Without a limit: for texts whose HTML is known to stay within it.
size_t HtmlSize(const char* input, size_t size);
size_t TextToHtml(const char* input, size_t size, char* output);

}  // namespace wide

/// As in `wide`.
namespace widest {

size_t QuotedPrintableDecode(char* buffer, size_t size);
size_t TextToHtml(const char* input, size_t size, char* output);

}  // namespace widest
#endif

/// One form of each conversion.
struct Forms {
  size_t (*base64_decode)(const char* input, size_t size, char* output);
  size_t (*quoted_printable_decode)(char* buffer, size_t size);
  size_t (*uu_decode)(const char* input, size_t size, char* output);
  size_t (*html_size)(const char* input, size_t size);
  size_t (*text_to_html)(const char* input, size_t size, char* output);
};

/// What this processor can run: the plain forms first, the fastest last.
std::span<const Forms> AvailableForms();

/// The form of each conversion that suits this processor.
const Forms& Chosen();

}  // namespace korvane::conversions
