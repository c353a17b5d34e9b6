// Reads one dialogue file; tests/dialogues/README.md tells the format.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace korvane::test {

/// "key=value" and plain words of one line, quotes and escapes undone.
struct Words {
  std::vector<std::string> plain;
  std::map<std::string, std::string> named;

  std::string Plain(size_t i) const { return i < plain.size() ? plain[i] : ""; }
  std::string Named(const std::string& key, const std::string& otherwise) const {
    const auto found = named.find(key);
    return found == named.end() ? otherwise : found->second;
  }
  int32_t Number(size_t i) const { return std::stoi(plain.at(i)); }
  int32_t Number(const std::string& key, int32_t otherwise) const {
    const auto found = named.find(key);
    return found == named.end() ? otherwise : std::stoi(found->second);
  }
};

/// What happens on the server's side.
struct Exchange {
  enum class Kind { kSay, kSayOften, kDrip, kHear, kPause, kClose, kAccept };
  Kind kind;
  std::string text;
  int64_t number = 0;
};

/// One call of an operation and how it must end.
struct Call {
  int line = 0;
  Words operation;
  int32_t sends = -1;  ///< so many sends go through
  Words result;
  bool has_result = false;
  int32_t error = 0;
  std::string error_text;
  int32_t state = 0;   ///< 0: not looked at
  int32_t asked = -1;  ///< statements run in it; -1: not looked at
};

struct Dialogue {
  std::string name;
  std::string claim;
  Words account;
  Words limits;
  std::vector<Words> known;    ///< rows of "mail"
  std::vector<Words> deleted;  ///< rows of the table of deleted messages
  bool unvisited = false;      ///< nobody may connect
  bool whole_only = false;     ///< the blocks matter; not run one byte at a time
  std::vector<Exchange> exchanges;
  std::vector<Call> calls;
};

/// Throws std::runtime_error with the file and line of what it does not understand.
Dialogue ReadDialogue(const std::filesystem::path& file);

}  // namespace korvane::test
