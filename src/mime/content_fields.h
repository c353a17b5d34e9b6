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

  /// The text of the five that has this name (lower case), null when none has.
  std::string* Named(std::string_view name);

  /// Fills the five classified values from the five texts. `parent` is the enclosing multipart's
  /// subtype, PredNotImportant at the root. A value that a text says nothing about stays.
  void Classify(EEntitySubType parent);

  /// Makes it plain text to be shown as it stands, whatever the texts say.
  void BecomePlainText(EContentDisposition kind);

  /// The name of the file: that of the disposition, else that of the content type, bare; "" when
  /// neither has one.
  std::string FileName() const;
  /// The file name, or one that goes with the type.
  std::string FileNameOrDefault() const;
};

}  // namespace korvane
