// HTML in a multipart/related with two images. What is found lies in the text and in its order;
// what is rewritten differs from it in those places only.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "mime/html_addresses.h"
#include "mime/multipart_entity.h"
#include "mime/related_links.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  const std::string_view html(reinterpret_cast<const char*>(data), size);
  size_t last = 0;
  for (const HtmlAddress& place : FindHtmlAddresses(html)) {
    if (place.begin < last || place.end < place.begin || place.end > size) std::abort();
    last = place.end;
    const std::string plain = WithoutReferences(html.substr(place.begin, place.end - place.begin));
    if (WithoutPercentSigns(plain).size() > plain.size()) std::abort();
  }

  ContentFields fields;
  fields.content_type = "multipart/related; boundary=\"=_not_in_any_seed_=\"";
  fields.Classify(EEntitySubType::PredNotImportant);
  std::string body = "\r\n\r\n--=_not_in_any_seed_=\r\nContent-Type: text/html\r\n\r\n";
  body += html;
  body +=
      "\r\n--=_not_in_any_seed_=\r\nContent-Type: image/gif\r\nContent-ID: <a@x>\r\n\r\nG"
      "\r\n--=_not_in_any_seed_=\r\nContent-Type: image/gif; name=b.gif\r\n\r\nG"
      "\r\n--=_not_in_any_seed_=--\r\n";
  MultipartEntity root;
  int32_t counter = 0;
  if (!root.InitMultipartRoot(fields, nullptr, counter, body)) std::abort();
  root.SaveEntityFiles(1, nullptr, false);
  if (root.Children().size() != 3) return 0;
  const MultipartEntity& page = *root.Children()[0];
  const std::string rewritten = RelatedLinks::Rewritten(page);
  bool all_listed = true;
  for (size_t i = 1; i < 3; ++i) {
    const bool linked =
        rewritten.find("/" + root.Children()[i]->NameOnServer()) != std::string::npos;
    if (!linked && !root.Children()[i]->IsAttachment()) std::abort();
    all_listed = all_listed && root.Children()[i]->IsAttachment();
  }
  if (all_listed && rewritten != page.Data()) std::abort();
  return 0;
}
