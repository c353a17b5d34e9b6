#include "pop3/replies.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include "frame/error_numbers.h"

namespace korvane {
namespace {

// The end of a text is looked for in this many last bytes only, so that a long message costs one
// append a block.
constexpr size_t kTail = 10;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

bool IsPositiveReply(std::string_view reply) { return !reply.empty() && reply.front() == '+'; }

int32_t ReplyNumber(std::string_view text) {
  constexpr int64_t kMost = std::numeric_limits<int32_t>::max();
  size_t i = std::min(text.find_first_not_of(' '), text.size());
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  int64_t value = 0;
  for (; i < text.size() && IsDigit(text[i]); ++i) {
    value = std::min(value * 10 + (text[i] - '0'), kMost + 1);
  }
  if (i + 1 < text.size() && text[i] == '.' && IsDigit(text[i + 1])) {
    const size_t fraction = i + 1;
    const size_t not_zero = text.find_first_not_of('0', fraction + 1);
    const bool half =
        text[fraction] == '5' && (not_zero == std::string_view::npos || !IsDigit(text[not_zero]));
    if (half ? value % 2 != 0 : text[fraction] >= '5') ++value;
  }
  return static_cast<int32_t>(negative ? std::max(-value, -kMost - 1) : std::min(value, kMost));
}

std::optional<int32_t> StatCount(std::string_view reply) {
  constexpr size_t kCountAt = 4;
  if (reply.size() <= kCountAt) return std::nullopt;
  const std::string_view rest = reply.substr(kCountAt);
  const std::string_view count = rest.substr(0, rest.find(' '));
  if (count.empty() || !IsDigit(count.front())) return std::nullopt;
  return ReplyNumber(count);
}

int64_t StatSize(std::string_view reply) {
  const ReplyField field = SecondReplyField(reply);
  int64_t size = 0;
  if (field.error != 0 || field.value.empty() || !IsDigit(field.value.front())) return 0;
  const char* const end = field.value.data() + field.value.size();
  const auto result = std::from_chars(field.value.data(), end, size);
  return result.ec == std::errc() ? size : std::numeric_limits<int64_t>::max();
}

ReplyField SecondReplyField(std::string_view reply) {
  const size_t first = reply.find(' ');
  if (first == std::string_view::npos || first + 1 == reply.size()) {
    return {error::ReplyWithoutField, {}};
  }
  const size_t second = reply.find(' ', first + 1);
  if (second == std::string_view::npos || second + 1 == reply.size()) {
    return {error::ReplyWithoutValue, {}};
  }
  const std::string_view value = reply.substr(second + 1);
  return {0, value.substr(0, value.find_first_of("\r\n"))};
}

void ReplyReader::Reset() {
  rest_pending_ = dropping_ = false;
  Expect(ReplyKind::kLine);
}

void ReplyReader::Expect(ReplyKind kind) {
  kind_ = kind;
  status_.clear();
  dropped_ = 0;
  in_text_ = false;
  std::string().swap(text_);  // assigning would keep the memory of a long text
  text_begin_ = line_length_ = searched_ = end_ = end_break_ = 0;
  first_crlf_ = std::string::npos;
}

ReplyReader::Progress ReplyReader::Feed(std::string_view block) {
  if (block.empty()) return Progress::kMore;
  if (in_text_) return FeedText(block);
  if (rest_pending_) {
    if (!dropping_) dropping_ = block.front() != '+' && block.front() != '-';
    if (dropping_) {
      const size_t line_end = block.find('\n');
      if (line_end == std::string_view::npos) {
        dropped_ += block.size();
        return dropped_ > limits_.status_line ? Progress::kTooLong : Progress::kMore;
      }
      dropping_ = rest_pending_ = false;
      block.remove_prefix(line_end + 1);
      if (block.empty()) return Progress::kMore;
    }
    rest_pending_ = false;
  }
  if (kind_ != ReplyKind::kLine && status_.empty() && IsPositiveReply(block)) {
    in_text_ = true;
    return FeedText(block);
  }
  const size_t line_end = block.find('\n');
  const size_t taken = line_end == std::string_view::npos ? block.size() : line_end + 1;
  if (status_.size() + taken > limits_.status_line) return Progress::kTooLong;
  status_.append(block, 0, taken);
  return line_end == std::string_view::npos ? Progress::kMore : Progress::kComplete;
}

bool ReplyReader::TakeWhatCame() {
  if (in_text_ || status_.empty()) return false;
  rest_pending_ = true;
  return true;
}

ReplyReader::Progress ReplyReader::FeedText(std::string_view block) {
  const size_t limit = kind_ == ReplyKind::kHeader ? limits_.header : limits_.message;
  if (block.size() > limit - std::min(limit, text_.size())) return Progress::kTooLong;
  const size_t last_break = block.rfind('\n');
  line_length_ = last_break == std::string_view::npos ? line_length_ + block.size()
                                                      : block.size() - last_break - 1;
  if (line_length_ > limits_.text_line) return Progress::kTooLong;

  text_ += block;
  if (text_begin_ == 0) {
    const size_t line_end = block.find('\n');
    if (line_end != std::string_view::npos) {
      text_begin_ = searched_ = text_.size() - block.size() + line_end + 1;
    }
  }
  return HasEnded() ? Progress::kComplete : Progress::kMore;
}

bool ReplyReader::HasEnded() {
  if (text_begin_ == 0) return false;
  const size_t tail_begin = text_.size() > kTail ? text_.size() - kTail : 0;
  const std::string_view tail = std::string_view(text_).substr(tail_begin);
  if (const size_t at = tail.rfind("\r\n.\r\n"); at != std::string_view::npos) {
    end_ = tail_begin + at;
    end_break_ = 2;
    return true;
  }
  // A server that ends its lines with LF alone ends the text so, too. In a text with CR LF such a
  // line is content.
  if (first_crlf_ == std::string::npos) {
    first_crlf_ = text_.find("\r\n", searched_);
    searched_ = std::max(searched_, text_.size() - 1);
  }
  for (const std::string_view marker : {"\n.\n", "\n.\r\n"}) {
    const size_t at = tail.rfind(marker);
    if (at == std::string_view::npos) continue;
    const size_t position = tail_begin + at;
    if (position + 1 < text_begin_ || (first_crlf_ != std::string::npos && first_crlf_ <= position))
      continue;
    end_ = position;
    end_break_ = 1;
    return true;
  }
  return false;
}

std::string ReplyReader::TakeText() {
  // The status line's own line break may be the one before the dot: then the text is empty.
  const size_t kept = end_ + (kind_ == ReplyKind::kHeader ? end_break_ : 0);
  text_.resize(std::max(kept, text_begin_));
  text_.erase(0, text_begin_);
  return std::exchange(text_, {});
}

}  // namespace korvane
