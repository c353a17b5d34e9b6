// Whether what a server says has the very shape that RFC 1939 gives the reply to TOP, RETR, LIST n
// or UIDL n, and where it ends. Replies that were asked for ahead lie in one stream, so they can be
// told apart by their shape only: anything that leaves room for doubt is kOther here, also where
// the lock-step dialogue would know what to make of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace korvane {

enum class ReplyForm { kText, kSize, kUniqueId };

struct ExpectedReply {
  ReplyForm form = ReplyForm::kText;
  int32_t number = 0;
};

struct ReplyLook {
  enum class Shape { kPart, kWhole, kOther };
  Shape shape;
  /// Of the whole reply; of a part, how much of it may be handed on before the rest is there.
  size_t length = 0;
};

/// One reply, from its first byte on.
class ReplyShape {
 public:
  explicit ReplyShape(ExpectedReply expected = {}) : expected_(expected) {}

  /// `bytes` are what came of the reply and of what follows it, without what was handed on.
  ReplyLook Look(std::string_view bytes);
  /// So much was handed on, at most what the last look allowed.
  void HandOn(size_t bytes) { text_at_ -= text_at_ < bytes ? text_at_ : bytes; }
  /// The same for the beginning alone: kWhole as soon as nothing about it can be wrong.
  ReplyLook::Shape LookAtStart(std::string_view bytes) const;
  /// True once the status line of a text is behind.
  bool InText() const { return in_text_; }

 private:
  std::string BeginOfLine() const;
  ReplyLook LookAtLine(std::string_view bytes) const;
  bool HoldsNextReply(std::string_view text) const;

  ExpectedReply expected_;
  bool in_text_ = false;
  size_t text_at_ = 0;      ///< where the text begins in what was not handed on
  bool has_break_ = false;  ///< the first line break of the text was seen, CR LF
};

/// The end of one reply whatever it says, as long as it is one line that starts with "+" or "-"; 0
/// when it is not there yet, npos when the bytes are no reply.
size_t EndOfAnyLine(std::string_view bytes);

}  // namespace korvane
