// Routines over header fields that need no state: unfolding (RFC 5322 section 2.2.3), encoded words
// (RFC 2047), structured values and their parameters (RFC 2045 section 5.1, RFC 2231), and the
// transfer decoding of a body. Positions are 0-based here; ranges are views. Every routine takes
// time linear in its input.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "../frame/enumerations.h"

namespace korvane {

/// Unfolds the header in place (a fold becomes three blanks) and splits it into logical lines,
/// which are views into `header`.
std::vector<std::string_view> UnfoldHeader(std::string& header);

/// Walks the fields of a header without changing or copying it: the way for a parser, since most
/// fields of a mail interest nobody and stay untouched.
///   HeaderReader fields(header);
///   while (fields.Next()) if (fields.Name() == "subject") subject = fields.Value();
class HeaderReader {
 public:
  explicit HeaderReader(std::string_view header);
  /// Goes to the next line that has a name; lines without one are passed over.
  bool Next();
  /// Trimmed and in lower case; "" when it is longer than any name that a table could hold.
  std::string_view Name() const { return {name_.data(), name_size_}; }
  /// Unfolded and trimmed, not decoded. Valid until the next call of Next or Value.
  std::string_view Value();

 private:
  void TakeName(std::string_view text);

  std::string_view rest_;
  std::string_view line_;  ///< the logical line, its folds still in it
  size_t colon_ = 0;
  bool folded_ = false;
  std::array<char, 32> name_{};
  size_t name_size_ = 0;
  std::string unfolded_;
};

/// The value with its encoded words decoded, as UTF-8, control characters turned into blanks.
/// `address_field`: a decoded word that holds what would cut an address list stands, with the words
/// around it, for a quoted text.
std::string DecodeEncodedWords(std::string_view value, bool address_field = false);

/// The same into a variable that may keep its memory: a value with nothing to decode is only
/// copied.
void DecodeEncodedWordsInto(std::string& decoded, std::string_view value,
                            bool address_field = false);

/// The text before the first ";", trimmed and lower-cased; without a ";" lower-cased only.
std::string MediaType(std::string_view value);

/// The unquoted value of a parameter, or "". The name is found as a plain substring, so "name" also
/// finds "filename". Where that finds nothing, the extended forms of RFC 2231 count.
std::string Parameter(std::string_view value, std::string_view name);

/// The n-th piece (from 1) of a text cut at `separator`, trimmed; "" when there are fewer.
std::string_view NthToken(std::string_view text, char separator, int32_t n);

/// True when the byte at `position` lies strictly between a pair of double quotes. A loop over
/// positions uses QuotePairs (quote_pairs.h), which does not begin anew at each.
bool IsInsideQuotes(std::string_view text, size_t position);

/// What stands between the first and the last double quote; without one the text, trimmed.
std::string_view Unquote(std::string_view text);

/// An identifier without its angle brackets.
std::string_view WithoutAngleBrackets(std::string_view text);

/// Without leading and trailing blanks.
std::string_view TrimBlanks(std::string_view text);

/// In lower case; letters of ASCII only.
std::string LowerCase(std::string_view text);

/// A bare file name from a path in a header: directories of both kinds and drives removed.
std::string FileNameFromPath(std::string_view path);

/// The body without the transport's dots (RFC 1939 section 3).
std::string UndoDotStuffing(std::string_view text);

/// Transfer decoding of a body (RFC 2045 section 6): transport dots removed where the encoding can
/// hold them, then decoded. Text in UTF-8 comes back well-formed, everything else as bytes; so the
/// body of a file that is to be kept as the sender encoded it is not asked for as UTF-8 text.
std::string DecodeTransferEncoding(EEntityType type, ECharset charset,
                                   EContentTransferEncoding encoding, std::string_view body);

}  // namespace korvane
