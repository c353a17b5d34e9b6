#include "pop3/reply_shape.h"

#include <algorithm>
#include <string>

#include "mime/line_search.h"

namespace korvane {
namespace {

using Shape = ReplyLook::Shape;

/// RFC 1939 allows 512 bytes for a status line.
constexpr size_t kLongestLine = 512;
constexpr size_t kLongestName = 200;
constexpr size_t kLongestUniqueId = 70;
constexpr size_t kLongestSize = 10;
constexpr size_t kDottedLine = 3;  ///< CR LF "."
constexpr size_t kTextEnd = 5;     ///< CR LF "." CR LF
/// "+OK ", a number and a blank.
constexpr size_t kLongestBegin = 15;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsIdCharacter(char c) { return c > ' ' && c <= '~'; }

/// The status line of a text: how long it is; 0 when it is not there yet, npos when it is none.
size_t StatusLineLength(std::string_view bytes) {
  if (bytes.empty()) return 0;
  if (bytes.front() != '+') return std::string_view::npos;
  const size_t end = bytes.substr(0, kLongestLine).find('\n');
  if (end == std::string_view::npos) {
    return bytes.size() < kLongestLine ? 0 : std::string_view::npos;
  }
  return bytes[end - 1] == '\r' ? end + 1 : std::string_view::npos;
}

/// A message begins with a field. What begins otherwise may be more than one reply.
Shape LookAtText(std::string_view text) {
  if (text.empty()) return Shape::kPart;
  if (text.front() == '+' || text.front() == '-') return Shape::kOther;
  const auto ends_name = [](char c) { return c <= ' ' || c > '~' || c == ':'; };
  const auto end = std::find_if(text.begin(), text.end(), ends_name) - text.begin();
  const auto length = static_cast<size_t>(end);
  if (length > kLongestName) return Shape::kOther;
  if (length == text.size()) return Shape::kPart;
  // Some servers keep a mailbox file's separator line.
  if (text[length] == ' ' && text.substr(0, length).ends_with("From")) return Shape::kWhole;
  return text[length] == ':' && length > 0 ? Shape::kWhole : Shape::kOther;
}

}  // namespace

/// How the replies to LIST and UIDL begin.
std::string ReplyShape::BeginOfLine() const {
  return "+OK " + std::to_string(expected_.number) + " ";
}

ReplyLook ReplyShape::LookAtLine(std::string_view bytes) const {
  const std::string begin = BeginOfLine();
  const size_t common = std::min(begin.size(), bytes.size());
  if (bytes.substr(0, common) != std::string_view(begin).substr(0, common)) return {Shape::kOther};
  std::string_view value = bytes.substr(common);
  const bool is_size = expected_.form == ReplyForm::kSize;
  const size_t longest = is_size ? kLongestSize : kLongestUniqueId;
  size_t length = 0;
  while (length < value.size() && length <= longest &&
         (is_size ? IsDigit(value[length]) : IsIdCharacter(value[length]))) {
    ++length;
  }
  // Without its line end a reply runs into the next one.
  if (length > longest || value.substr(0, length).find("+OK") != std::string_view::npos) {
    return {Shape::kOther};
  }
  value.remove_prefix(length);
  constexpr std::string_view kLineEnd = "\r\n";
  const size_t end = std::min(kLineEnd.size(), value.size());
  if (value.substr(0, end) != kLineEnd.substr(0, end)) return {Shape::kOther};
  if (end < kLineEnd.size()) return {end > 0 && length == 0 ? Shape::kOther : Shape::kPart};
  return length == 0 ? ReplyLook{Shape::kOther}
                     : ReplyLook{Shape::kWhole, begin.size() + length + kLineEnd.size()};
}

ReplyLook::Shape ReplyShape::LookAtStart(std::string_view bytes) const {
  if (expected_.form != ReplyForm::kText) return LookAtLine(bytes).shape;
  const size_t status = StatusLineLength(bytes);
  if (status == std::string_view::npos) return Shape::kOther;
  return status == 0 ? Shape::kPart : LookAtText(bytes.substr(status));
}

ReplyLook ReplyShape::Look(std::string_view bytes) {
  if (expected_.form != ReplyForm::kText) return LookAtLine(bytes);
  if (!in_text_) {
    const Shape start = LookAtStart(bytes);
    if (start != Shape::kWhole) return {start};
    in_text_ = true;
    text_at_ = StatusLineLength(bytes);
  }
  // A text whose lines end with LF alone may end so, too.
  if (!has_break_) {
    const size_t at = bytes.find('\n', text_at_);
    if (at != std::string_view::npos) {
      if (at == 0 || bytes[at - 1] != '\r') return {Shape::kOther};
      has_break_ = true;
    }
  }
  // The line break before the dot may be the status line's own.
  size_t at = text_at_ < 2 ? 0 : text_at_ - 2;
  for (; (at = FindLineEndBefore(bytes, at, bytes.size(), ".")) != std::string_view::npos;
       at += kDottedLine) {
    // A dot that begins a line is doubled, or it is the end.
    const std::string_view behind = bytes.substr(at + kDottedLine, 2);
    if (behind.starts_with('.')) continue;
    if (behind != std::string_view("\r\n").substr(0, behind.size())) return {Shape::kOther};
    break;
  }
  const size_t end = at == std::string_view::npos ? bytes.size() : at;
  // A status line may name a size, "+OK 240 octets".
  if (end > text_at_ && HoldsNextReply(bytes.substr(text_at_, end - text_at_))) {
    return {Shape::kOther};
  }
  if (end + kTextEnd <= bytes.size()) return {Shape::kWhole, end + kTextEnd};
  // What may be the beginning of the end, or of a reply, stays.
  const size_t kept = kTextEnd + kLongestBegin;
  return {Shape::kPart, bytes.size() > kept ? bytes.size() - kept : 0};
}

/// Where a server leaves the end out, the next replies run on in the text, up to the next end.
/// All of every message is looked through: in steps in which compilers compare all places at once.
bool ReplyShape::HoldsNextReply(std::string_view text) const {
  constexpr size_t kStep = 64;
  const std::string begin = BeginOfLine();
  size_t at = 0;
  for (; at + kStep < text.size(); at += kStep) {
    const char* const step = text.data() + at;
    unsigned char found = 0;
    for (size_t i = 0; i < kStep; ++i) {
      found |= static_cast<unsigned char>((step[i] == '+') & (step[i + 1] == 'O'));
    }
    if (found != 0 &&
        text.substr(at, kStep + begin.size() - 1).find(begin) != std::string_view::npos) {
      return true;
    }
  }
  return text.substr(at).find(begin) != std::string_view::npos;
}

size_t EndOfAnyLine(std::string_view bytes) {
  if (bytes.empty()) return 0;
  if (bytes.front() != '+' && bytes.front() != '-') return std::string_view::npos;
  const size_t end = bytes.substr(0, kLongestLine).find('\n');
  if (end == std::string_view::npos) {
    return bytes.size() < kLongestLine ? 0 : std::string_view::npos;
  }
  return bytes[end - 1] == '\r' ? end + 1 : std::string_view::npos;
}

}  // namespace korvane
