// A message as it comes from the server: the split into header and body, the fields of the header,
// the tree of a MIME body or the text with its uuencoded files, and what the getters derive from
// the fields. Parsing never fails: what cannot be understood is left out or kept as text.
#include <algorithm>
#include <utility>

#include "facade/mail_user.h"
#include "frame/code_page.h"
#include "frame/error_numbers.h"
#include "frame/files.h"
#include "message/address_fields.h"
#include "message/mail_message.h"
#include "mime/body_text.h"
#include "mime/entity_parser.h"
#include "mime/header_fields.h"
#include "mime/line_search.h"
#include "mime/mail_date.h"

namespace korvane {

namespace {

constexpr auto kNone = std::string_view::npos;
constexpr std::string_view kBlankLine = "\r\n\r\n";

}  // namespace

MailMessage::MailMessage() : received_date_(FormatNow()) {}

std::string MailMessage::ReturnPathAddress() const { return AngleAddress(return_path_); }
std::string MailMessage::ReplyToName() const { return SplitAddressListWithGroups(reply_to_).names; }
std::string MailMessage::ReplyToAddress() const {
  return SplitAddressListWithGroups(reply_to_).addresses;
}
std::string MailMessage::FromName() const { return NamesOfNormalised(from_); }
std::string MailMessage::FromMailAddress() const { return AddressesOfNormalised(from_); }
std::string MailMessage::SenderName() const { return SplitMailbox(sender_).names; }
std::string MailMessage::SenderAddress() const { return SplitMailbox(sender_).addresses; }
std::string MailMessage::MessageToName() const { return NamesOfNormalised(message_to_); }
std::string MailMessage::MessageToAddress() const { return AddressesOfNormalised(message_to_); }
std::string MailMessage::CC_Name() const { return SplitAddressListWithGroups(cc_).names; }
std::string MailMessage::CC_Address() const { return SplitAddressListWithGroups(cc_).addresses; }
std::string MailMessage::BCC_Name() const { return SplitAddressListWithGroups(bcc_).names; }
std::string MailMessage::BCC_Address() const { return SplitAddressListWithGroups(bcc_).addresses; }

// Only the one value asks for HTML, TextFormat_HTMLNoPRE does not: pages rely on it.
std::string MailMessage::Subject(ETextFormat tfTextFormat) const {
  return tfTextFormat == ETextFormat::TextFormat_HTML ? TextToHtml(subject_) : subject_;
}

bool MailMessage::LoadHeader(std::shared_ptr<MailUser> account, int32_t number, int32_t size,
                             std::string_view uidl, std::string header) {
  BindToServer(std::move(account), number, size, uidl);
  if (header.empty()) {
    SetError(error::EmptyHeader);
    return false;
  }
  ReadLineFeedsAsLineEnds(header);
  TakeHeader(header);
  DropBody();
  return true;
}

bool MailMessage::LoadWholeMessage(std::shared_ptr<MailUser> account, int32_t number, int32_t size,
                                   std::string_view uidl, std::string_view separator,
                                   std::string text) {
  BindToServer(std::move(account), number, size, uidl);
  if (!separator.empty()) separator_ = separator;
  if (text.empty()) {
    SetError(error::EmptyMessage);
    return false;
  }
  ReadLineFeedsAsLineEnds(text);
  TakeWhole(std::move(text));
  return true;
}

void MailMessage::BindToServer(std::shared_ptr<MailUser> account, int32_t number, int32_t size,
                               std::string_view uidl) {
  ClearError();
  account_ = std::move(account);
  id_ = number;
  id_on_server_ = number;
  size_ = size;
  uidl_ = uidl;
}

void MailMessage::DropBody() {
  body_text_.clear();
  entity_.reset();
  uu_files_.clear();
  uu_blocks_.clear();
  has_uu_list_ = false;
  last_uu_number_ = 0;
  attachments_.reset();
  exist_attachments_ = false;
}

std::string* MailMessage::FieldNamed(std::string_view name, bool& holds_addresses) {
  struct Row {
    std::string_view name;
    std::string MailMessage::*field;
    bool holds_addresses;
  };
  static constexpr Row kRows[] = {
      {"to", &MailMessage::message_to_, true},
      {"cc", &MailMessage::cc_, true},
      {"bcc", &MailMessage::bcc_, true},
      {"from", &MailMessage::from_, true},
      {"sender", &MailMessage::sender_, true},
      {"subject", &MailMessage::subject_, false},
      {"reply-to", &MailMessage::reply_to_, true},
      {"keywords", &MailMessage::keywords_, false},
      {"comments", &MailMessage::comments_, false},
      {"encrypted", &MailMessage::encrypted_, false},
      {"message-id", &MailMessage::message_id_, false},
      {"references", &MailMessage::references_, false},
      {"return-path", &MailMessage::return_path_, true},
      {"in-reply-to", &MailMessage::in_reply_to_, false},
      {"mime-version", &MailMessage::mime_version_, false},
  };
  holds_addresses = false;
  for (const Row& row : kRows) {
    if (row.name != name) continue;
    holds_addresses = row.holds_addresses;
    return &(this->*row.field);
  }
  return fields_.Named(name);
}

// Returns where the blank line begins, or the text's length where there is none.
size_t MailMessage::TakeHeader(std::string_view text) {
  size_t length = FindLineEndBefore(text, 0, text.size(), "\r\n");
  if (length == kNone) length = text.size();
  message_id_.clear();
  received_.clear();
  original_header_ = text.substr(0, length);

  HeaderReader reader(original_header_);
  while (reader.Next()) {
    const std::string_view name = reader.Name();
    if (name == "received") {
      // The topmost is the most recent hop.
      if (!received_.empty()) continue;
      DecodeEncodedWordsInto(received_, reader.Value());
      bool guessed = false;
      if (!received_.empty()) received_date_ = ParseMailDate(received_, false, true, guessed);
    } else if (name == "date") {
      send_date_ = NormaliseMailDate(DecodeEncodedWords(reader.Value()));
    } else {
      bool holds_addresses = false;
      std::string* const field = FieldNamed(name, holds_addresses);
      if (field == nullptr) continue;
      DecodeEncodedWordsInto(*field, reader.Value(), holds_addresses);
      if (field == &from_) from_ = NormaliseFrom(from_);
      if (field == &message_to_) message_to_ = NormaliseTo(message_to_);
    }
  }
  fields_.Classify(EEntitySubType::PredNotImportant);
  return length;
}

void MailMessage::TakeWhole(std::string text) {
  DropBody();
  const size_t header = TakeHeader(text);
  if (fields_.type != EEntityType::Text ||
      fields_.disposition_kind != EContentDisposition::ContDisp_Default) {
    int32_t counter = 0;
    auto root = std::make_shared<MultipartEntity>();
    const std::string_view body = std::string_view(text).substr(header);
    const bool built = fields_.type == EEntityType::multipart
                           ? root->InitMultipartRoot(fields_, account_, counter, body)
                           : root->InitSinglePartRoot(fields_, account_, counter, body);
    if (built) {
      entity_ = std::move(root);
      exist_attachments_ = entity_->HasAttachments();
      return;
    }
    // What cannot be taken apart can still be read.
    fields_.BecomePlainText(EContentDisposition::ContDisp_Default);
  }
  body_text_ = DecodedText(std::move(text), header + kBlankLine.size());
  if (fields_.subtype == EEntitySubType::plain) FindUUFiles();
}

// The text from `begin` on, decoded. Where there is nothing to decode it keeps its memory, which a
// large mail needs only once then.
std::string MailMessage::DecodedText(std::string text, size_t begin) const {
  begin = std::min(begin, text.size());
  const std::string_view content = std::string_view(text).substr(begin);
  if (fields_.encoding == EContentTransferEncoding::quoted_printable ||
      fields_.encoding == EContentTransferEncoding::base64 || content.starts_with('.') ||
      FindLineEndBefore(content, 0, content.size(), ".") != kNone) {
    return DecodeTransferEncoding(EEntityType::Text, ECharset::UTF_8, fields_.encoding, content);
  }
  text.erase(0, begin);
  return ToUtf8(std::move(text));
}

void MailMessage::FindUUFiles() {
  // Every block is a file to write and to sync: as many as there may be parts, the rest stays text.
  constexpr size_t kMostFiles = EntityParser::kMostParts;
  UUBlockFinder finder(body_text_);
  UUBlock block;
  while (uu_files_.size() < kMostFiles && finder.Next(block)) {
    has_uu_list_ = true;
    auto file = std::make_shared<UUAtcmt>();
    // A block with a bad name is listed all the same, with its error.
    file->InitFromText(account_, ++last_uu_number_,
                       std::string_view(body_text_).substr(block.begin, block.end - block.begin));
    uu_files_.push_back(std::move(file));
    uu_blocks_.push_back(block);
  }
  exist_attachments_ = !uu_files_.empty();
}

// A block stays in the text until its file is there.
std::string MailMessage::TextWithoutUUFiles() const {
  std::string text;
  text.reserve(body_text_.size());
  size_t from = 0;
  for (size_t i = 0; i < uu_blocks_.size(); ++i) {
    const std::string& path = uu_files_[i]->UUNameOnServer();
    if (path.empty() || !FileExists(path)) continue;
    text.append(body_text_, from, uu_blocks_[i].begin - from);
    from = uu_blocks_[i].end;
    // The line end behind the block goes with it.
    if (body_text_.compare(from, 2, "\r\n") == 0) from += 2;
  }
  text.append(body_text_, from);
  return text;
}

bool MailMessage::MessageBody(std::string& sMessageBody, ETextAlternativeType taAlternativeType,
                              ETextFormat tfTextFormat, bool bOnlyIfAlterTypeIsCorrect) {
  ClearError();
  sMessageBody.clear();
  if (fields_.type == EEntityType::Text &&
      fields_.disposition_kind == EContentDisposition::ContDisp_Default) {
    if (bOnlyIfAlterTypeIsCorrect) {
      switch (taAlternativeType) {
        case ETextAlternativeType::AlterType_Default:
          break;
        case ETextAlternativeType::AlterType_Text:
          if (fields_.subtype != EEntitySubType::plain) SetError(error::TextNotPlain);
          break;
        case ETextAlternativeType::AlterType_Html:
          if (fields_.subtype != EEntitySubType::html) SetError(error::TextNotHtml);
          break;
        default:
          return true;
      }
      if (!NoError()) return false;
    }
    if (uu_blocks_.empty()) {
      AppendBodyText(sMessageBody, body_text_, fields_.subtype, tfTextFormat);
    } else {
      AppendBodyText(sMessageBody, TextWithoutUUFiles(), fields_.subtype, tfTextFormat);
    }
    return true;
  }
  if (!entity_) {
    SetError(error::MessageWithoutEntity);
    return false;
  }
  if (!entity_->GetMajorText(sMessageBody, taAlternativeType, tfTextFormat,
                             bOnlyIfAlterTypeIsCorrect, separator_, false)) {
    SetError(error::NoTextToShow);
    return false;
  }
  // The separator behind the last text, as many characters as it has.
  sMessageBody.resize(sMessageBody.size() - std::min(sMessageBody.size(), separator_.size()));
  return true;
}

std::shared_ptr<MailAttachments> MailMessage::GetAttachments() {
  ClearError();
  if (!attachments_) {
    auto attachments = std::make_shared<MailAttachments>();
    if (!attachments->BuildAttachmentList(entity_, uu_files_)) CopyError(*attachments);
    attachments_ = std::move(attachments);
  }
  return attachments_;
}

}  // namespace korvane
