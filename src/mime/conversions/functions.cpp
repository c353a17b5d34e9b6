// The six conversion functions as the library exports them: arguments are checked and the form that
// suits the processor is chosen here.
#include "Tarsel_MailConversions.h"
#include "mime/conversions/conversions.h"

namespace conversions = korvane::conversions;

namespace {

// A tab becomes eight "&nbsp;": only a text larger than this can outgrow the 32-bit lengths.
bool MayOutgrow(size_t size) { return size > conversions::kLongestHtml / (8 * 6); }

size_t TextToHtml(const char* input, size_t size, char* output) {
  if (MayOutgrow(size) &&
      conversions::Chosen().html_size(input, size) > conversions::kLongestHtml) {
    return conversions::portable::TextToHtml(input, size, output, conversions::kLongestHtml);
  }
  return conversions::Chosen().text_to_html(input, size, output);
}

using Conversion = size_t (*)(const char* input, size_t size, char* output);

// What the functions that read one buffer and write another have in common.
int32_t Convert(const char* input, char* output, int32_t* length, Conversion conversion) {
  if (length == nullptr) return 0;
  const bool empty = input == nullptr || output == nullptr || *length <= 0;
  *length =
      empty ? 0 : static_cast<int32_t>(conversion(input, static_cast<size_t>(*length), output));
  return *length;
}

}  // namespace

int32_t MP_CALL Base64Decode(const char* input, char* output, int32_t* length) {
  return Convert(input, output, length, conversions::Chosen().base64_decode);
}

int32_t MP_CALL QuotedPrintableDecode(char* buffer, int32_t* length) {
  return Convert(buffer, buffer, length, [](const char*, size_t size, char* text) {
    return conversions::Chosen().quoted_printable_decode(text, size);
  });
}

int32_t MP_CALL UUDecode(const char* input, char* output, int32_t* length) {
  return Convert(input, output, length, conversions::Chosen().uu_decode);
}

int32_t MP_CALL UTF8Decode(uint16_t* text) {
  if (text != nullptr) conversions::portable::Utf8Decode(text);
  return 0;
}

int32_t MP_CALL NumCharReqPlusForConvTextToHTML(const char* input, int32_t length) {
  if (input == nullptr || length <= 0) return 0;
  const auto size = static_cast<size_t>(length);
  size_t html = conversions::Chosen().html_size(input, size);
  if (html > conversions::kLongestHtml) {
    html = conversions::portable::HtmlSize(input, size, conversions::kLongestHtml);
  }
  return html <= size ? 0 : static_cast<int32_t>(html - size);
}

int32_t MP_CALL ConvTextToHTML(const char* input, char* output, int32_t* length) {
  return Convert(input, output, length, TextToHtml);
}
