// A whole folder of messages parsed from memory: headers decoded, tree built, every leaf decoded.
// Ours beside GMime, vmime and mimetic on the same messages, and a plain scan for line ends as the
// bound of what a single look at every byte costs.
//
// The folder is $KORVANE_BENCH_MAIL, otherwise messages are made up from a fixed seed in the mix of
// ordinary mail: plain text, text with HTML, and one in ten with a large attachment.
#include <benchmark/benchmark.h>
#include <gmime/gmime.h>
#include <mimetic/mimetic.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "facade/mail_user.h"
#include "message/mail_message.h"
// Its macros are not for others to see.
#include <vmime/vmime.hpp>

namespace {

using Random = std::mt19937;

std::string Words(Random& random, size_t size, const char* line_end) {
  constexpr const char* kWords[] = {"the",     "meeting",       "of",     "Thursday", "and",
                                    "invoice", "Z\xC3\xBCrich", "please", "order",    "caf\xC3\xA9",
                                    "with",    "regards"};
  std::string text;
  size_t column = 0;
  while (text.size() < size) {
    const std::string word = kWords[random() % std::size(kWords)];
    text += word;
    column += word.size() + 1;
    if (column > 66) {
      text += line_end;
      column = 0;
    } else {
      text += ' ';
    }
  }
  return text + line_end;
}

std::string QuotedPrintable(const std::string& text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string coded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x80 || c == '=') {
      coded += '=';
      coded += kDigits[byte >> 4];
      coded += kDigits[byte & 15];
    } else {
      coded += c;
    }
  }
  return coded;
}

std::string Base64(const std::string& bytes) {
  std::string coded;
  char line[80];
  for (size_t i = 0; i < bytes.size(); i += 57) {
    const auto count = static_cast<int>(std::min<size_t>(57, bytes.size() - i));
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(line),
                    reinterpret_cast<const unsigned char*>(bytes.data()) + i, count);
    coded.append(line).append("\r\n");
  }
  return coded;
}

std::string Header(Random& random, int number) {
  std::string header = "Return-Path: <bounce-" + std::to_string(number) + "@lists.example.com>\r\n";
  for (int hop = 0; hop < 4; ++hop) {
    header += "Received: from mx" + std::to_string(hop) +
              ".example.com (mx.example.com [192.0.2.1])\r\n\tby in.example.org (Postfix) with "
              "ESMTPS id 4F7D2A1\r\n\tfor <maria@example.org>; Tue, 5 Mar 2024 10:20:3" +
              std::to_string(9 - hop) + " +0100 (CET)\r\n";
  }
  header +=
      "DKIM-Signature: v=1; a=rsa-sha256; d=example.com; s=s1;\r\n h=from:to:subject:date;\r\n b=";
  for (int i = 0; i < 4; ++i) {
    for (int k = 0; k < 70; ++k) header += static_cast<char>('A' + random() % 26);
    header += "\r\n ";
  }
  header += "x\r\nMessage-ID: <" + std::to_string(random()) +
            "@example.com>\r\nDate: Tue, 5 Mar 2024 10:20:30 +0100\r\n"
            "From: =?UTF-8?Q?J=C3=BCrgen_M=C3=BCller?= <juergen@example.com>\r\n"
            "To: Maria Rossi <maria@example.org>, \"Doe, Jane\" <jane@example.org>\r\n"
            "Subject: =?utf-8?B?R3LDvMOfZSBhdXMgWsO8cmljaA==?= and the invoice " +
            std::to_string(number) +
            "\r\nX-Mailer: test\r\nX-Spam-Status: No, score=-1.2\r\n"
            "MIME-Version: 1.0\r\n";
  return header;
}

std::vector<std::string> MadeUpMessages() {
  std::vector<std::string> messages;
  Random random(20240603);
  for (int i = 0; i < 600; ++i) {
    std::string message = Header(random, i);
    const std::string text = Words(random, 500 + random() % 4000, "\r\n");
    if (i % 4 == 0) {
      message +=
          "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n\r\n";
      message += text;
    } else {
      const std::string boundary = "----=_Part_" + std::to_string(random()) + ".1709630430";
      std::string body =
          "--" + boundary +
          "\r\nContent-Type: text/plain; charset=utf-8\r\n"
          "Content-Transfer-Encoding: quoted-printable\r\n\r\n" +
          QuotedPrintable(text) + "\r\n--" + boundary +
          "\r\nContent-Type: text/html; charset=\"utf-8\"\r\n"
          "Content-Transfer-Encoding: quoted-printable\r\n\r\n" +
          QuotedPrintable("<html><body class=\"x\">" + text + text + "</body></html>") + "\r\n";
      const char* type = "alternative";
      if (i % 10 == 1) {
        type = "mixed";
        std::string file(70'000 + random() % 300'000, '\0');
        for (char& c : file) c = static_cast<char>(random());
        body += "--" + boundary +
                "\r\nContent-Type: application/pdf; name=\"report.pdf\"\r\n"
                "Content-Transfer-Encoding: base64\r\n"
                "Content-Disposition: attachment; filename=\"report.pdf\"\r\n\r\n" +
                Base64(file);
      }
      message += std::string("Content-Type: multipart/") + type + "; boundary=\"" + boundary +
                 "\"\r\n\r\n" + body + "--" + boundary + "--\r\n";
    }
    messages.push_back(std::move(message));
  }
  return messages;
}

struct Folder {
  std::vector<std::string> messages;
  int64_t bytes = 0;
};

const Folder& TheFolder() {
  static const Folder folder = [] {
    Folder read;
    if (const char* const path = std::getenv("KORVANE_BENCH_MAIL")) {
      for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
        if (!entry.is_regular_file()) continue;
        std::ifstream file(entry.path(), std::ios::binary);
        read.messages.emplace_back(std::istreambuf_iterator<char>(file),
                                   std::istreambuf_iterator<char>());
      }
    } else {
      read.messages = MadeUpMessages();
    }
    for (const std::string& message : read.messages) {
      read.bytes += static_cast<int64_t>(message.size());
    }
    return read;
  }();
  return folder;
}

template <class Parse>
void OverTheFolder(benchmark::State& state, Parse parse) {
  const Folder& folder = TheFolder();
  if (folder.messages.empty()) {
    state.SkipWithError("the folder is empty");
    return;
  }
  size_t decoded = 0;
  for ([[maybe_unused]] auto _ : state) {
    for (const std::string& message : folder.messages) decoded += parse(message);
  }
  benchmark::DoNotOptimize(decoded);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * folder.bytes);
  state.counters["messages"] = static_cast<double>(folder.messages.size());
  state.counters["decoded"] =
      static_cast<double>(decoded) / static_cast<double>(state.iterations());
}

// Ours.

size_t DecodedBytes(const korvane::MultipartEntity& entity) {
  size_t bytes = entity.Data().size();
  for (const auto& child : entity.Children()) bytes += DecodedBytes(*child);
  return bytes;
}

void BM_Korvane(benchmark::State& state) {
  const auto account = std::make_shared<korvane::MailUser>();
  OverTheFolder(state, [&account](const std::string& text) {
    korvane::MailMessage message;
    message.LoadWholeMessage(account, 1, static_cast<int32_t>(text.size()), "", "", text);
    return message.BodyText().size() + (message.Entity() ? DecodedBytes(*message.Entity()) : 0);
  });
}
BENCHMARK(BM_Korvane)->Name("parse/korvane");

// mimetic decodes no encoded words.

size_t DecodedBytes(mimetic::MimeEntity& entity) {
  size_t bytes = 0;
  if (entity.body().parts().empty()) {
    const std::string& body = entity.body();
    std::string coding = entity.header().contentTransferEncoding().mechanism();
    for (char& c : coding) c = static_cast<char>(tolower(c));
    std::string data;
    if (coding == "base64") {
      mimetic::Base64::Decoder decoder;
      mimetic::decode(body.begin(), body.end(), decoder, std::back_inserter(data));
    } else if (coding == "quoted-printable") {
      mimetic::QP::Decoder decoder;
      mimetic::decode(body.begin(), body.end(), decoder, std::back_inserter(data));
    } else {
      data = body;
    }
    bytes = data.size();
  }
  for (mimetic::MimeEntity* part : entity.body().parts()) bytes += DecodedBytes(*part);
  return bytes;
}

void BM_Mimetic(benchmark::State& state) {
  OverTheFolder(state, [](const std::string& text) {
    mimetic::MimeEntity message(text.begin(), text.end());
    size_t bytes = message.header().subject().size() + message.header().from().size() +
                   message.header().to().size() + message.header().cc().size() +
                   message.header().replyto().size();
    return bytes + DecodedBytes(message);
  });
}
BENCHMARK(BM_Mimetic)->Name("parse/mimetic");

// GMime

void DecodePart(GMimeObject*, GMimeObject* part, gpointer bytes) {
  if (!GMIME_IS_PART(part)) return;
  GMimeDataWrapper* const content = g_mime_part_get_content(GMIME_PART(part));
  if (content == nullptr) return;
  GMimeStream* const data = g_mime_stream_mem_new();
  *static_cast<size_t*>(bytes) +=
      static_cast<size_t>(g_mime_data_wrapper_write_to_stream(content, data));
  g_object_unref(data);
}

void BM_GMime(benchmark::State& state) {
  g_mime_init();
  OverTheFolder(state, [](const std::string& text) {
    // A view of the text: the stream neither copies nor frees it.
    GByteArray bytes{reinterpret_cast<guint8*>(const_cast<char*>(text.data())),
                     static_cast<guint>(text.size())};
    GMimeStream* const stream = g_mime_stream_mem_new_with_byte_array(&bytes);
    g_mime_stream_mem_set_owner(GMIME_STREAM_MEM(stream), FALSE);
    GMimeParser* const parser = g_mime_parser_new_with_stream(stream);
    GMimeMessage* const message = g_mime_parser_construct_message(parser, nullptr);
    size_t decoded = 0;
    if (message != nullptr) {
      const char* const subject = g_mime_message_get_subject(message);
      decoded += subject ? std::strlen(subject) : 0;
      for (InternetAddressList* list :
           {g_mime_message_get_from(message), g_mime_message_get_to(message),
            g_mime_message_get_cc(message), g_mime_message_get_reply_to(message)}) {
        char* const names = list ? internet_address_list_to_string(list, nullptr, FALSE) : nullptr;
        decoded += names ? std::strlen(names) : 0;
        g_free(names);
      }
      benchmark::DoNotOptimize(g_mime_message_get_date(message));
      g_mime_message_foreach(message, DecodePart, &decoded);
      g_object_unref(message);
    }
    g_object_unref(parser);
    g_object_unref(stream);
    return decoded;
  });
}
BENCHMARK(BM_GMime)->Name("parse/gmime");

// vmime

size_t DecodedBytes(const vmime::shared_ptr<const vmime::bodyPart>& part) {
  size_t bytes = 0;
  const auto body = part->getBody();
  if (body->getPartCount() == 0) {
    std::string data;
    vmime::utility::outputStreamStringAdapter out(data);
    body->getContents()->extract(out);
    bytes = data.size();
  }
  for (size_t i = 0; i < body->getPartCount(); ++i) bytes += DecodedBytes(body->getPartAt(i));
  return bytes;
}

void BM_Vmime(benchmark::State& state) {
  const vmime::charset utf8("utf-8");
  OverTheFolder(state, [&utf8](const std::string& text) {
    size_t decoded = 0;
    try {
      const auto message = vmime::make_shared<vmime::message>();
      message->parse(text);
      const auto header = message->getHeader();
      if (header->hasField("Subject")) {
        decoded += header->Subject()->getValue<vmime::text>()->getConvertedText(utf8).size();
      }
      if (header->hasField("From")) {
        decoded +=
            header->From()->getValue<vmime::mailbox>()->getName().getConvertedText(utf8).size();
      }
      decoded += DecodedBytes(message);
    } catch (const std::exception&) {
      // It gives up on some messages; that counts as parsed.
    }
    return decoded;
  });
}
BENCHMARK(BM_Vmime)->Name("parse/vmime");

void BM_LineScan(benchmark::State& state) {
  OverTheFolder(state, [](const std::string& text) {
    size_t lines = 0;
    const char* at = text.data();
    const char* const end = at + text.size();
    while ((at = static_cast<const char*>(std::memchr(at, '\n', static_cast<size_t>(end - at)))) !=
           nullptr) {
      ++at;
      ++lines;
    }
    return lines;
  });
}
BENCHMARK(BM_LineScan)->Name("parse/line_scan");

}  // namespace

BENCHMARK_MAIN();
