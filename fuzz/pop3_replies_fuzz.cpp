// Replies in pieces. The first byte chooses what is awaited, the second the size of the pieces. The
// same bytes in one piece a byte must give a reply of the same kind, and nothing of any reply may
// lie outside of what was fed.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "pop3/replies.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using korvane::ReplyKind;
  using Progress = korvane::ReplyReader::Progress;
  if (size < 2) return 0;
  const ReplyKind kinds[] = {ReplyKind::kLine, ReplyKind::kHeader, ReplyKind::kMessage};
  const ReplyKind kind = kinds[data[0] % 3];
  const size_t piece = data[1] % 64 + size_t{1};
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, size - 2);

  korvane::ReplyLimits limits;
  limits.status_line = 512;
  limits.text_line = 2000;
  limits.header = 4000;
  limits.message = 8000;
  korvane::ReplyReader reader(limits);
  reader.Expect(kind);
  bool positive = false;
  bool first = true;
  for (size_t i = 0; i < bytes.size(); i += piece) {
    const Progress progress = reader.Feed(bytes.substr(i, piece));
    if (first) positive = bytes[i] == '+';
    first = false;
    if (progress == Progress::kMore) continue;
    if (progress == Progress::kComplete && reader.InText()) {
      if (!positive) std::abort();
      const std::string text = reader.TakeText();
      if (bytes.find(text) == std::string_view::npos) std::abort();
    } else if (progress == Progress::kComplete && bytes.find(reader.Status()) == bytes.npos) {
      std::abort();
    }
    break;
  }
  reader.TakeWhatCame();

  korvane::StatCount(bytes);
  korvane::ReplyNumber(bytes);
  const korvane::ReplyField field = korvane::SecondReplyField(bytes);
  if (field.error == 0 && field.value.size() > bytes.size()) std::abort();
  return 0;
}
