// Replies that were asked for ahead. The first byte chooses what is awaited, the second the size of
// the pieces. However the bytes come, what counts as a whole reply is what a reader of replies
// takes for one, up to the same place.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "pop3/replies.h"
#include "pop3/reply_shape.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using korvane::ReplyForm;
  using korvane::ReplyLook;
  if (size < 2) return 0;
  const ReplyForm forms[] = {ReplyForm::kText, ReplyForm::kSize, ReplyForm::kUniqueId};
  const ReplyForm form = forms[data[0] % 3];
  const size_t piece = data[1] % 64 + size_t{1};
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, size - 2);

  korvane::ReplyShape shape({form, 5});
  std::string waiting;
  std::string given;
  for (size_t at = 0; at < bytes.size(); at += piece) {
    waiting += bytes.substr(at, piece);
    const ReplyLook look = shape.Look(waiting);
    if (look.shape == ReplyLook::Shape::kOther) return 0;
    if (look.length > waiting.size()) std::abort();
    shape.HandOn(look.length);
    given += waiting.substr(0, look.length);
    waiting.erase(0, look.length);
    if (look.shape == ReplyLook::Shape::kPart) continue;
    korvane::ReplyReader reader;
    reader.Expect(form == ReplyForm::kText ? korvane::ReplyKind::kHeader
                                           : korvane::ReplyKind::kLine);
    if (reader.Feed(given) != korvane::ReplyReader::Progress::kComplete) std::abort();
    if (form != ReplyForm::kText && reader.Status() != given) std::abort();
    // Cut anywhere, it is not whole.
    korvane::ReplyShape again({form, 5});
    if (again.Look(std::string_view(given).substr(0, given.size() - 1)).shape ==
        ReplyLook::Shape::kWhole) {
      std::abort();
    }
    return 0;
  }
  return 0;
}
