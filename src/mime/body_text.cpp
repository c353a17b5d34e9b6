#include "mime/body_text.h"

#include <cstdint>

#include "Tarsel_MailConversions.h"

namespace korvane {

namespace {

// The library counts in 32 bits, and a text may grow several times: a long one goes through it in
// pieces, cut behind a line end so that columns and blanks begin anew anyway.
constexpr size_t kPiece = size_t{64} << 20;

std::string_view TakePiece(std::string_view& rest) {
  std::string_view piece = rest.substr(0, kPiece);
  if (piece.size() < rest.size()) {
    const size_t line_end = piece.rfind('\n');
    if (line_end != std::string_view::npos) piece = piece.substr(0, line_end + 1);
  }
  rest.remove_prefix(piece.size());
  return piece;
}

void AppendHtml(std::string& out, std::string_view text) {
  while (!text.empty()) {
    const std::string_view piece = TakePiece(text);
    auto length = static_cast<int32_t>(piece.size());
    const int32_t more = NumCharReqPlusForConvTextToHTML(piece.data(), length);
    const size_t before = out.size();
    out.resize(before + piece.size() + static_cast<size_t>(more) + 1);
    ConvTextToHTML(piece.data(), out.data() + before, &length);
    out.resize(before + static_cast<size_t>(length));
  }
}

}  // namespace

std::string TextToHtml(std::string_view text) {
  std::string html;
  AppendHtml(html, text);
  return html;
}

void AppendBodyText(std::string& out, std::string_view text, EEntitySubType subtype,
                    ETextFormat format) {
  const bool plain = subtype == EEntitySubType::plain;
  const bool marked_up = subtype == EEntitySubType::enriched || subtype == EEntitySubType::richtext;
  const bool as_html = format == ETextFormat::TextFormat_HTML;
  const bool convert = plain && (as_html || format == ETextFormat::TextFormat_HTMLNoPRE);
  const bool preformatted = as_html && (plain || marked_up);
  if (preformatted) out += "<pre>";
  if (convert) {
    AppendHtml(out, text);
  } else {
    out += text;
  }
  if (preformatted) out += "</pre>";
}

std::string FormatBodyText(std::string_view text, EEntitySubType subtype, ETextFormat format) {
  std::string formatted;
  AppendBodyText(formatted, text, subtype, format);
  return formatted;
}

}  // namespace korvane
