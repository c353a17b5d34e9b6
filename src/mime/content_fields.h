// The MIME fields of a header and what they are classified as; a message and every entity has them.
#pragma once

#include <string>
#include <string_view>

#include "../frame/enumerations.h"

namespace korvane {

struct ContentFields {
  std::string content_type;
  std::string transfer_encoding;
  std::string disposition;
  std::string location;
  std::string id;

  EEntityType type = EEntityType::Text;
  EEntitySubType subtype = EEntitySubType::plain;
  ECharset charset = ECharset::us_ascii;
  EContentTransferEncoding encoding = EContentTransferEncoding::T7Bit;
  EContentDisposition disposition_kind = EContentDisposition::ContDisp_Default;

  /// Takes a decoded field value when `name` (lower case) is one of the five; a later one wins.
  bool Take(std::string_view name, std::string_view value);

  /// Fills the five classified values from the five texts. `parent` is the enclosing multipart's
  /// subtype, PredNotImportant at the root.
  void Classify(EEntitySubType parent);
};

}  // namespace korvane
