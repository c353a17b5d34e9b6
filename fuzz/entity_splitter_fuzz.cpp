// The body of a multipart whose boundary is "b". The tree that comes of it keeps its promises.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "frame/code_page.h"
#include "mime/multipart_entity.h"

namespace {

using korvane::EEntityType;
using korvane::MultipartEntity;

void Check(const MultipartEntity& entity, int32_t& number, int depth) {
  if (entity.EntityNumber() != number) std::abort();  // in document order, without gaps
  if (depth > 101 || number > 10'101) std::abort();
  const EEntityType type = entity.Fields().type;
  if ((type == EEntityType::multipart) == entity.Children().empty()) std::abort();
  if (type == EEntityType::Text && !entity.IsAttachment() && !korvane::IsUtf8(entity.Data())) {
    std::abort();
  }
  for (const auto& child : entity.Children()) Check(*child, ++number, depth + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view body(reinterpret_cast<const char*>(data), size);
  korvane::ContentFields fields;
  fields.content_type = "multipart/mixed; boundary=b";
  fields.Classify(korvane::EEntitySubType::PredNotImportant);
  MultipartEntity root;
  int32_t counter = 0;
  if (root.InitMultipartRoot(fields, nullptr, counter, body)) {
    int32_t number = 0;
    Check(root, number, 0);
    if (number != counter) std::abort();
  } else if (counter != 0) {
    std::abort();  // dropped parts give their numbers back
  }
  MultipartEntity part;
  part.InitChild(root, counter, body);
  return 0;
}
