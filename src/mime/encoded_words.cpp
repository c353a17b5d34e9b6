// Encoded words (RFC 2047). The charset label is not looked at: decoded bytes are UTF-8 where they
// form it and the system code page's characters otherwise, which also reads wrongly labelled mail.
// The bytes of a whole value are joined first, because mailers cut characters between two words.
#include <cstdint>
#include <cstring>
#include <limits>

#include "Tarsel_MailConversions.h"
#include "frame/code_page.h"
#include "mime/header_fields.h"
#include "mime/quote_pairs.h"

namespace korvane {

namespace {

constexpr auto kNone = std::string_view::npos;

// A stretch of decoded text, from one or several words with nothing but blanks between them.
struct Run {
  size_t begin;
  size_t end;
};

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool OnlyBlanks(std::string_view text) {
  for (const char c : text) {
    if (!IsBlank(c)) return false;
  }
  return true;
}

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

// True when every byte is printable ASCII. Eight at a time: this is asked for every field of every
// message, and nearly always true.
bool IsPlain(std::string_view text) {
  constexpr uint64_t kOnes = 0x0101010101010101u;
  constexpr uint64_t kHighs = 0x8080808080808080u;
  size_t i = 0;
  uint64_t bad = 0;
  for (; i + 8 <= text.size(); i += 8) {
    uint64_t block;
    std::memcpy(&block, text.data() + i, 8);
    const uint64_t below_blank = (block | kHighs) - kOnes * 0x20;  // high bit lost below 0x20
    const uint64_t delete_or_high = block + kOnes;                 // high bit gained from 0x7F
    bad |= block | ~below_blank | delete_or_high;
  }
  if (bad & kHighs) return false;
  for (; i < text.size(); ++i) {
    if (IsControl(text[i]) || static_cast<unsigned char>(text[i]) >= 0x80) return false;
  }
  return true;
}

size_t FindMarker(std::string_view text, size_t from) {
  for (size_t at = text.find('=', from); at != kNone; at = text.find('=', at + 1)) {
    if (at + 1 < text.size() && text[at + 1] == '?') return at;
  }
  return kNone;
}

// 'Q', 'B', or 0 for any other encoding.
char EncodingOf(std::string_view name) {
  name = TrimBlanks(name);
  if (name.size() != 1) return 0;
  if (name[0] == 'Q' || name[0] == 'q') return 'Q';
  if (name[0] == 'B' || name[0] == 'b') return 'B';
  return 0;
}

void AppendDecoded(std::string& out, char encoding, std::string_view text) {
  if (text.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max() / 4)) {
    out += text;
    return;
  }
  const size_t before = out.size();
  auto length = static_cast<int32_t>(text.size());
  if (encoding == 'Q') {
    out += text;
    for (size_t i = before; i < out.size(); ++i) {
      if (out[i] == '_') out[i] = ' ';
    }
    QuotedPrintableDecode(out.data() + before, &length);
  } else {
    out.resize(before + text.size() * 3 / 4 + 2);
    Base64Decode(text.data(), out.data() + before, &length);
  }
  out.resize(before + static_cast<size_t>(length));
}

// Decodes the words of `value` into `out`, which is empty; the runs of decoded text go to `runs`.
void DecodeWords(std::string_view value, std::string& out, std::vector<Run>* runs) {
  const size_t size = value.size();
  size_t from = 0;
  while (from < size) {
    const size_t start = FindMarker(value, from);
    if (start == kNone || start + 3 >= size) break;
    const size_t charset_end = value.find('?', start + 2);
    if (charset_end == kNone || charset_end + 2 >= size) break;
    // A further "=?" inside the word: what came before was none, the next one is tried.
    if (charset_end > start + 2 && value[charset_end - 1] == '=') {
      out += value.substr(from, charset_end - 1 - from);
      from = charset_end - 1;
      continue;
    }
    const size_t encoding_end = value.find('?', charset_end + 1);
    if (encoding_end == kNone || encoding_end + 2 >= size) break;
    if (encoding_end > charset_end + 1 && value[encoding_end - 1] == '=') {
      out += value.substr(from, encoding_end - 1 - from);
      from = encoding_end - 1;
      continue;
    }
    const size_t end = value.find("?=", encoding_end + 1);
    if (end == kNone) break;
    const char encoding = EncodingOf(value.substr(charset_end + 1, encoding_end - charset_end - 1));
    if (encoding == 0) {
      out += value.substr(from, end + 1 - from);
      from = end + 1;
      continue;
    }
    const std::string_view before = value.substr(from, start - from);
    const bool joins = OnlyBlanks(before);
    if (!joins) out += before;
    const size_t begin = out.size();
    AppendDecoded(out, encoding, value.substr(encoding_end + 1, end - encoding_end - 1));
    if (runs) {
      if (joins && !runs->empty() && runs->back().end == begin) {
        runs->back().end = out.size();
      } else {
        runs->push_back({begin, out.size()});
      }
    }
    from = end + 2;
  }
  if (from < size) out += value.substr(from);
}

// What would cut a list of addresses, or end a name, outside quotes.
bool CutsAddresses(char c) { return c == ',' || c == ';' || c == ':' || c == '<' || c == '>'; }

// Puts quotes around out[begin..], blanks at both ends left outside; quotes within go.
void QuotePhrase(std::string& out, size_t begin) {
  size_t end = out.size();
  while (begin < end && IsBlank(out[begin])) ++begin;
  while (end > begin && IsBlank(out[end - 1])) --end;
  const std::string blanks = out.substr(end);
  std::string phrase = out.substr(begin, end - begin);
  std::erase(phrase, '"');
  out.resize(begin);
  out += '"';
  out += phrase;
  out += '"';
  out += blanks;
}

// Decoded words must not change how an address field is taken apart: quotes in them become
// apostrophes, and where one holds a separator, the phrase that it stands in becomes a quoted text
// ("=?utf-8?Q?M=C3=BCller,?= Hans <h@x>" names one person).
std::string ProtectNames(std::string text, const std::vector<Run>& runs) {
  bool separators = false;
  for (const Run& run : runs) {
    for (size_t i = run.begin; i < run.end; ++i) {
      if (text[i] == '"') text[i] = '\'';
      separators = separators || CutsAddresses(text[i]);
    }
  }
  if (!separators) return text;

  // An unpaired last quote opens nothing; beside new quotes it would.
  size_t quotes = 0;
  for (const char c : text) quotes += c == '"' ? 1 : 0;
  if (quotes % 2 == 1) text[text.rfind('"')] = '\'';

  std::string out;
  out.reserve(text.size() + 16);
  QuotePairs pairs(text);
  auto run = runs.begin();
  size_t phrase = 0;
  bool quote = false;
  for (size_t i = 0; i < text.size(); ++i) {
    while (run != runs.end() && run->end <= i) ++run;
    const bool decoded = run != runs.end() && run->begin <= i;
    if (CutsAddresses(text[i]) && !pairs.Inside(i)) {
      if (decoded) {
        quote = true;
      } else {
        if (quote) QuotePhrase(out, phrase);
        quote = false;
        phrase = out.size() + 1;
      }
    }
    out += text[i];
  }
  if (quote) QuotePhrase(out, phrase);
  return out;
}

}  // namespace

void DecodeEncodedWordsInto(std::string& decoded, std::string_view value, bool address_field) {
  const bool plain = IsPlain(value);
  const bool words = FindMarker(value, 0) != kNone;
  if (plain && !words) {
    decoded.assign(value);
    return;
  }
  std::string text;
  text.reserve(value.size() + 2);
  if (!words) {
    text = value;
  } else if (address_field) {
    std::vector<Run> runs;
    DecodeWords(value, text, &runs);
    text = ProtectNames(std::move(text), runs);
  } else {
    DecodeWords(value, text, nullptr);
  }
  for (char& c : text) {
    if (IsControl(c)) c = ' ';
  }
  decoded = ToUtf8(std::move(text));
}

std::string DecodeEncodedWords(std::string_view value, bool address_field) {
  std::string decoded;
  DecodeEncodedWordsInto(decoded, value, address_field);
  return decoded;
}

}  // namespace korvane
