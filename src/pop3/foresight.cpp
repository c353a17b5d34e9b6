#include "pop3/foresight.h"

#include <algorithm>
#include <string>
#include <utility>

namespace korvane {
namespace {

constexpr int64_t kMostMessages = 500;
/// Where nothing can stop the selection there is no reason to be careful at first.
constexpr int64_t kFirstOfAll = 16;
constexpr int64_t kFirstHeadersOfAll = 64;
/// So many bytes of messages may be on their way: no more than can be received and dropped.
constexpr int64_t kMostBytes = int64_t{2} << 20;
/// Where nothing will be dropped: what a fast line with a long round trip holds, and half of it
/// until the line has been seen.
constexpr int64_t kMostBytesOfAll = int64_t{32} << 20;
constexpr int64_t kUnknownMessage = int64_t{64} << 10;
constexpr int64_t kHeader = int64_t{4} << 10;
/// No command line is longer.
constexpr size_t kLine = 20;
/// While more than this are on their way, they are announced in larger blocks.
constexpr int64_t kManyMessages = 8;

std::string Line(const char* verb, int32_t number) {
  return verb + std::to_string(number) + "\r\n";
}

/// The size and the unique id are asked for behind either text.
void AddWithValues(std::vector<ServerLink::Command>& commands, std::string text, int32_t number) {
  commands.push_back({std::move(text), {ReplyForm::kText, number}});
  commands.push_back({Line("LIST ", number), {ReplyForm::kSize, number}});
  commands.push_back({Line("UIDL ", number), {ReplyForm::kUniqueId, number}});
}

std::string TopLine(int32_t number) { return "TOP " + std::to_string(number) + " 0\r\n"; }
std::string RetrLine(int32_t number) { return Line("RETR ", number); }

}  // namespace

Foresight::Foresight(ServerLink& link, Plan plan)
    : link_(link),
      plan_(std::move(plan)),
      window_(!plan_.all_new ? 1
              : plan_.whole  ? kFirstOfAll
                             : kFirstHeadersOfAll),
      expect_taken_(plan_.all_new),
      estimate_(plan_.whole ? kUnknownMessage : kHeader),
      most_bytes_(plan_.all_new ? kMostBytesOfAll / 2 : kMostBytes),
      last_taken_(std::chrono::steady_clock::now()) {}

/// False when something else was announced: the session's next command drops it all.
bool Foresight::Comes(const std::string& line) {
  if (link_.Announced() == 0 || link_.Next() == line) return true;
  // What is dropped now was not all new.
  plan_.all_new = false;
  window_ = 1;
  most_bytes_ = kMostBytes;
  return false;
}

void Foresight::AtHeader(int32_t number) {
  if (!link_.ReadsAhead()) return;
  if (!Comes(TopLine(number))) return;
  if (link_.Announced() == 0) next_ = number;
  Announce({});
}

void Foresight::AtMessage(int32_t number) {
  expect_taken_ = true;
  if (!link_.ReadsAhead()) return;
  if (!Comes(RetrLine(number))) return;
  std::vector<ServerLink::Command> commands;
  if (link_.Announced() == 0) {
    AddWithValues(commands, RetrLine(number), number);
    next_ = plan_.next(number);
  }
  Announce(std::move(commands));
}

bool Foresight::MayAdd(int64_t outstanding) const {
  if (outstanding == 0) return true;
  return outstanding < window_ && (outstanding + 1) * estimate_ <= most_bytes_;
}

/// Announces these commands and what follows them, as far as the window goes.
void Foresight::Announce(std::vector<ServerLink::Command> commands) {
  const int64_t each = plan_.whole && expect_taken_ ? 6 : 3;
  const auto on_their_way = static_cast<int64_t>(link_.Announced());
  // A message that is begun counts as one.
  int64_t outstanding = (on_their_way + static_cast<int64_t>(commands.size()) + each - 1) / each;
  if (outstanding > kManyMessages && outstanding > window_ / 2) return;
  size_t bytes = commands.size() * kLine;
  while (next_ > 0 && MayAdd(outstanding) &&
         link_.HasRoomFor(bytes + static_cast<size_t>(each) * kLine)) {
    AddWithValues(commands, TopLine(next_), next_);
    if (plan_.whole && expect_taken_) AddWithValues(commands, RetrLine(next_), next_);
    next_ = plan_.next(next_);
    bytes += static_cast<size_t>(each) * kLine;
    ++outstanding;
  }
  link_.Announce(commands);
}

void Foresight::Took(int64_t bytes) {
  expect_taken_ = true;
  if (plan_.whole) estimate_ = std::max(bytes, (3 * estimate_ + bytes) / 4);
  ++taken_;
  WidenWhereIdle();
  if (link_.HadToWait()) {
    easy_ = 0;
    // Never far more than was of use so far: the selection may be at its end.
    const int64_t of_use = plan_.all_new ? kMostMessages : 4 * taken_;
    window_ = std::max(window_, std::min({2 * window_, of_use, kMostMessages}));
  } else if (++easy_ > 2 * window_) {
    easy_ = 0;
    window_ = std::max(window_ * 3 / 4, std::min(window_, kManyMessages));
  }
}

/// A slow line brings a message bit by bit, but without a pause between two; more on its way would
/// only wait there.
void Foresight::WidenWhereIdle() {
  constexpr int kShare = 8;
  const auto now = std::chrono::steady_clock::now();
  const auto elapsed = now - std::exchange(last_taken_, now);
  if (plan_.all_new && link_.Idle() * kShare > elapsed) {
    most_bytes_ = std::min(2 * most_bytes_, kMostBytesOfAll);
  }
}

}  // namespace korvane
