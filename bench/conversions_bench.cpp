// The conversions beside memcpy and beside the decoders of GMime, GLib and OpenSSL, on inputs made
// up from a fixed seed: a large attachment and a message of ordinary size of each kind.
//
// Names are <what>/<by whom>/<bytes>; the rate is that of the input.
#include <benchmark/benchmark.h>
#include <glib.h>
#include <gmime/gmime.h>
#include <openssl/evp.h>

#include <cstring>
#include <ctime>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Tarsel_MailConversions.h"
#include "mime/conversions/conversions.h"

namespace {

using Random = std::mt19937;

std::string Base64Body(size_t size) {
  Random random(1);
  std::string bytes(size * 57 / 78, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  std::string body;
  char line[80];
  for (size_t i = 0; i < bytes.size(); i += 57) {
    const auto count = static_cast<int>(std::min<size_t>(57, bytes.size() - i));
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(line),
                    reinterpret_cast<const unsigned char*>(bytes.data()) + i, count);
    body.append(line).append("\r\n");
  }
  return body;
}

std::string UuBody(size_t size) {
  Random random(2);
  std::string body;
  while (body.size() < size) {
    body += 'M';
    for (int i = 0; i < 60; ++i) body += static_cast<char>('!' + random() % 64);
    body += "\r\n";
  }
  return body;
}

// As a mail program encodes: soft breaks at 76 characters, never inside an escape.
std::string QuotedPrintable(std::string_view text) {
  std::string body;
  size_t column = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte == '\r') {
      body += "\r\n";
      ++i;
      column = 0;
      continue;
    }
    const size_t width = byte == '=' || byte >= 0x7F ? 3 : 1;
    if (column + width > 75) {
      body += "=\r\n";
      column = 0;
    }
    if (width == 1) {
      body += static_cast<char>(byte);
    } else {
      constexpr char kDigits[] = "0123456789ABCDEF";
      body += '=';
      body += kDigits[byte >> 4];
      body += kDigits[byte & 15];
    }
    column += width;
  }
  return body;
}

std::string Word(Random& random) {
  static const char* const kWords[] = {
      "the",     "of",       "and",   "to",    "in",        "that",    "message", "is",
      "for",     "with",     "on",    "you",   "meeting",   "as",      "be",      "at",
      "we",      "not",      "this",  "have",  "from",      "or",      "by",      "project",
      "an",      "they",     "which", "would", "their",     "what",    "don't",   "about",
      "there",   "attached", "if",    "will",  "week",      "who",     "report",  "can",
      "regards", "tomorrow", "your",  "it's",  "\"draft\"", "version", "please",  "server"};
  return kWords[random() % std::size(kWords)];
}

std::string HtmlPage(size_t size) {
  Random random(3);
  std::string page = "<html>\r\n<body bgcolor=\"#ffffff\">\r\n<table width=\"600\">\r\n";
  while (page.size() < size) {
    page += "<tr><td style=\"font-family: Arial, sans-serif; font-size: 14px\">\r\n<p>";
    for (int i = 0; i < 60; ++i) page += Word(random) + " ";
    page += "\r\n<a href=\"https://www.example.com/news?id=" + std::to_string(random() % 100000) +
            "\" target=\"_blank\">read more</a></p></td></tr>\r\n";
  }
  return page;
}

std::string RussianText(size_t size) {
  Random random(4);
  std::string text;
  while (text.size() < size) {
    const size_t letters = 2 + random() % 9;
    for (size_t i = 0; i < letters; ++i) {
      const unsigned letter = 0x430 + random() % 32;
      text += static_cast<char>(0xC0 | letter >> 6);
      text += static_cast<char>(0x80 | (letter & 0x3F));
    }
    text += random() % 12 == 0 ? ".\r\n" : " ";
  }
  return text;
}

std::string MailText(size_t size) {
  Random random(5);
  std::string text;
  while (text.size() < size) {
    const bool quoted = random() % 4 == 0;
    const int lines = static_cast<int>(2 + random() % 6);
    for (int i = 0; i < lines; ++i) {
      std::string line = quoted ? "> " : "";
      while (line.size() < 66) line += Word(random) + " ";
      line.back() = '\r';
      text += line + "\n";
    }
    text += quoted ? ">\r\n" : "\r\n";
  }
  return text;
}

const std::string& Input(std::string (*make)(size_t), size_t size) {
  static std::map<std::pair<std::string (*)(size_t), size_t>, std::string> inputs;
  std::string& input = inputs[{make, size}];
  if (input.empty()) input = make(size);
  return input;
}

std::string QpHtmlBody(size_t size) { return QuotedPrintable(HtmlPage(size)).substr(0, size); }
std::string QpCyrillicBody(size_t size) {
  return QuotedPrintable(RussianText(size)).substr(0, size);
}

using Make = std::string (*)(size_t);
// Reads `input`, writes `output`, which has room for all of them.
using Convert = size_t (*)(const std::string& input, std::vector<char>& output);

void Run(benchmark::State& state, Make make, Convert convert) {
  const std::string& input = Input(make, static_cast<size_t>(state.range(0)));
  std::vector<char> output(input.size() * 2 + 64);
  for (auto _ : state) benchmark::DoNotOptimize(convert(input, output));
  state.SetBytesProcessed(static_cast<int64_t>(input.size()) * state.iterations());
}

// As the other benchmarks are timed: what other programs do meanwhile does not count.
double ThreadSeconds() {
  timespec time;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// For what works in place: the input is put there again each time, outside the measured time.
void RunInPlace(benchmark::State& state, Make make, void (*convert)(char*, int32_t)) {
  const std::string& input = Input(make, static_cast<size_t>(state.range(0)));
  std::vector<char> buffer(input.size());
  for (auto _ : state) {
    std::memcpy(buffer.data(), input.data(), input.size());
    const double start = ThreadSeconds();
    convert(buffer.data(), static_cast<int32_t>(input.size()));
    benchmark::ClobberMemory();
    state.SetIterationTime(ThreadSeconds() - start);
  }
  state.SetBytesProcessed(static_cast<int64_t>(input.size()) * state.iterations());
}

size_t Copy(const std::string& input, std::vector<char>& output) {
  std::memcpy(output.data(), input.data(), input.size());
  benchmark::ClobberMemory();
  return input.size();
}

size_t OurBase64(const std::string& input, std::vector<char>& output) {
  auto length = static_cast<int32_t>(input.size());
  Base64Decode(input.data(), output.data(), &length);
  return static_cast<size_t>(length);
}

size_t PlainBase64(const std::string& input, std::vector<char>& output) {
  return korvane::conversions::portable::Base64Decode(input.data(), input.size(), output.data());
}

size_t GMimeBase64(const std::string& input, std::vector<char>& output) {
  int state = 0;
  guint32 save = 0;
  return g_mime_encoding_base64_decode_step(
      reinterpret_cast<const unsigned char*>(input.data()), input.size(),
      reinterpret_cast<unsigned char*>(output.data()), &state, &save);
}

size_t GlibBase64(const std::string& input, std::vector<char>& output) {
  gint state = 0;
  guint save = 0;
  return g_base64_decode_step(input.data(), input.size(), reinterpret_cast<guchar*>(output.data()),
                              &state, &save);
}

size_t OpenSslBase64(const std::string& input, std::vector<char>& output) {
  EVP_ENCODE_CTX* context = EVP_ENCODE_CTX_new();
  EVP_DecodeInit(context);
  int count = 0;
  EVP_DecodeUpdate(context, reinterpret_cast<unsigned char*>(output.data()), &count,
                   reinterpret_cast<const unsigned char*>(input.data()),
                   static_cast<int>(input.size()));
  EVP_ENCODE_CTX_free(context);
  return static_cast<size_t>(count);
}

size_t OurUu(const std::string& input, std::vector<char>& output) {
  auto length = static_cast<int32_t>(input.size());
  UUDecode(input.data(), output.data(), &length);
  return static_cast<size_t>(length);
}

size_t PlainUu(const std::string& input, std::vector<char>& output) {
  return korvane::conversions::portable::UuDecode(input.data(), input.size(), output.data());
}

size_t GMimeUu(const std::string& input, std::vector<char>& output) {
  int state = GMIME_UUDECODE_STATE_BEGIN;
  guint32 save = 0;
  return g_mime_encoding_uudecode_step(
      reinterpret_cast<const unsigned char*>(input.data()), input.size(),
      reinterpret_cast<unsigned char*>(output.data()), &state, &save);
}

void OurQuotedPrintable(char* buffer, int32_t size) { QuotedPrintableDecode(buffer, &size); }

void PlainQuotedPrintable(char* buffer, int32_t size) {
  korvane::conversions::portable::QuotedPrintableDecode(buffer, static_cast<size_t>(size));
}

size_t GMimeQuotedPrintable(const std::string& input, std::vector<char>& output) {
  int state = 0;
  guint32 save = 0;
  return g_mime_encoding_quoted_decode_step(
      reinterpret_cast<const unsigned char*>(input.data()), input.size(),
      reinterpret_cast<unsigned char*>(output.data()), &state, &save);
}

size_t OurHtmlSize(const std::string& input, std::vector<char>&) {
  return static_cast<size_t>(
      NumCharReqPlusForConvTextToHTML(input.data(), static_cast<int32_t>(input.size())));
}

size_t OurTextToHtml(const std::string& input, std::vector<char>& output) {
  auto length = static_cast<int32_t>(input.size());
  ConvTextToHTML(input.data(), output.data(), &length);
  return static_cast<size_t>(length);
}

size_t PlainTextToHtml(const std::string& input, std::vector<char>& output) {
  return korvane::conversions::portable::TextToHtml(input.data(), input.size(), output.data(),
                                                    korvane::conversions::kLongestHtml);
}

// Escapes less: neither line ends nor blanks.
size_t GlibEscape(const std::string& input, std::vector<char>&) {
  gchar* escaped = g_markup_escape_text(input.data(), static_cast<gssize>(input.size()));
  const size_t first = static_cast<size_t>(escaped[0]);
  g_free(escaped);
  return first;
}

void Add(const char* name, Make make, Convert convert) {
  benchmark::RegisterBenchmark(name, Run, make, convert)->Arg(16 << 20)->Arg(64 << 10);
}

void AddInPlace(const char* name, Make make, void (*convert)(char*, int32_t)) {
  benchmark::RegisterBenchmark(name, RunInPlace, make, convert)
      ->Arg(16 << 20)
      ->Arg(64 << 10)
      ->UseManualTime();
}

}  // namespace

int main(int argc, char** argv) {
  Add("base64/memcpy", Base64Body, Copy);
  Add("base64/korvane", Base64Body, OurBase64);
  Add("base64/plain", Base64Body, PlainBase64);
  Add("base64/openssl", Base64Body, OpenSslBase64);
  Add("base64/gmime", Base64Body, GMimeBase64);
  Add("base64/glib", Base64Body, GlibBase64);

  Add("quoted_printable_html/memcpy", QpHtmlBody, Copy);
  AddInPlace("quoted_printable_html/korvane", QpHtmlBody, OurQuotedPrintable);
  AddInPlace("quoted_printable_html/plain", QpHtmlBody, PlainQuotedPrintable);
  Add("quoted_printable_html/gmime", QpHtmlBody, GMimeQuotedPrintable);

  Add("quoted_printable_cyrillic/memcpy", QpCyrillicBody, Copy);
  AddInPlace("quoted_printable_cyrillic/korvane", QpCyrillicBody, OurQuotedPrintable);
  AddInPlace("quoted_printable_cyrillic/plain", QpCyrillicBody, PlainQuotedPrintable);
  Add("quoted_printable_cyrillic/gmime", QpCyrillicBody, GMimeQuotedPrintable);

  Add("uu/memcpy", UuBody, Copy);
  Add("uu/korvane", UuBody, OurUu);
  Add("uu/plain", UuBody, PlainUu);
  Add("uu/gmime", UuBody, GMimeUu);

  Add("text_to_html/memcpy", MailText, Copy);
  Add("text_to_html/korvane", MailText, OurTextToHtml);
  Add("text_to_html/plain", MailText, PlainTextToHtml);
  Add("text_to_html/glib", MailText, GlibEscape);
  Add("html_size/memcpy", MailText, Copy);
  Add("html_size/korvane", MailText, OurHtmlSize);

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
