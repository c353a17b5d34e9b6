// The transport's dots and the transfer encodings of a body, through the companion library.
#include <cstdint>
#include <limits>

#include "Tarsel_MailConversions.h"
#include "frame/code_page.h"
#include "mime/header_fields.h"
#include "mime/line_search.h"

namespace korvane {

std::string UndoDotStuffing(std::string_view text) {
  if (text.starts_with('.')) text.remove_prefix(1);
  std::string out;
  out.reserve(text.size());
  size_t from = 0;
  for (size_t dot = FindLineEndBefore(text, 0, text.size(), "."); dot != std::string_view::npos;
       dot = FindLineEndBefore(text, from, text.size(), ".")) {
    out += text.substr(from, dot + 2 - from);
    from = dot + 3;
  }
  out += text.substr(from);
  return out;
}

std::string DecodeTransferEncoding(EEntityType type, ECharset charset,
                                   EContentTransferEncoding encoding, std::string_view body) {
  std::string out;
  // A body beyond what the library's lengths can say is kept as it came.
  const bool countable = body.size() <= static_cast<size_t>(std::numeric_limits<int32_t>::max());
  if (encoding == EContentTransferEncoding::base64 && countable) {
    // No dots are removed: the alphabet has none, and the decoder skips what is not in it.
    auto length = static_cast<int32_t>(body.size());
    out.resize(body.size() / 4 * 3 + body.size() % 4 * 3 / 4 + 2);
    Base64Decode(body.data(), out.data(), &length);
    out.resize(static_cast<size_t>(length));
  } else {
    out = UndoDotStuffing(body);
    if (encoding == EContentTransferEncoding::quoted_printable && countable) {
      auto length = static_cast<int32_t>(out.size());
      QuotedPrintableDecode(out.data(), &length);
      out.resize(static_cast<size_t>(length));
    }
  }
  if (type == EEntityType::Text && charset == ECharset::UTF_8) out = ToUtf8(std::move(out));
  return out;
}

}  // namespace korvane
