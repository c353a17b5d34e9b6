#include "mime/content_encoding.h"

#include <algorithm>

namespace korvane {

namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEF";
constexpr std::string_view kBase64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr size_t kLongestPlainLine = 78;
constexpr size_t kLongestLine = 998;
constexpr size_t kLongestEncodedLine = 76;
/// Bytes of text in one encoded word: in base64 and with its frame it stays below 75.
constexpr size_t kEncodedWordBytes = 42;
/// A field that is longer is put into encoded words, which can be folded without a change.
constexpr size_t kLongestPlainField = 800;
constexpr size_t kLongestParameterPiece = 60;

uint8_t Byte(char c) { return static_cast<uint8_t>(c); }
bool IsPrintable(char c) { return Byte(c) >= 0x20 && Byte(c) < 0x7F; }

void AppendHex(std::string& out, char mark, char c) {
  out += mark;
  out += kHexDigits[Byte(c) >> 4];
  out += kHexDigits[Byte(c) & 15];
}

void AppendBase64(std::string& out, std::string_view bytes) {
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t left = std::min<size_t>(3, bytes.size() - i);
    const uint32_t group = uint32_t{Byte(bytes[i])} << 16 |
                           (left > 1 ? uint32_t{Byte(bytes[i + 1])} << 8 : 0) |
                           (left > 2 ? uint32_t{Byte(bytes[i + 2])} : 0);
    out += kBase64Digits[group >> 18];
    out += kBase64Digits[group >> 12 & 63];
    out += left > 1 ? kBase64Digits[group >> 6 & 63] : '=';
    out += left > 2 ? kBase64Digits[group & 63] : '=';
  }
}

// Lines that end with CR LF, none longer than `longest`; without NUL, bare CR and bare LF.
bool HasLines(std::string_view text, size_t longest, bool plain) {
  size_t width = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\r') {
      if (i + 1 >= text.size() || text[i + 1] != '\n') return false;
      if (plain && width > 0 && (text[i - 1] == ' ' || text[i - 1] == '\t')) return false;
      ++i;
      width = 0;
      continue;
    }
    if (c == '\n' || c == '\0' || ++width > longest) return false;
    if (plain && !IsPrintable(c) && c != '\t') return false;
  }
  return width == 0;
}

bool IsPlainText(std::string_view text) {
  return std::all_of(text.begin(), text.end(), IsPrintable) &&
         text.find("=?") == std::string_view::npos;
}

// One word after the other, never through a character, folded: blanks between them do not count.
void AppendEncodedWords(std::string& out, std::string_view text) {
  bool first = true;
  while (!text.empty()) {
    size_t size = std::min(kEncodedWordBytes, text.size());
    while (size > 1 && size < text.size() && (Byte(text[size]) & 0xC0) == 0x80) --size;
    if (!first) out += "\r\n ";
    out += "=?utf-8?B?";
    AppendBase64(out, text.substr(0, size));
    out += "?=";
    text.remove_prefix(size);
    first = false;
  }
}

std::string WithoutControls(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (Byte(c) < 0x20 || c == 0x7F) c = ' ';
  }
  return out;
}

bool IsSpecial(char c) { return std::string_view("<>()[]:;,\"@\\").find(c) != std::string::npos; }

// Words between the specials of an address list: those with other characters are encoded, the
// blanks between them with them.
void AppendPhrase(std::string& out, std::string_view phrase) {
  const size_t begin = phrase.find_first_not_of(' ');
  if (IsPlainText(phrase) || begin == std::string_view::npos) {
    out += phrase;
    return;
  }
  const size_t end = phrase.find_last_not_of(' ') + 1;
  out += phrase.substr(0, begin);
  AppendEncodedWords(out, phrase.substr(begin, end - begin));
  out += phrase.substr(end);
}

bool IsAttributeCharacter(char c) {
  return IsPrintable(c) && std::string_view(" *'%()<>@,;:\\\"/[]?=").find(c) == std::string::npos;
}

}  // namespace

std::string EncodeBase64(std::string_view bytes) {
  std::string out;
  out.reserve((bytes.size() / kBase64Line + 1) * 78);
  for (size_t from = 0; from < bytes.size(); from += kBase64Line) {
    AppendBase64(out, bytes.substr(from, kBase64Line));
    out += "\r\n";
  }
  return out;
}

std::string EncodeQuotedPrintable(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 4);
  size_t width = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const std::string_view rest = text.substr(i);
    if (rest.starts_with("\r\n")) {
      out += "\r\n";
      width = 0;
      ++i;
      continue;
    }
    const std::string_view behind = rest.substr(1);
    const bool blank = c == ' ' || c == '\t';
    const bool line_ends = behind.empty() || behind.starts_with("\r\n");
    // A full stop or "From " at the start of a line is what mail programs change on the way.
    const bool risky = width == 0 && (c == '.' || c == 'F' || c == '>' || c == '-');
    const bool plain = !risky && ((IsPrintable(c) && c != '=' && !blank) || (blank && !line_ends));
    if (width + (plain ? 1 : 3) > kLongestEncodedLine - 1) {
      out += "=\r\n";
      width = 0;
    }
    if (plain) {
      out += c;
      ++width;
    } else {
      AppendHex(out, '=', c);
      width += 3;
    }
  }
  if (width > 0) out += "=\r\n";
  return out;
}

bool NeedsNoEncoding(std::string_view text) {
  return HasLines(text, kLongestPlainLine, true) && !text.starts_with("From ") &&
         text.find("\nFrom ") == std::string_view::npos && !text.starts_with('.') &&
         text.find("\n.") == std::string_view::npos && !text.starts_with("--") &&
         text.find("\n--") == std::string_view::npos;
}

bool HasCleanLines(std::string_view text) { return HasLines(text, kLongestLine, false); }

std::string EncodeText(std::string_view text) {
  const bool trimmed = text.empty() || (text.front() != ' ' && text.back() != ' ');
  if (trimmed && IsPlainText(text) && text.size() <= kLongestPlainField) return std::string(text);
  std::string out;
  AppendEncodedWords(out, text);
  return out;
}

std::string EncodeAddresses(std::string_view list) {
  const std::string clean = WithoutControls(list);
  const std::string_view text = clean;
  std::string out;
  size_t line = 0;  // where the line begins in `out`
  size_t i = 0;
  while (i < text.size()) {
    if (text[i] == '"') {
      size_t end = i + 1;
      while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2 : 1;
      end = std::min(end, text.size());
      const std::string_view inner = text.substr(i + 1, end - i - 1);
      if (IsPlainText(inner)) {
        out += text.substr(i, end + 1 - i);
      } else {
        AppendEncodedWords(out, inner);
      }
      i = std::min(end + 1, text.size());
    } else if (text[i] == '<') {
      const size_t end = text.find('>', i);
      const size_t size = end == std::string_view::npos ? text.size() - i : end + 1 - i;
      out += text.substr(i, size);
      i += size;
    } else if (IsSpecial(text[i])) {
      out += text[i++];
      if (out.back() == ',' && out.size() - line > kLongestPlainField) {
        out += "\r\n ";
        line = out.size();
      }
    } else {
      const size_t begin = i;
      while (i < text.size() && !IsSpecial(text[i])) ++i;
      AppendPhrase(out, text.substr(begin, i - begin));
    }
  }
  return out;
}

std::string EncodeParameter(std::string_view name, std::string_view value) {
  std::string out = ";\r\n\t";
  const bool plain = IsPlainText(value) && value.find_first_of("\"\\") == std::string_view::npos &&
                     value.find(';') == std::string_view::npos;
  if (plain && value.size() <= kLongestParameterPiece) {
    out += name;
    out += "=\"";
    out += value;
    out += '"';
    return out;
  }
  std::string encoded;
  for (const char c : value) {
    if (IsAttributeCharacter(c)) {
      encoded += c;
    } else {
      AppendHex(encoded, '%', c);
    }
  }
  if (encoded.size() <= kLongestParameterPiece) {
    out += name;
    return out + "*=utf-8''" + encoded;
  }
  size_t from = 0;
  for (int piece = 0; from < encoded.size(); ++piece) {
    size_t end = std::min(from + kLongestParameterPiece, encoded.size());
    for (size_t back = 1; back <= 2 && end < encoded.size(); ++back) {
      if (encoded[end - back] == '%') {
        end -= back;
        break;
      }
    }
    if (piece > 0) out += ";\r\n\t";
    out += name;
    out += '*' + std::to_string(piece) + (piece == 0 ? "*=utf-8''" : "*=");
    out += encoded.substr(from, end - from);
    from = end;
  }
  return out;
}

}  // namespace korvane
