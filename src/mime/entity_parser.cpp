#include "mime/entity_parser.h"

#include <utility>

#include "frame/code_page.h"
#include "frame/error_numbers.h"
#include "mime/header_fields.h"
#include "mime/line_search.h"
#include "mime/related_links.h"

namespace korvane {

namespace {

constexpr size_t kNone = std::string_view::npos;

bool IsAscii(std::string_view text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

}  // namespace

bool EntityParser::Split(MultipartEntity& multipart, const std::string& boundary, size_t from) {
  if (multipart.fields_.subtype == EEntitySubType::related) found_related_ = true;
  const size_t level = delimiters_.Open(boundary, from);
  for (;;) {
    const DelimiterScanner::Match delimiter = delimiters_.Next(text_.size());
    if (!delimiter.found() || delimiter.level != level) break;
    const size_t behind = delimiter.at + 4 + boundary.size();
    if (behind + 2 > text_.size() || text_.substr(behind, 2) == "--") break;
    const size_t begin = BeginOfPart(behind, level);
    if (counter_ >= kMostParts) {
      AddRest(multipart, begin);
      return true;
    }
    AddPart(multipart, begin);
  }
  delimiters_.Close();
  return !multipart.children_.empty();
}

// The line end of the delimiter line; where the range ends within that line, the rest of it.
size_t EntityParser::BeginOfPart(size_t behind_boundary, size_t level) {
  const size_t line_end = text_.find("\r\n", behind_boundary);
  if (line_end == kNone) {
    delimiters_.GoOnAt(behind_boundary);
    return behind_boundary;
  }
  delimiters_.GoOnAt(line_end);
  const DelimiterScanner::Match& next = delimiters_.Next(line_end + 1);
  return next.found() && next.level < level ? behind_boundary : line_end;
}

void EntityParser::AddPart(MultipartEntity& multipart, size_t begin) {
  // One delimiter right behind another: there is nothing between them to build a part of.
  if (delimiters_.Next(begin + 2).found()) return;
  auto part = std::make_shared<MultipartEntity>();
  part->account_ = multipart.account_;
  part->entity_number_ = ++counter_;
  if (ReadPart(*part, multipart.fields_.subtype, begin)) {
    multipart.children_.push_back(std::move(part));
  } else {
    --counter_;
  }
}

// All that is left of the multipart, its delimiter lines included, as one text.
void EntityParser::AddRest(MultipartEntity& multipart, size_t begin) {
  delimiters_.Close();
  std::string_view rest = text_.substr(begin, EndOfRange() - begin);
  if (rest.starts_with("\r\n")) rest.remove_prefix(2);
  auto part = std::make_shared<MultipartEntity>();
  part->account_ = multipart.account_;
  part->entity_number_ = ++counter_;
  part->parent_subtype_ = multipart.fields_.subtype;
  part->freshly_parsed_ = true;
  part->BecomePlainText(rest);
  multipart.children_.push_back(std::move(part));
}

bool EntityParser::ReadPart(MultipartEntity& part, EEntitySubType parent, size_t begin) {
  part.freshly_parsed_ = true;
  const size_t blank_line = BlankLineFrom(begin);
  const size_t limit = blank_line == kNone ? text_.size() : blank_line;
  const DelimiterScanner::Match& cut = delimiters_.Next(limit);
  const bool has_blank_line = !cut.found() && blank_line != kNone;
  const size_t header_end = cut.found() ? cut.at : limit;
  if (!has_blank_line && header_end < begin + 2) {
    part.SetError(error::ChildRange);
    return false;
  }
  ReadHeader(part, parent, text_.substr(begin, header_end - begin));
  if (has_blank_line) {
    ReadBody(part, blank_line);
  } else if (part.fields_.type == EEntityType::multipart) {
    part.BecomePlainText({});
  }
  return true;
}

void EntityParser::ReadHeader(MultipartEntity& part, EEntitySubType parent,
                              std::string_view header) {
  ContentFields& fields = part.fields_;
  HeaderReader reader(header);
  delimiter_.clear();
  while (reader.Next()) {
    std::string* const field = fields.Named(reader.Name());
    if (field == nullptr) continue;
    DecodeEncodedWordsInto(*field, reader.Value());
    // In the body a boundary's bytes stand as they came, not as they were decoded.
    if (field == &fields.content_type && !IsAscii(*field)) {
      delimiter_ = Parameter(reader.Value(), "boundary");
    }
  }
  part.parent_subtype_ = parent;
  fields.Classify(parent);
  if (fields.type == EEntityType::multipart || !fields.content_type.empty()) {
    part.boundary_ = Parameter(fields.content_type, "boundary");
  }
  part.related_reference_ = part.FindRelatedReference();
  part.is_attachment_ = part.DecideAttachment();
  part.name_ = fields.FileNameOrDefault();
}

void EntityParser::ReadBody(MultipartEntity& part, size_t blank_line) {
  if (part.fields_.type == EEntityType::multipart) {
    const bool splits = !part.boundary_.empty() && delimiters_.Depth() < kDeepest;
    const std::string delimiter = delimiter_.empty() ? part.boundary_ : std::move(delimiter_);
    if (splits && Split(part, delimiter, blank_line + 2)) return;
  }
  const size_t begin = blank_line + 4;
  const size_t end = EndOfRange();
  const std::string_view body = begin < end ? text_.substr(begin, end - begin) : std::string_view();
  if (part.fields_.type == EEntityType::multipart) {
    part.BecomePlainText(body);
  } else {
    part.DecodeBody(body);
  }
}

size_t EntityParser::BlankLineFrom(size_t position) {
  if (!blank_line_known_ || (blank_line_ != kNone && blank_line_ < position)) {
    blank_line_ = FindLineEndBefore(text_, position, text_.size(), "\r\n");
    blank_line_known_ = true;
  }
  return blank_line_;
}

size_t EntityParser::EndOfRange() {
  const DelimiterScanner::Match& next = delimiters_.Next(text_.size());
  return next.found() ? next.at : text_.size();
}

bool MultipartEntity::InitMultipartRoot(const ContentFields& fields,
                                        std::shared_ptr<MailUser> account, int32_t& counter,
                                        std::string_view body) {
  ClearError();
  account_ = std::move(account);
  entity_number_ = counter;
  fields_ = {};
  fields_.content_type = fields.content_type;
  fields_.type = fields.type;
  fields_.subtype = fields.subtype;
  fields_.charset = fields.charset;
  fields_.encoding = fields.encoding;
  fields_.disposition_kind = fields.disposition_kind;
  freshly_parsed_ = true;
  if (body.size() < 2) {
    SetError(error::MultipartRootRange);
    return false;
  }
  boundary_ = Parameter(fields_.content_type, "boundary");
  if (boundary_.empty()) {
    SetError(error::MultipartRootWithoutBoundary);
    return false;
  }
  std::string delimiter = boundary_;
  if (!IsAscii(boundary_) && body.find("--" + boundary_) == kNone) {
    delimiter = FromUtf8(boundary_);  // its bytes, before the field was decoded
  }
  EntityParser parser(body, counter);
  if (!parser.Split(*this, delimiter, 0)) {
    SetError(error::MultipartWithoutDelimiter);
    return false;
  }
  if (parser.FoundRelated()) RelatedLinks::FindIn(*this);
  return true;
}

bool MultipartEntity::InitSinglePartRoot(const ContentFields& fields,
                                         std::shared_ptr<MailUser> account, int32_t& counter,
                                         std::string_view body) {
  ClearError();
  account_ = std::move(account);
  entity_number_ = counter;
  if (body.size() < 2) {
    SetError(error::SinglePartRootRange);
    return false;
  }
  fields_ = fields;
  freshly_parsed_ = true;
  is_attachment_ = true;
  name_ = fields_.FileNameOrDefault();
  DecodeBody(body.size() > 4 ? body.substr(4) : std::string_view());
  return true;
}

bool MultipartEntity::InitChild(const MultipartEntity& parent, int32_t& counter,
                                std::string_view range) {
  ClearError();
  account_ = parent.account_;
  entity_number_ = counter;
  EntityParser parser(range, counter);
  if (!parser.ReadPart(*this, parent.fields_.subtype, 0)) return false;
  if (parser.FoundRelated()) RelatedLinks::FindIn(*this);
  return true;
}

// How HTML can refer to a part of a multipart/related: its identifier, else a name.
MultipartEntity::Reference MultipartEntity::FindRelatedReference() const {
  if (parent_subtype_ != EEntitySubType::related) return Reference::kNone;
  if (!WithoutAngleBrackets(fields_.id).empty()) return Reference::kContentId;
  if (!FileNameFromPath(Parameter(fields_.disposition, "filename")).empty()) {
    return Reference::kFileName;
  }
  if (!FileNameFromPath(Parameter(fields_.content_type, "name")).empty()) {
    return Reference::kTypeName;
  }
  return FileNameFromPath(fields_.location).empty() ? Reference::kNone : Reference::kLocation;
}

bool MultipartEntity::DecideAttachment() const {
  switch (fields_.type) {
    case EEntityType::Text:
      if (fields_.disposition_kind == EContentDisposition::ContDisp_Default) return false;
      return fields_.disposition_kind != EContentDisposition::ContDisp_Inline ||
             !fields_.FileName().empty();
    case EEntityType::Image:
    case EEntityType::audio:
    case EEntityType::video:
    case EEntityType::application:
    case EEntityType::message:
      return related_reference_ == Reference::kNone ||
             fields_.disposition_kind == EContentDisposition::ContDisp_Attachment;
    case EEntityType::multipart:
      return false;
  }
  return true;
}

// Text that is shown is UTF-8; the file of an attachment keeps the sender's bytes.
void MultipartEntity::DecodeBody(std::string_view body) {
  const bool shown = fields_.type == EEntityType::Text && !is_attachment_;
  data_ = DecodeTransferEncoding(shown ? EEntityType::Text : EEntityType::application,
                                 ECharset::UTF_8, fields_.encoding, body);
}

void MultipartEntity::BecomePlainText(std::string_view body) {
  fields_.BecomePlainText(EContentDisposition::ContDisp_Inline);
  is_attachment_ = false;
  name_ = fields_.FileNameOrDefault();
  data_ = ToUtf8(UndoDotStuffing(body));
}

bool MultipartEntity::HasAttachments() const {
  if (is_attachment_) return true;
  for (const auto& child : children_) {
    if (child->HasAttachments()) return true;
  }
  return false;
}

}  // namespace korvane
