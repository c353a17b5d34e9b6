// Servers that behave as a seed says: well, or refusing, cutting, falling silent, saying too
// little, too much or something else, each to some commands and always in the same way.
#pragma once

#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/model_server.h"

namespace korvane::test {

class RandomServer {
 public:
  /// `ahead`: for the client that reads ahead; replies that wait together then come in any pieces.
  RandomServer(uint64_t seed, bool ahead) : seed_(seed), pieces_(seed * 7919 + 3) {
    std::mt19937 random(seed);
    const auto upto = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    model.messages = upto(4) == 0 ? upto(3) : upto(25);
    constexpr int kOddOf1000[] = {0, 3, 10, 40, 300};
    odd_of_1000_ = kOddOf1000[upto(5)];
    oddity_ = upto(3) == 0 ? upto(kOddities) : -1;
    large_ = upto(6) == 0;
    without_uidl_ = upto(12) == 0;
    stat_ = upto(10);
    if (ahead && upto(4) != 0) model.pieces = &pieces_;
    model.answer = [this](const std::string& line) { return Answer(line); };
  }

  ModelServer model;
  /// Without a "received" line a message carries the moment at which it was stored.
  bool every_message_is_dated = false;
  /// Some messages have a part that becomes a file.
  bool with_files = false;

 private:
  static constexpr int kOddities = 17;

  std::optional<ModelReply> Answer(const std::string& line) {
    using Then = ModelReply::Then;
    const std::string verb = line.substr(0, 4);
    if (line == "STAT" && stat_ == 0) {
      // A count that is not right.
      return ModelReply{
          "+OK " + std::to_string(model.messages + static_cast<int>(seed_ % 3) - 1) + " 99\r\n",
          Then::kNothing,
          {}};
    }
    if (verb == "USER" || verb == "PASS" || line == "STAT") return std::nullopt;
    std::mt19937 random(seed_ ^ std::hash<std::string>()(line));
    const bool odd = static_cast<int>(random() % 1000) < odd_of_1000_;
    if (verb == "QUIT" || verb == "DELE") {
      if (!odd) return std::nullopt;
      return random() % 2 ? ModelReply{"-ERR not now\r\n", Then::kNothing, {}}
                          : ModelReply{"", Then::kClose, {}};
    }
    const int number = std::stoi(line.substr(verb == "TOP " ? 4 : 5));
    if (number < 1 || number > model.messages) {
      return ModelReply{"-ERR no such message\r\n", Then::kNothing, {}};
    }
    const std::string good = Good(verb, number);
    if (verb == "UIDL" && without_uidl_) return ModelReply{"-ERR what?\r\n", Then::kNothing, {}};
    if (!odd) return ModelReply{good, Then::kNothing, {}};
    return Odd(verb, number, good, random);
  }

  ModelReply Odd(const std::string& verb, int number, const std::string& good,
                 std::mt19937& random) const {
    using Then = ModelReply::Then;
    const std::string n = std::to_string(number);
    const size_t cut = random() % (good.size() + 1);
    const size_t early_cut = random() % std::min<size_t>(good.size() + 1, 12);
    switch (oddity_ >= 0 ? oddity_ : static_cast<int>(random() % kOddities)) {
      case 0:
        return {"-ERR no\r\n", Then::kNothing, {}};
      case 1:
        return {good.substr(0, cut), Then::kClose, {}};
      case 2:
        return {good.substr(0, early_cut), Then::kClose, {}};
      case 3:
        return {good.substr(0, cut), Then::kSilence, good.substr(cut)};
      case 4:
        return {good.substr(0, early_cut), Then::kSilence, good.substr(early_cut)};
      case 5:
        return {good.substr(0, cut), Then::kDead, {}};
      case 6:
        return {good, Then::kClose, {}};
      case 7: {
        const std::string shorter[] = {
            "+OK\r\n", "+OK " + n + "\r\n", "+OK " + n + " \r\n", "+\r\n", "-\r\n", "+OK "};
        return {shorter[random() % 6], Then::kNothing, {}};
      }
      case 8: {
        const std::string more[] = {"+OK " + n + " 77\r\n",
                                    good,
                                    "-ERR x\r\n",
                                    "junk\r\n",
                                    "\r\n",
                                    ".\r\n",
                                    "+OK\r\n",
                                    "+OK " + std::to_string(number - 1) + " 5\r\n",
                                    "x"};
        std::string reply = good;
        for (size_t i = random() % 3; i <= 2; ++i) reply += more[random() % 9];
        return {reply, Then::kNothing, {}};
      }
      case 9: {  // lines that end with LF alone
        std::string lf;
        for (const char c : good) {
          if (c != '\r') lf += c;
        }
        return {lf, Then::kNothing, {}};
      }
      case 10:  // no line end
        return {good.substr(0, good.size() - std::min<size_t>(good.size(), 1 + random() % 2)),
                Then::kNothing,
                {}};
      case 11:
        return {"+OK " + std::to_string(number + 1) + " 100\r\n", Then::kNothing, {}};
      case 12: {  // a dot that was not doubled
        std::string text = good;
        const size_t at = text.find("\r\n", cut);
        if (at != std::string::npos)
          text.insert(at, random() % 2 ? "\r\n." : "\r\n.\r\n+OK " + n + " 12");
        return {text, Then::kNothing, {}};
      }
      case 13: {
        std::string noise;
        for (size_t i = random() % 40; i > 0; --i) noise += "+-OK 12\r\n.x"[random() % 11];
        return {noise, Then::kNothing, {}};
      }
      case 14:
        return {"", Then::kClose, {}};
      case 15:
        return {"+OK\r\n.\r\n", Then::kNothing, {}};
      default:
        return {verb == "LIST" || verb == "UIDL" ? good.substr(0, good.size() - 2) + " and more\r\n"
                                                 : "+OK " + n + " octets\r\n" + good.substr(5),
                Then::kNothing,
                {}};
    }
  }

  std::string Good(const std::string& verb, int number) const {
    const std::string n = std::to_string(number);
    if (verb == "LIST") return "+OK " + n + " " + std::to_string(number * 100) + "\r\n";
    if (verb == "UIDL") return "+OK " + n + " uid-" + n + "\r\n";
    std::mt19937 random(seed_ * 31 + static_cast<uint64_t>(number));
    char time[32];
    const int second = random() % 5 == 0 ? 200 : number * 10;
    std::snprintf(time, sizeof time, "00:%02d:%02d", second / 60, second % 60);
    std::string text = "+OK\r\n";
    if (random() % 12 != 0 || every_message_is_dated) {
      text += std::string("Received: from a by b; Thu, 5 Mar 2020 ") + time + " +0000\r\n";
    }
    if (random() % 12 != 0) text += "Message-ID: <" + n + "@a>\r\n";
    const bool file = with_files && number % 5 == 0;
    if (file) text += "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=b\r\n";
    text += "Subject: mail " + n + "\r\n\r\n";
    if (random() % 60 == 0) text = "+OK\r\n";
    if (verb == "RETR" && file) text += "--b\r\n\r\n";
    if (verb == "RETR") {
      size_t lines = random() % 6;
      if (large_ && random() % 3 == 0) lines = 300 + random() % 900;
      for (; lines > 0; --lines)
        text +=
            "line " + std::to_string(lines) + " of " + n + std::string(random() % 50, '=') + "\r\n";
      if (random() % 4 == 0) text += "..\r\n";
    }
    if (verb == "RETR" && file) {
      text += "--b\r\nContent-Type: application/octet-stream; name=f" + n +
              "\r\nContent-Transfer-Encoding: base64\r\n\r\nAAECAwQ=\r\n--b--\r\n";
    }
    return text + ".\r\n";
  }

  uint64_t seed_;
  std::mt19937 pieces_;
  int odd_of_1000_ = 0;
  int oddity_ = -1;
  bool large_ = false;
  bool without_uidl_ = false;
  int stat_ = 0;
};

}  // namespace korvane::test
