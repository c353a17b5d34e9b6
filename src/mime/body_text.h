// How a body is presented: plain, HTML inside <pre>, or bare HTML.
#pragma once

#include <string>
#include <string_view>

#include "../frame/enumerations.h"

namespace korvane {

/// Plain text as HTML, through the companion library. UTF-8 in, UTF-8 out.
std::string TextToHtml(std::string_view text);

/// The text of a part in the wanted format; only plain text is converted.
std::string FormatBodyText(std::string_view text, EEntitySubType subtype, ETextFormat format);

}  // namespace korvane
