#include "message/message_source.h"

#include <cstdint>

#include "frame/files.h"
#include "message/source_writer.h"

namespace korvane::message_source {

bool SourceWriter::Write() {
  std::string text;
  const bool text_alone = message_.Entity() == nullptr;
  if (text_alone) {
    message_.MessageBody(text, ETextAlternativeType::AlterType_Default,
                         ETextFormat::TextFormat_Normal);
  } else {
    NoteParts(*message_.Entity());
  }
  Header();
  out_ += "MIME-Version: 1.0\r\n";
  if (!text_alone) return Entity(*message_.Entity(), &message_.Fields(), 0) && Flush();
  std::vector<const UUAtcmt*> files;
  for (const auto& file : message_.UUFiles()) {
    // One without a file still stands in the text as it came.
    const bool in_text = !file->UUData().empty() && !FileExists(file->UUNameOnServer());
    if (!file->UUNameOnServer().empty() && !in_text) files.push_back(file.get());
  }
  return (files.empty() ? Text(message_.Fields(), text) : TextWithFiles(text, files)) && Flush();
}

bool SourceWriter::Flush() {
  const bool taken = out_.empty() || sink_(out_);
  out_.clear();
  return taken;
}

bool SourceWriter::FlushWhenLarge() { return out_.size() < kFileBlock || Flush(); }

// No encoded content holds "=_", and a message that holds this is not carried as it is. The sign
// at the end keeps one boundary from being the beginning of another.
std::string SourceWriter::NewBoundary() {
  return "=_korvane_" + Digest() + "_" + std::to_string(++boundaries_) + "=";
}

// Depends on the message alone, so that two exports of it are equal.
const std::string& SourceWriter::Digest() {
  if (digest_.empty()) {
    uint64_t hash = 14695981039346656037u;
    for (const std::string* text : {&message_.OriginalHeader(), &message_.From(),
                                    &message_.SendDate(), &message_.BodyText()}) {
      for (const char c : *text) hash = (hash ^ static_cast<uint8_t>(c)) * 1099511628211u;
    }
    for (; hash != 0; hash >>= 4) digest_ += "0123456789abcdef"[hash & 15];
  }
  return digest_;
}

void SourceWriter::Field(std::string_view name, const std::string& encoded) {
  if (encoded.empty()) return;
  out_ += name;
  out_ += ": ";
  out_ += encoded;
  out_ += kLineEnd;
}

}  // namespace korvane::message_source

namespace korvane {

bool WriteMessageSource(MailMessage& message, const MailUser& account, const SourceSink& sink,
                        std::vector<std::string>* missing) {
  return message_source::SourceWriter(message, account, sink, missing).Write();
}

std::string MessageSource(MailMessage& message, const MailUser& account,
                          std::vector<std::string>* missing) {
  std::string text;
  WriteMessageSource(
      message, account,
      [&text](std::string_view piece) {
        text += piece;
        return true;
      },
      missing);
  return text;
}

}  // namespace korvane
