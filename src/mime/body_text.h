// How a body is presented: plain, HTML inside <pre>, or bare HTML.
#pragma once

#include <string>
#include <string_view>

#include "../frame/enumerations.h"

namespace korvane {

/// Plain text as HTML, through the companion library. UTF-8 in, UTF-8 out.
std::string TextToHtml(std::string_view text);

/// The text of a part in the wanted format; only plain text is converted, and HTML is never
/// touched.
std::string FormatBodyText(std::string_view text, EEntitySubType subtype, ETextFormat format);

/// The same, appended to what `out` holds: a large body is then written once.
void AppendBodyText(std::string& out, std::string_view text, EEntitySubType subtype,
                    ETextFormat format);

}  // namespace korvane
