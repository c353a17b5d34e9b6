// Encoding for a message text: the transfer encodings of a body (RFC 2045 section 6), encoded words
// (RFC 2047) and parameters (RFC 2231). The opposite directions are in header_fields.h.
#pragma once

#include <string>
#include <string_view>

namespace korvane {

/// How many bytes fill one line of base64: whoever encodes in blocks takes a multiple of it.
inline constexpr size_t kBase64Line = 57;

/// Lines of 76 characters, each with its CR LF, the last one too.
std::string EncodeBase64(std::string_view bytes);

/// Every byte comes back, bare CR and LF too. A text that does not end with CR LF ends with a soft
/// line break, so that what follows begins on a line of its own.
std::string EncodeQuotedPrintable(std::string_view text);

/// True when the text can stand in a message as it is: ASCII in lines of at most 78 characters
/// without blanks at their ends, the last one ended too.
bool NeedsNoEncoding(std::string_view text);
/// The same for bytes that are only to be carried whole: ASCII or not, in lines of at most 998.
bool HasCleanLines(std::string_view text);

/// A text of a header field, in encoded words where it cannot stand as it is.
std::string EncodeText(std::string_view text);
/// The same for a list of addresses: names are encoded, addresses stay.
std::string EncodeAddresses(std::string_view list);

/// "; name=value" with its fold in front, extended (RFC 2231) where the value asks for it.
std::string EncodeParameter(std::string_view name, std::string_view value);

}  // namespace korvane
