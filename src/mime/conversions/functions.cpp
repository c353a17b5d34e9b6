// The six conversion functions as the library exports them: arguments are checked and the form that
// suits the processor is chosen here.
#include "Tarsel_MailConversions.h"
#include "mime/conversions/conversions.h"

namespace conversions = korvane::conversions;

namespace {

// The input length behind `length`; 0 where there is nothing to work on.
size_t Size(const void* input, const int32_t* length) {
  return input == nullptr || *length <= 0 ? 0 : static_cast<size_t>(*length);
}

// A tab becomes eight "&nbsp;": only a text larger than this can outgrow the 32-bit lengths.
bool MayOutgrow(size_t size) { return size > conversions::kLongestHtml / (8 * 6); }

}  // namespace

int32_t MP_CALL Base64Decode(const char* input, char* output, int32_t* length) {
  if (length == nullptr) return 0;
  const size_t size = output == nullptr ? 0 : Size(input, length);
  return *length = static_cast<int32_t>(conversions::Chosen().base64_decode(input, size, output));
}

int32_t MP_CALL QuotedPrintableDecode(char* buffer, int32_t* length) {
  if (length == nullptr) return 0;
  const size_t size = Size(buffer, length);
  return *length =
             static_cast<int32_t>(conversions::Chosen().quoted_printable_decode(buffer, size));
}

int32_t MP_CALL UUDecode(const char* input, char* output, int32_t* length) {
  if (length == nullptr) return 0;
  const size_t size = output == nullptr ? 0 : Size(input, length);
  return *length = static_cast<int32_t>(conversions::Chosen().uu_decode(input, size, output));
}

int32_t MP_CALL UTF8Decode(uint16_t* text) {
  if (text != nullptr) conversions::portable::Utf8Decode(text);
  return 0;
}

int32_t MP_CALL NumCharReqPlusForConvTextToHTML(const char* input, int32_t length) {
  const size_t size = Size(input, &length);
  size_t html = conversions::Chosen().html_size(input, size);
  if (html > conversions::kLongestHtml) {
    html = conversions::portable::HtmlSize(input, size, conversions::kLongestHtml);
  }
  return html <= size ? 0 : static_cast<int32_t>(html - size);
}

int32_t MP_CALL ConvTextToHTML(const char* input, char* output, int32_t* length) {
  if (length == nullptr) return 0;
  const size_t size = output == nullptr ? 0 : Size(input, length);
  if (MayOutgrow(size) &&
      conversions::Chosen().html_size(input, size) > conversions::kLongestHtml) {
    return *length = static_cast<int32_t>(
               conversions::portable::TextToHtml(input, size, output, conversions::kLongestHtml));
  }
  return *length = static_cast<int32_t>(conversions::Chosen().text_to_html(input, size, output));
}
