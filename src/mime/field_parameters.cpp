// Parameters of a structured field value (RFC 2045 section 5.1), and the extended and continued
// forms of RFC 2231 where the plain one is absent.
#include <algorithm>
#include <optional>

#include "frame/code_page.h"
#include "mime/header_fields.h"
#include "mime/quote_pairs.h"

namespace korvane {

namespace {

constexpr auto kNone = std::string_view::npos;

char LowerOf(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

// Finds `name` (lower case) whatever its case in `text`.
size_t FindName(std::string_view text, std::string_view name, size_t from) {
  if (name.empty() || text.size() < name.size()) return kNone;
  for (size_t i = from; i + name.size() <= text.size(); ++i) {
    size_t k = 0;
    while (k < name.size() && LowerOf(text[i + k]) == name[k]) ++k;
    if (k == name.size()) return i;
  }
  return kNone;
}

size_t SkipWhiteSpace(std::string_view text, size_t from) {
  while (from < text.size() &&
         (text[from] == ' ' || text[from] == '\t' || text[from] == '\r' || text[from] == '\n')) {
    ++from;
  }
  return from;
}

// Looks through one field value; positions only rise, so the quotes are paired in one pass.
class ParameterScan {
 public:
  ParameterScan(std::string_view value, std::string_view name)
      : value_(value), name_(name), pairs_(value) {}

  // The position behind the next occurrence of the name outside quotes.
  size_t NextName() {
    for (;;) {
      const size_t at = FindName(value_, name_, position_);
      if (at == kNone) return kNone;
      position_ = at + name_.size();
      if (!pairs_.Inside(at)) return position_;
    }
  }
  void GoTo(size_t position) { position_ = position; }

  // From `begin` to the first ";" outside quotes, unquoted.
  std::string_view ValueAt(size_t begin) {
    size_t end = value_.find(';', begin);
    while (end != kNone && pairs_.Inside(end)) end = value_.find(';', end + 1);
    position_ = end == kNone ? value_.size() : end;
    return Unquote(value_.substr(begin, position_ - begin));
  }

 private:
  std::string_view value_;
  std::string_view name_;
  QuotePairs pairs_;
  size_t position_ = 0;
};

std::string_view PlainParameter(std::string_view value, std::string_view name) {
  ParameterScan scan(value, name);
  for (;;) {
    const size_t behind = scan.NextName();
    if (behind == kNone || behind + 1 >= value.size()) return {};
    const size_t at = SkipWhiteSpace(value, behind);
    if (at + 1 >= value.size()) return {};
    if (value[at] == '=') return scan.ValueAt(at + 1);
    scan.GoTo(at);
  }
}

// One piece of an extended parameter: name*=, name*N= or name*N*=.
struct Piece {
  size_t number;
  bool encoded;
  std::string_view text;
};

constexpr size_t kWhole = kNone;  // the number of name*=

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

void AppendPercentDecoded(std::string& out, std::string_view text) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && HexDigit(text[i + 1]) >= 0 &&
        HexDigit(text[i + 2]) >= 0) {
      out += static_cast<char>(HexDigit(text[i + 1]) * 16 + HexDigit(text[i + 2]));
      i += 2;
    } else {
      out += text[i];
    }
  }
}

// The text behind charset'language'; the whole of it where those are missing.
std::string_view WithoutCharset(std::string_view text) {
  const size_t first = text.find('\'');
  if (first == kNone) return text;
  const size_t second = text.find('\'', first + 1);
  return second == kNone ? text : text.substr(second + 1);
}

// The piece whose "*" stands at `at`, and where its value begins; nothing when it is no piece.
std::optional<Piece> PieceAt(std::string_view value, size_t at, size_t& begin) {
  Piece piece{kWhole, true, {}};
  ++at;
  const size_t digits = at;
  size_t number = 0;
  while (at < value.size() && value[at] >= '0' && value[at] <= '9' && at - digits < 9) {
    number = number * 10 + static_cast<size_t>(value[at++] - '0');
  }
  if (at > digits) {
    piece.number = number;
    piece.encoded = at < value.size() && value[at] == '*';
    if (piece.encoded) ++at;
  }
  at = SkipWhiteSpace(value, at);
  if (at >= value.size() || value[at] != '=') return std::nullopt;
  begin = at + 1;
  return piece;
}

std::vector<Piece> CollectPieces(std::string_view value, std::string_view name) {
  std::vector<Piece> pieces;
  ParameterScan scan(value, name);
  for (size_t behind = scan.NextName(); behind != kNone; behind = scan.NextName()) {
    if (behind >= value.size() || value[behind] != '*') continue;
    size_t begin = 0;
    std::optional<Piece> piece = PieceAt(value, behind, begin);
    if (!piece) continue;
    piece->text = scan.ValueAt(begin);
    pieces.push_back(*piece);
  }
  return pieces;
}

std::string ExtendedParameter(std::string_view value, std::string_view name) {
  if (value.find('*') == kNone) return {};
  std::vector<Piece> pieces = CollectPieces(value, name);
  std::stable_sort(pieces.begin(), pieces.end(),
                   [](const Piece& a, const Piece& b) { return a.number < b.number; });
  const auto whole = std::find_if(pieces.begin(), pieces.end(),
                                  [](const Piece& piece) { return piece.number == kWhole; });
  std::string bytes;
  if (whole != pieces.end()) {
    AppendPercentDecoded(bytes, WithoutCharset(whole->text));
  } else {
    size_t next = 0;
    for (const Piece& piece : pieces) {
      if (piece.number + 1 == next) continue;  // given twice: the first one counts
      if (piece.number != next) break;
      if (piece.encoded) {
        AppendPercentDecoded(bytes, next == 0 ? WithoutCharset(piece.text) : piece.text);
      } else {
        bytes += piece.text;
      }
      ++next;
    }
  }
  for (char& c : bytes) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  return ToUtf8(std::move(bytes));
}

}  // namespace

std::string Parameter(std::string_view value, std::string_view name) {
  if (value.empty() || name.empty()) return {};
  std::string lower;
  for (const char c : name) {
    if (c != LowerOf(c)) {
      lower = LowerCase(name);
      name = lower;
      break;
    }
  }
  if (const std::string_view plain = PlainParameter(value, name); !plain.empty()) {
    return std::string(plain);
  }
  return ExtendedParameter(value, name);
}

}  // namespace korvane
