// Replies in pieces, one after the other. The first byte chooses what is awaited, the second the
// size of the pieces. A text needs a positive first character, and everything that a reply holds
// must lie in what was fed.
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
  std::string_view fed;
  for (size_t i = 0; i < bytes.size(); i += piece) {
    const Progress progress = reader.Feed(bytes.substr(i, piece));
    fed = bytes.substr(0, i + piece);
    if (progress == Progress::kTooLong) break;
    if (progress == Progress::kComplete) {
      const std::string held = reader.InText() ? reader.TakeText() : reader.Status();
      if (fed.find(held) == std::string_view::npos) std::abort();
      if (reader.InText() && fed.find('+') == std::string_view::npos) std::abort();
      reader.Expect(kind);
    } else if (i / piece % 7 == 6 && reader.TakeWhatCame()) {
      // The peer fell silent; the rest of the line comes with the next pieces.
      if (fed.find(reader.Status()) == std::string_view::npos) std::abort();
      reader.Expect(kind);
    }
  }

  korvane::StatCount(bytes);
  korvane::ReplyNumber(bytes);
  const korvane::ReplyField field = korvane::SecondReplyField(bytes);
  if (field.error == 0 && field.value.size() > bytes.size()) std::abort();
  return 0;
}
