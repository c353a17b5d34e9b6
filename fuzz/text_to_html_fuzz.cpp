// Text to HTML: every form that the processor can run against the plain one, in a buffer of exactly
// the size that is announced; nothing that markup could be made of is left in it, and a limit cuts
// it to a beginning of the whole.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "mime/conversions/conversions.h"

namespace conversions = korvane::conversions;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::vector<char> input(data, data + size);
  const size_t html = conversions::portable::HtmlSize(input.data(), size, SIZE_MAX);
  if (html < size / 2) std::abort();
  std::vector<char> plain(html);
  if (conversions::portable::TextToHtml(input.data(), size, plain.data(), SIZE_MAX) != html) {
    std::abort();
  }
  for (const conversions::Forms& form : conversions::AvailableForms()) {
    std::vector<char> output(html);
    if (form.html_size(input.data(), size) != html ||
        form.text_to_html(input.data(), size, output.data()) != html || output != plain) {
      std::abort();
    }
  }
  const auto forbidden = [](char c) {
    return c == '\r' || c == '\n' || c == '\t' || c == '"' || c == '\'';
  };
  if (std::any_of(plain.begin(), plain.end(), forbidden)) std::abort();

  const size_t limit = html * data[0] / 255;
  const size_t cut = conversions::portable::HtmlSize(input.data(), size, limit);
  std::vector<char> beginning(cut);
  if (cut > limit ||
      conversions::portable::TextToHtml(input.data(), size, beginning.data(), limit) != cut ||
      !std::equal(beginning.begin(), beginning.end(), plain.begin())) {
    std::abort();
  }
  return 0;
}
