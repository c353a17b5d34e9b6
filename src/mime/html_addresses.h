// Finds the addresses in HTML: the values of attributes that hold one, and url() in styles. It
// reads tags as browsers delimit them, in one pass, and understands nothing else of HTML.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

struct HtmlAddress {
  size_t begin;  ///< of the value, behind its quote
  size_t end;
  bool bare;  ///< an attribute's value without quotes
};

/// All addresses, in the order of the text.
std::vector<HtmlAddress> FindHtmlAddresses(std::string_view html);

/// The text with its character references undone; blanks at both ends go.
std::string WithoutReferences(std::string_view value);
/// The text with its percent signs undone.
std::string WithoutPercentSigns(std::string_view value);

}  // namespace korvane
