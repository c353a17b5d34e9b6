#include "cli/sample_server/mailbox.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace korvane::sample {
namespace {

/// 64-bit FNV-1a of the file's name, so that a message keeps its id wherever its folder lies.
std::string UniqueId(std::string_view name) {
  uint64_t hash = 0xcbf29ce484222325u;
  for (const unsigned char c : name) hash = (hash ^ c) * 0x100000001b3u;
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
  return text;
}

}  // namespace

std::vector<StoredMessage> ListMailbox(const std::vector<std::string>& folders,
                                       const std::set<std::string, std::less<>>& gone) {
  std::vector<StoredMessage> messages;
  for (const std::string& folder : folders) {
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
      if (entry.is_regular_file(error)) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
      StoredMessage message{file.string(), UniqueId(file.filename().string()), 0};
      if (gone.contains(message.unique_id)) continue;
      message.size = static_cast<int64_t>(ReadMessage(message.path).size());
      messages.push_back(std::move(message));
    }
  }
  return messages;
}

std::string ReadMessage(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  std::string message;
  message.reserve(bytes.size() + bytes.size() / 32);
  char before = 0;
  for (const char c : bytes) {
    if (c == '\n' && before != '\r') message += '\r';
    message += c;
    before = c;
  }
  return message;
}

std::string AsReplyLines(std::string_view message, int64_t body_lines) {
  std::string lines;
  lines.reserve(message.size() + 16);
  bool in_body = false;
  while (!message.empty() && (!in_body || body_lines != 0)) {
    const size_t end = message.find("\r\n");
    const std::string_view line = message.substr(0, end);
    message.remove_prefix(end == std::string_view::npos ? message.size() : end + 2);
    if (line.starts_with('.')) lines += '.';
    lines += line;
    lines += "\r\n";
    if (in_body && body_lines > 0) --body_lines;
    if (line.empty()) in_body = true;
  }
  lines += ".\r\n";
  return lines;
}

}  // namespace korvane::sample
