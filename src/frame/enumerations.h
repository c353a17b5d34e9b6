// The published enumerations. All values are 32-bit; a variable of one of these types may hold any
// 32-bit number, because scripts pass numbers. Member names are part of the published boundary,
// mixed case included.
#pragma once

#include <cstdint>

namespace korvane {

/// Which alternative of a multipart/alternative body is wanted.
enum class ETextAlternativeType : int32_t {
  AlterType_Default = 0,  ///< whichever comes first
  AlterType_Text = 1,
  AlterType_Html = 2,
};

/// How text is returned.
enum class ETextFormat : int32_t {
  TextFormat_Normal = 0,     ///< as it is
  TextFormat_HTML = 1,       ///< converted to HTML, plain text inside <pre>
  TextFormat_HTMLNoPRE = 2,  ///< converted to HTML without <pre>
};

/// Content-Disposition of an entity (RFC 2183).
enum class EContentDisposition : int32_t {
  ContDisp_Default = 0,  ///< absent
  ContDisp_Attachment = 1,
  ContDisp_Inline = 2,
};

/// MIME top-level type (RFC 2046).
enum class EEntityType : int32_t {
  Text = 0,
  Image = 1,
  audio = 2,
  video = 3,
  application = 4,
  multipart = 5,
  message = 6,
};

/// MIME subtype.
enum class EEntitySubType : int32_t {
  plain = 0,
  html = 1,
  enriched = 2,
  richtext = 3,
  jpeg = 4,
  bmp = 5,
  gif = 6,
  basic = 7,
  mpeg = 8,
  octet_stream = 9,
  postscript = 10,
  Mixed = 11,
  alternative = 12,
  Parallel = 13,
  Digest = 14,
  related = 15,
  Rfc822 = 16,
  partial = 17,
  external_Body = 18,
  Unrecognized = 19,      ///< any other subtype
  PredNotImportant = 20,  ///< where the subtype does not matter
};

/// Character set of a text entity, as far as it is told apart.
enum class ECharset : int32_t { us_ascii = 0, iso_8859_x = 1, UTF_8 = 2 };

/// Content-Transfer-Encoding (RFC 2045 section 6).
enum class EContentTransferEncoding : int32_t {
  T7Bit = 0,
  T8Bit = 1,
  Binary = 2,
  quoted_printable = 3,
  base64 = 4,
};

/// Where DeleteMessage deletes.
enum class EDelType : int32_t {
  DEL_TYPE_SERVER = 0,
  DEL_TYPE_LOCALE = 1,
  DEL_TYPE_LOCALE_SERVER = 2,
};

/// Sort key of a box listing.
enum class EMailOrder : int32_t {
  ORDER_DATA = 0,     ///< date
  ORDER_NAME = 1,     ///< sender
  ORDER_OBJECT = 2,   ///< subject
  ORDER_SIZE = 3,     ///< size
  ORDER_NAME_TO = 4,  ///< recipient
};

enum class EMailOrderDirection : int32_t { ORDER_ASC = 0, ORDER_DESC = 1 };

}  // namespace korvane
