#include "pop3/new_messages.h"

#include <utility>

#include "frame/file_handle.h"
#include "message/mail_message.h"

namespace korvane {
namespace {

/// So much of the file is kept beyond its end before it is given back to the disk.
constexpr int64_t kCutAfter = int64_t{8} << 20;

}  // namespace

NewMessages::NewMessages(std::shared_ptr<MailUser> account, bool whole, std::string_view separator,
                         std::string folder, int64_t in_memory)
    : account_(std::move(account)),
      whole_(whole),
      separator_(separator),
      folder_(std::move(folder)),
      in_memory_(in_memory) {}

NewMessages::~NewMessages() = default;

bool NewMessages::Add(ServerMessage message) {
  // A server may have millions of messages with hardly any text.
  const auto bytes =
      static_cast<int64_t>(sizeof message + message.text.size() + message.uidl.size());
  // Once there is a file, all that is older goes there: it is a stack.
  if (!file_ && first_bytes_ + bytes <= in_memory_) {
    first_bytes_ += bytes;
    first_.push_back(std::move(message));
  } else if (!Write(message)) {
    return false;
  }
  ++count_;
  return true;
}

bool NewMessages::Write(const ServerMessage& message) {
  if (!file_) {
    auto opened = std::make_unique<FileHandle>(FileHandle::OpenUnnamed(folder_));
    if (!opened->IsOpen()) return false;
    file_ = std::move(opened);
  }
  const Trailer trailer{static_cast<int64_t>(message.text.size()),
                        static_cast<int64_t>(message.uidl.size()), message.number, message.size};
  std::string behind = message.uidl;
  behind.append(reinterpret_cast<const char*>(&trailer), sizeof trailer);
  if (!file_->WriteAll(message.text.data(), message.text.size(), end_) ||
      !file_->WriteAll(behind.data(), behind.size(), end_ + trailer.text_bytes)) {
    file_->Resize(end_);
    return false;
  }
  end_ += trailer.text_bytes + static_cast<int64_t>(behind.size());
  length_ = end_;
  last_ = trailer;
  last_read_ = true;
  return true;
}

bool NewMessages::ReadTrailer() {
  constexpr int64_t kSize = sizeof(Trailer);
  if (last_read_) return true;
  const int64_t before = end_ - kSize;
  last_read_ = before >= 0 &&
               file_->ReadUpTo(reinterpret_cast<char*>(&last_), kSize, before) == kSize &&
               last_.text_bytes >= 0 && last_.text_bytes <= before && last_.uidl_bytes >= 0 &&
               last_.uidl_bytes <= before - last_.text_bytes;
  return last_read_;
}

int64_t NewMessages::OldestBytes() {
  if (end_ == 0) return static_cast<int64_t>(first_.back().text.size());
  return ReadTrailer() ? last_.text_bytes : -1;
}

bool NewMessages::Read(ServerMessage& message) {
  if (!ReadTrailer()) return false;
  const int64_t begin =
      end_ - static_cast<int64_t>(sizeof last_) - last_.uidl_bytes - last_.text_bytes;
  const auto read = [&](std::string& to, int64_t bytes, int64_t from) {
    to.resize(static_cast<size_t>(bytes));
    return file_->ReadUpTo(to.data(), to.size(), from) == bytes;
  };
  if (!read(message.text, last_.text_bytes, begin) ||
      !read(message.uidl, last_.uidl_bytes, begin + last_.text_bytes)) {
    return false;
  }
  message.number = last_.number;
  message.size = last_.size;
  end_ = begin;
  last_read_ = false;
  // The store needs the room that this leaves. Should the system not take it back, it is only late.
  if (end_ == 0 || length_ - end_ >= kCutAfter) {
    file_->Resize(end_);
    length_ = end_;
  }
  return true;
}

std::shared_ptr<MailMessage> NewMessages::TakeOldest() {
  ServerMessage taken;
  if (end_ > 0) {
    if (!Read(taken)) return nullptr;
  } else {
    taken = std::move(first_.back());
    first_.pop_back();
  }
  --count_;
  auto message = std::make_shared<MailMessage>();
  if (whole_) {
    message->LoadWholeMessage(account_, taken.number, taken.size, taken.uidl, separator_,
                              std::move(taken.text));
  } else {
    message->LoadHeader(account_, taken.number, taken.size, taken.uidl, std::move(taken.text));
  }
  return message;
}

}  // namespace korvane
