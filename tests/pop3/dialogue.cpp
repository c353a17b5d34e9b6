#include "pop3/dialogue.h"

#include <cctype>
#include <fstream>
#include <stdexcept>
#include <string_view>

namespace korvane::test {
namespace {

std::string UndoEscapes(std::string_view text) {
  std::string undone;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      undone += text[i];
      continue;
    }
    switch (const char c = text[++i]) {
      case 'r':
        undone += '\r';
        break;
      case 'n':
        undone += '\n';
        break;
      case 't':
        undone += '\t';
        break;
      case '0':
        undone += '\0';
        break;
      case 'x':
        undone += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
        i += 2;
        break;
      default:
        undone += c;
    }
  }
  return undone;
}

Words ReadWords(std::string_view line) {
  Words words;
  size_t i = 0;
  while (i < line.size()) {
    if (line[i] == ' ') {
      ++i;
      continue;
    }
    std::string word;
    size_t equals = std::string::npos;
    bool quoted = false;
    bool was_quoted = false;
    for (; i < line.size() && (quoted || line[i] != ' '); ++i) {
      if (line[i] == '"') {
        quoted = !quoted;
        was_quoted = true;
      } else if (line[i] == '\\' && i + 1 < line.size()) {
        word += line[i++];
        word += line[i];
      } else {
        if (line[i] == '=' && !quoted && !was_quoted && equals == std::string::npos) {
          equals = word.size();
        }
        word += line[i];
      }
    }
    if (equals != std::string::npos && equals > 0) {
      words.named[word.substr(0, equals)] = UndoEscapes(std::string_view(word).substr(equals + 1));
    } else {
      words.plain.push_back(UndoEscapes(word));
    }
  }
  return words;
}

class Reader {
 public:
  explicit Reader(const std::filesystem::path& file) { dialogue_.name = file.stem().string(); }

  void Take(std::string_view line, int number) {
    if (line.empty()) return;
    if (line.front() == '#') {
      if (dialogue_.claim.empty()) dialogue_.claim = line.substr(std::min<size_t>(2, line.size()));
      return;
    }
    if (line.front() == '>') {
      dialogue_.calls.push_back({});
      dialogue_.calls.back().line = number;
      dialogue_.calls.back().operation = ReadWords(line.substr(1));
      return;
    }
    if (line.front() == '=') {
      Last().result = ReadWords(line.substr(1));
      Last().has_result = true;
      return;
    }
    const std::string_view head = line.substr(0, 2);
    std::string_view rest = line.substr(std::min<size_t>(3, line.size()));
    if (head == "S:") return Say(UndoEscapes(rest) + "\r\n");
    if (head == "S|") return Say(UndoEscapes(rest));
    if (head == "S*" || head == "S~") {
      const size_t blank = rest.find(' ');
      dialogue_.exchanges.push_back(
          {head == "S*" ? Exchange::Kind::kSayOften : Exchange::Kind::kDrip,
           UndoEscapes(rest.substr(blank + 1)), std::stoll(std::string(rest.substr(0, blank)))});
      return;
    }
    if (head == "C:") return Hear(UndoEscapes(rest));
    TakeKeyword(line);
  }

  Dialogue Result() {
    if (dialogue_.claim.empty()) throw std::runtime_error("no claim");
    if (dialogue_.calls.empty()) throw std::runtime_error("no operation");
    for (const Call& call : dialogue_.calls) {
      if (!call.has_result) throw std::runtime_error("an operation without a result");
    }
    return std::move(dialogue_);
  }

 private:
  Call& Last() {
    if (dialogue_.calls.empty()) throw std::runtime_error("no operation yet");
    return dialogue_.calls.back();
  }
  void Say(std::string text) {
    dialogue_.exchanges.push_back({Exchange::Kind::kSay, std::move(text), 0});
  }
  void Hear(std::string line) {
    dialogue_.exchanges.push_back({Exchange::Kind::kHear, std::move(line), 0});
  }

  void TakeKeyword(std::string_view line) {
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) throw std::runtime_error("not understood");
    const std::string_view keyword = line.substr(0, colon);
    std::string_view rest = line.substr(colon + 1);
    if (!rest.empty()) rest.remove_prefix(1);
    const Words words = ReadWords(rest);
    if (keyword == "account") {
      dialogue_.account = words;
    } else if (keyword == "limits") {
      dialogue_.limits = words;
    } else if (keyword == "known") {
      dialogue_.known.push_back(words);
    } else if (keyword == "deleted") {
      dialogue_.deleted.push_back(words);
    } else if (keyword == "unvisited") {
      dialogue_.unvisited = true;
    } else if (keyword == "pieces" && rest == "whole") {
      dialogue_.whole_only = true;
    } else if (keyword == "pause") {
      dialogue_.exchanges.push_back({Exchange::Kind::kPause, {}, words.Number(0)});
    } else if (keyword == "close") {
      dialogue_.exchanges.push_back({Exchange::Kind::kClose, {}, 0});
    } else if (keyword == "accept") {
      dialogue_.exchanges.push_back({Exchange::Kind::kAccept, {}, 0});
    } else if (keyword == "sends") {
      Last().sends = words.Number(0);
    } else if (keyword == "error") {
      Last().error = words.Number(0);
      const size_t blank = rest.find(' ');
      Last().error_text =
          blank == std::string_view::npos ? "XXX" : UndoEscapes(rest.substr(blank + 1));
    } else if (keyword == "state") {
      Last().state = words.Number(0);
    } else if (keyword == "asked") {
      Last().asked = words.Number(0);
    } else if (keyword == "login") {
      Login();
    } else if (keyword == "stat") {
      Hear("STAT");
      Say("+OK " + words.Plain(0) + " 1200\r\n");
    } else if (keyword == "header" || keyword == "whole") {
      Message(keyword == "whole", words);
    } else {
      throw std::runtime_error("not understood");
    }
  }

  void Login() {
    dialogue_.calls.push_back({});
    Last().operation.plain = {"Connect"};
    Last().result.plain = {"true"};
    Last().has_result = true;
    Last().state = 2;
    Say("+OK ready\r\n");
    Hear("USER " + dialogue_.account.Named("user", "bob"));
    Say("+OK\r\n");
    Hear("PASS " + dialogue_.account.Named("password", "secret"));
    Say("+OK\r\n");
  }

  void Message(bool whole, const Words& words) {
    const std::string number = words.plain.at(0);
    std::string text = "+OK\r\n";
    if (words.named.contains("received")) {
      text += "Received: " + words.named.at("received") + "\r\n";
    } else if (words.named.contains("at")) {
      text += "Received: from a by b; " + words.named.at("at") + "\r\n";
    }
    const std::string id = words.Named("id", "<" + number + "@x>");
    if (!id.empty()) text += "Message-ID: " + id + "\r\n";
    for (const char* name : {"From", "Subject", "Date"}) {
      std::string key(name);
      key[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(key[0])));
      if (words.named.contains(key)) text += key + ": " + words.named.at(key) + "\r\n";
    }
    Hear(whole ? "RETR " + number : "TOP " + number + " 0");
    text += "\r\n";
    if (whole) text += words.Named("body", "text") + "\r\n";
    Say(text + ".\r\n");
    Hear("LIST " + number);
    Say("+OK " + number + " " + words.Named("size", number + "00") + "\r\n");
    Hear("UIDL " + number);
    Say("+OK " + number + " " + words.Named("uidl", "u" + number) + "\r\n");
  }

  Dialogue dialogue_;
};

}  // namespace

Dialogue ReadDialogue(const std::filesystem::path& file) {
  std::ifstream stream(file);
  Reader reader(file);
  std::string line;
  int number = 0;
  try {
    while (std::getline(stream, line)) reader.Take(line, ++number);
    return reader.Result();
  } catch (const std::exception& fault) {
    throw std::runtime_error(file.filename().string() + ":" + std::to_string(number) + ": " +
                             fault.what());
  }
}

}  // namespace korvane::test
