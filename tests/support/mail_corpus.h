// Folders of real messages. Each message runs with LF and with CRLF line ends, is stored and read
// back, and its leaves are compared with what Python's own parser decodes
// (message/decode_leaves.py, which also says for which messages and why the two must differ). An
// empty folder is a failure.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "frame/files.h"
#include "support/entity_tree.h"
#include "support/record_store.h"

namespace korvane::test {

inline uint32_t Crc32(std::string_view bytes) {
  static const auto table = [] {
    std::array<uint32_t, 256> entries{};
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t value = i;
      for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ (value & 1 ? 0xEDB88320u : 0);
      entries[i] = value;
    }
    return entries;
  }();
  uint32_t crc = 0xFFFFFFFFu;
  for (const char c : bytes) crc = table[(crc ^ static_cast<uint8_t>(c)) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

enum class LineEnds { kLf, kCrLf };

/// The message with these line ends, whatever it had.
inline std::string WithLineEnds(std::string_view text, LineEnds ends) {
  std::string out;
  out.reserve(text.size() + text.size() / 20);
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
    if (text[i] == '\n' && ends == LineEnds::kCrLf) out += '\r';
    out += text[i];
  }
  return out;
}

/// As a server sends it: a line that begins with a full stop has one more.
inline std::string WithTransportDots(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 16);
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '.' && (i == 0 || text[i - 1] == '\n')) out += '.';
    out += text[i];
  }
  return out;
}

struct CorpusCount {
  size_t messages = 0;
  size_t compared_messages = 0;
  size_t compared_leaves = 0;
};

class CorpusRun {
 public:
  CorpusRun(std::string folder, LineEnds ends) : folder_(std::move(folder)), ends_(ends) {}

  CorpusCount Run() {
    std::vector<std::string> paths;
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_, error)) {
      if (entry.is_regular_file()) paths.push_back(entry.path().string());
    }
    EXPECT_FALSE(paths.empty()) << folder_ << " holds no message";
    std::sort(paths.begin(), paths.end());
    AskPython();
    for (const std::string& path : paths) {
      std::ifstream file(path, std::ios::binary);
      const std::string bytes{std::istreambuf_iterator<char>(file), {}};
      SCOPED_TRACE(path + (ends_ == LineEnds::kLf ? " with LF" : " with CRLF"));
      Message(path, WithTransportDots(WithLineEnds(bytes, ends_)));
    }
    return count_;
  }

 private:
  struct Leaf {
    std::string kind;
    std::string bytes;  // length TAB crc32, "-" when it cannot be compared
    std::string text;
  };

  void AskPython() {
    const TempFolder folder;
    const std::string result = folder / "leaves";
    const std::string command = std::string("python3 '") + KORVANE_SOURCE_DIR +
                                "/tests/message/decode_leaves.py' '" + folder_ + "' > " + result;
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    std::ifstream lines(result, std::ios::binary);
    std::string line;
    while (std::getline(lines, line)) {
      std::vector<std::string> cells;
      size_t from = 0;
      for (size_t tab = line.find('\t'); tab != std::string::npos; tab = line.find('\t', from)) {
        cells.push_back(line.substr(from, tab - from));
        from = tab + 1;
      }
      cells.push_back(line.substr(from));
      ASSERT_GE(cells.size(), 3u) << line;
      if (cells[1] == "skip") continue;
      ASSERT_EQ(cells.size(), 7u) << line;
      leaves_[cells[0]].push_back(
          {cells[2], cells[3] + "\t" + cells[4], cells[5] + "\t" + cells[6]});
    }
  }

  void Message(const std::string& path, const std::string& text) {
    ++count_.messages;
    const auto message = store_.Parsed(text);
    if (text.empty()) {
      EXPECT_EQ(message->GetLastError(), 1050);
      return;
    }
    EXPECT_EQ(message->GetLastError(), 0);
    const auto expected = leaves_.find(path);
    if (expected != leaves_.end()) Compare(expected->second, *message);
    StoreAndReadBack(*message);
  }

  void Compare(const std::vector<Leaf>& expected, const MailMessage& message) {
    std::vector<const MultipartEntity*> leaves;
    if (message.Entity()) Collect(*message.Entity(), leaves);
    ASSERT_EQ(expected.size(), message.Entity() ? leaves.size() : 1);
    ++count_.compared_messages;
    for (size_t i = 0; i < expected.size(); ++i) {
      if (expected[i].bytes.starts_with("-")) continue;
      const bool shown = !message.Entity() || (leaves[i]->Fields().type == EEntityType::Text &&
                                               !leaves[i]->IsAttachment());
      const std::string& data = message.Entity() ? leaves[i]->Data() : message.BodyText();
      char mark[32];
      std::snprintf(mark, sizeof mark, "%zu\t%08x", data.size(), Crc32(data));
      EXPECT_EQ(mark, shown ? expected[i].text : expected[i].bytes)
          << "leaf " << i << " (" << expected[i].kind << "): " << data.substr(0, 300);
      ++count_.compared_leaves;
    }
  }

  static void Collect(const MultipartEntity& entity, std::vector<const MultipartEntity*>& leaves) {
    if (entity.Fields().type != EEntityType::multipart) leaves.push_back(&entity);
    for (const auto& child : entity.Children()) Collect(*child, leaves);
  }

  // Every getter, the tree and what is shown.
  static std::string Everything(MailMessage& m) {
    std::string all;
    for (const std::string& text : {m.MessageUIDL(),
                                    m.MessageSeparator(),
                                    m.OriginalHeader(),
                                    m.ReturnPath(),
                                    m.ReturnPathAddress(),
                                    m.ReplyTo(),
                                    m.ReplyToName(),
                                    m.ReplyToAddress(),
                                    m.From(),
                                    m.FromName(),
                                    m.FromMailAddress(),
                                    m.Sender(),
                                    m.SenderName(),
                                    m.SenderAddress(),
                                    m.SendDate(),
                                    m.ReceivedDate(),
                                    m.MessageTo(),
                                    m.MessageToName(),
                                    m.MessageToAddress(),
                                    m.CC(),
                                    m.CC_Name(),
                                    m.CC_Address(),
                                    m.BCC(),
                                    m.BCC_Name(),
                                    m.BCC_Address(),
                                    m.MessageID(),
                                    m.InReplyTo(),
                                    m.References(),
                                    m.Keywords(),
                                    m.Subject(),
                                    m.Comments(),
                                    m.Encrypted(),
                                    m.Received(),
                                    m.Fields().content_type,
                                    m.Fields().disposition}) {
      all += text + "\n";
    }
    all += std::to_string(m.Size()) + (m.ExistAttachments() ? " files" : " no files");
    if (m.Entity()) all += TreeOf(*m.Entity());
    std::string body;
    for (const auto type :
         {ETextAlternativeType::AlterType_Html, ETextAlternativeType::AlterType_Text}) {
      m.MessageBody(body, type, ETextFormat::TextFormat_HTML);
      all += "\n" + body + std::to_string(m.GetLastError());
    }
    const auto list = m.GetAttachments();
    for (int32_t i = 1; i <= list->Count(); ++i) {
      const auto attachment = list->ItemIndex(i);
      all += "\n" + std::to_string(attachment->Id()) + " " + attachment->Name() + " " +
             attachment->NameOnServer();
    }
    return all;
  }

  void StoreAndReadBack(MailMessage& message) {
    const int64_t position = store_.Store(message, ++id_);
    ASSERT_NE(position, -1);
    if (message.Entity()) CheckFiles(*message.Entity());
    const auto back = store_.ReadBack(position, id_);
    ASSERT_TRUE(back);
    EXPECT_EQ(Everything(*back), Everything(message));
    for (const auto& entry : std::filesystem::directory_iterator(store_.attachments().path())) {
      std::filesystem::remove(entry.path());
    }
  }

  void CheckFiles(const MultipartEntity& entity) {
    if (!entity.NameOnServer().empty()) {
      std::string data;
      EXPECT_TRUE(ReadWholeFile(store_.attachment(entity.NameOnServer()), data));
      EXPECT_TRUE(data == entity.Data()) << entity.NameOnServer();
    }
    for (const auto& child : entity.Children()) CheckFiles(*child);
  }

  std::string folder_;
  LineEnds ends_;
  RecordStore store_;
  int32_t id_ = 0;
  std::map<std::string, std::vector<Leaf>> leaves_;
  CorpusCount count_;
};

/// Runs a folder with both line ends. At least `share` of its messages must have been compared.
inline void RunCorpus(const std::string& folder, double share) {
  for (const LineEnds ends : {LineEnds::kCrLf, LineEnds::kLf}) {
    const CorpusCount count = CorpusRun(folder, ends).Run();
    std::printf("%s: %zu messages, %zu compared, %zu leaves\n", folder.c_str(), count.messages,
                count.compared_messages, count.compared_leaves);
    EXPECT_GE(static_cast<double>(count.compared_messages),
              share * static_cast<double>(count.messages))
        << folder;
  }
}

}  // namespace korvane::test
