// Builds the tree of entities of one message in one pass over its text. The text is looked at,
// never copied, until the body of a leaf is decoded out of it.
//
// Bad input never stops it. A part that holds nothing is dropped and gives its number back; a
// multipart without a boundary or without parts stays text, and so does what is nested or numbered
// beyond what a mail has any use for.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "delimiter_scanner.h"
#include "multipart_entity.h"

namespace korvane {

class EntityParser {
 public:
  static constexpr size_t kDeepest = 100;
  static constexpr int32_t kMostParts = 10'000;

  /// `text` is the range of the message to take apart; `counter` holds the last number given.
  EntityParser(std::string_view text, int32_t& counter)
      : text_(text), counter_(counter), delimiters_(text) {}

  /// Splits the body of a multipart that begins at `from`. False when it yielded no part.
  bool Split(MultipartEntity& multipart, const std::string& boundary, size_t from);
  /// Reads the part that begins at `begin` and ends at the next delimiter, or with the text. False
  /// when there is nothing to read.
  bool ReadPart(MultipartEntity& part, EEntitySubType parent, size_t begin);

  /// True when the tree holds a multipart/related.
  bool FoundRelated() const { return found_related_; }

 private:
  size_t BeginOfPart(size_t behind_boundary, size_t level);
  void AddPart(MultipartEntity& multipart, size_t begin);
  void AddRest(MultipartEntity& multipart, size_t begin);
  void ReadHeader(MultipartEntity& part, EEntitySubType parent, std::string_view header);
  void ReadBody(MultipartEntity& part, size_t blank_line);
  size_t BlankLineFrom(size_t position);
  size_t EndOfRange();

  std::string_view text_;
  int32_t& counter_;
  DelimiterScanner delimiters_;
  size_t blank_line_ = 0;  ///< the last one found; npos: none further on
  bool blank_line_known_ = false;
  std::string delimiter_;  ///< the boundary of the last header where it is not plain ASCII
  bool found_related_ = false;
};

}  // namespace korvane
