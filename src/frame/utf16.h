// Texts at a border: UTF-16 outside, UTF-8 inside. NULs pass. A surrogate without
// its other half is no character; it becomes U+FFFD, and so does a byte that is not UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace korvane {

std::string FromUtf16(std::u16string_view text);
std::u16string ToUtf16(std::string_view utf8);

}  // namespace korvane
