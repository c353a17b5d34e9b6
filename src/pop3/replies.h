// The server's replies (RFC 1939 section 3): put together from the blocks in which they arrive, and
// taken apart into what they say. No sockets and no session here; a block may end anywhere, even
// between CR and LF.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvane {

/// True when the reply starts with "+". Nothing else of the status line counts.
bool IsPositiveReply(std::string_view reply);

/// The whole number at the start of the text, leading blanks allowed, fractions rounded half to
/// even, kept within 32 bits; 0 when there is none.
int32_t ReplyNumber(std::string_view text);

/// The count in a reply to STAT: what stands from the 5th character to the next blank, so exactly
/// "+OK " must come before it. Nothing when no digit stands there.
std::optional<int32_t> StatCount(std::string_view reply);

/// The size of the mailbox in a reply to STAT, behind the count; 0 when there is none.
int64_t StatSize(std::string_view reply);

/// What follows the second blank of a reply to LIST or UIDL, up to the line end.
struct ReplyField {
  int32_t error = 0;  ///< 1075 without a first blank, 1076 without a second, else 0
  std::string_view value;
};
ReplyField SecondReplyField(std::string_view reply);

enum class ReplyKind {
  kLine,     ///< one line
  kHeader,   ///< a status line and, when it is positive, a header
  kMessage,  ///< a status line and, when it is positive, a message
};

/// How large a reply may grow before the server is given up.
struct ReplyLimits {
  /// A status line. RFC 1939 allows 512 bytes; a whole receive buffer is generous.
  size_t status_line = 16384;
  /// One line of a text. Mailers send pages of HTML and base64 without a break, hence far more than
  /// the 998 bytes of RFC 5322.
  size_t text_line = size_t{64} << 20;
  size_t header = size_t{64} << 20;
  size_t message = size_t{512} << 20;
};

/// Puts one reply after the other together.
class ReplyReader {
 public:
  enum class Progress { kMore, kComplete, kTooLong };

  explicit ReplyReader(ReplyLimits limits = {}) : limits_(limits) {}
  void SetLimits(ReplyLimits limits) { limits_ = limits; }

  /// A new connection: nothing of an earlier one matters.
  void Reset();
  /// A command goes out, its reply is awaited. What came beyond the last reply answers nothing and
  /// is forgotten.
  void Expect(ReplyKind kind);
  /// Takes the next block.
  Progress Feed(std::string_view block);
  /// The peer fell silent or closed: the part of a status line that came counts as the reply. False
  /// when there is none, or when a text is under way, which needs its end. The rest of that line,
  /// should it still come, is dropped when the next reply is awaited: it starts with neither "+"
  /// nor "-".
  bool TakeWhatCame();

  /// False as long as the rest of a status line taken without its end may still come.
  bool InStep() const { return !rest_pending_; }
  /// True once a positive status line of a header or message has begun.
  bool InText() const { return in_text_; }
  /// The status line with its line end, as it came. Empty when a text came instead.
  const std::string& Status() const { return status_; }
  /// The text between the status line and the end marker; a header keeps its final line break, a
  /// message loses it. Doubled dots stay doubled. Valid once after kComplete.
  std::string TakeText();

 private:
  Progress FeedText(std::string_view block);
  bool HasEnded();

  ReplyLimits limits_;
  ReplyKind kind_ = ReplyKind::kLine;
  std::string status_;
  bool rest_pending_ = false;  ///< the last status line came without its end
  bool dropping_ = false;      ///< in the middle of such a rest
  size_t dropped_ = 0;

  bool in_text_ = false;
  std::string text_;        ///< status line, text and end marker
  size_t text_begin_ = 0;   ///< behind the status line's LF; 0 while that has not come
  size_t line_length_ = 0;  ///< of the line under way
  size_t first_crlf_ = std::string::npos;  ///< the first CR LF of the text
  size_t searched_ = 0;                    ///< how far first_crlf_ has been looked for
  size_t end_ = 0;                         ///< where the line break before the final dot starts
  size_t end_break_ = 0;                   ///< its length
};

}  // namespace korvane
