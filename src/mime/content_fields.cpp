#include "mime/content_fields.h"

#include "mime/header_fields.h"

namespace korvane {

namespace {

struct TypeRow {
  std::string_view major;
  std::string_view minor;  // "" is any other
  EEntityType type;
  EEntitySubType subtype;
};

constexpr TypeRow kTypes[] = {
    {"text", "plain", EEntityType::Text, EEntitySubType::plain},
    {"text", "html", EEntityType::Text, EEntitySubType::html},
    {"text", "enriched", EEntityType::Text, EEntitySubType::enriched},
    {"text", "richtext", EEntityType::Text, EEntitySubType::richtext},
    {"text", "", EEntityType::Text, EEntitySubType::plain},
    {"multipart", "mixed", EEntityType::multipart, EEntitySubType::Mixed},
    {"multipart", "alternative", EEntityType::multipart, EEntitySubType::alternative},
    {"multipart", "parallel", EEntityType::multipart, EEntitySubType::Parallel},
    {"multipart", "digest", EEntityType::multipart, EEntitySubType::Digest},
    {"multipart", "related", EEntityType::multipart, EEntitySubType::related},
    {"multipart", "", EEntityType::multipart, EEntitySubType::Mixed},
    {"application", "postscript", EEntityType::application, EEntitySubType::postscript},
    {"application", "", EEntityType::application, EEntitySubType::octet_stream},
    {"image", "jpeg", EEntityType::Image, EEntitySubType::jpeg},
    {"image", "bmp", EEntityType::Image, EEntitySubType::bmp},
    {"image", "gif", EEntityType::Image, EEntitySubType::gif},
    {"image", "", EEntityType::Image, EEntitySubType::Unrecognized},
    {"audio", "basic", EEntityType::audio, EEntitySubType::basic},
    {"audio", "", EEntityType::audio, EEntitySubType::Unrecognized},
    {"video", "mpeg", EEntityType::video, EEntitySubType::mpeg},
    {"video", "", EEntityType::video, EEntitySubType::Unrecognized},
    {"message", "rfc822", EEntityType::message, EEntitySubType::Rfc822},
    {"message", "partial", EEntityType::message, EEntitySubType::partial},
    // With an underscore: records of this system know no other spelling.
    {"message", "external_body", EEntityType::message, EEntitySubType::external_Body},
    {"message", "", EEntityType::message, EEntitySubType::Rfc822},
};

const TypeRow* FindType(std::string_view major, std::string_view minor) {
  for (const TypeRow& row : kTypes) {
    if (row.major == major && (row.minor.empty() || row.minor == minor)) return &row;
  }
  return nullptr;
}

// Only the first eight characters tell.
ECharset CharsetOf(std::string_view content_type) {
  const std::string name = LowerCase(Parameter(content_type, "charset"));
  const std::string_view start = std::string_view(name).substr(0, 8);
  if (start == "iso-8859") return ECharset::iso_8859_x;
  return start == "utf-8" ? ECharset::UTF_8 : ECharset::us_ascii;
}

void RemoveControls(std::string& name) {
  for (char& c : name) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
}

}  // namespace

std::string* ContentFields::Named(std::string_view name) {
  if (!name.starts_with("content-")) return nullptr;
  name.remove_prefix(8);
  if (name == "type") return &content_type;
  if (name == "transfer-encoding") return &transfer_encoding;
  if (name == "disposition") return &disposition;
  if (name == "location") return &location;
  if (name == "id") return &id;
  return nullptr;
}

void ContentFields::Classify(EEntitySubType parent) {
  const std::string media = MediaType(content_type);
  if (media.empty()) {
    const bool digest = parent == EEntitySubType::Digest;
    type = digest ? EEntityType::message : EEntityType::Text;
    subtype = digest ? EEntitySubType::Rfc822 : EEntitySubType::plain;
    charset = ECharset::us_ascii;
  } else if (const TypeRow* row = FindType(NthToken(media, '/', 1), NthToken(media, '/', 2))) {
    type = row->type;
    subtype = row->subtype;
    if (type == EEntityType::Text && row->minor.empty()) {
      charset = ECharset::us_ascii;
    } else if (type == EEntityType::Text &&
               (subtype == EEntitySubType::plain || subtype == EEntitySubType::html)) {
      charset = CharsetOf(content_type);
    }
  } else {
    type = EEntityType::application;
    subtype = EEntitySubType::octet_stream;
    charset = ECharset::us_ascii;
  }

  // "7bit" and "8bit" need no decoding and are not told apart: only the spellings "t7bit" and
  // "t8bit" are known here, and records hold what follows from that.
  if (!transfer_encoding.empty()) {
    const std::string name = LowerCase(transfer_encoding);
    if (name == "base64") {
      encoding = EContentTransferEncoding::base64;
    } else if (name == "quoted-printable") {
      encoding = EContentTransferEncoding::quoted_printable;
    } else if (name == "binary") {
      encoding = EContentTransferEncoding::Binary;
    } else if (name == "t8bit") {
      encoding = EContentTransferEncoding::T8Bit;
    }
  }

  disposition_kind = EContentDisposition::ContDisp_Default;
  if (!disposition.empty()) {
    const std::string kind = MediaType(disposition);
    if (kind == "attachment") {
      disposition_kind = EContentDisposition::ContDisp_Attachment;
    } else if (kind == "inline") {
      disposition_kind = EContentDisposition::ContDisp_Inline;
    }
  }
}

void ContentFields::BecomePlainText(EContentDisposition kind) {
  type = EEntityType::Text;
  subtype = EEntitySubType::plain;
  charset = ECharset::us_ascii;
  encoding = EContentTransferEncoding::T7Bit;
  disposition_kind = kind;
}

std::string ContentFields::FileName() const {
  std::string name;
  if (!disposition.empty()) name = FileNameFromPath(Parameter(disposition, "filename"));
  if (name.empty()) name = FileNameFromPath(Parameter(content_type, "name"));
  RemoveControls(name);
  return name;
}

std::string ContentFields::FileNameOrDefault() const {
  std::string name = FileName();
  if (!name.empty()) return name;
  switch (type) {
    case EEntityType::Text:
      if (subtype == EEntitySubType::plain) return "Text.txt";
      return subtype == EEntitySubType::html ? "WebPage.htm" : "Text.dat";
    case EEntityType::Image:
      if (subtype == EEntitySubType::jpeg) return "Image.jpg";
      if (subtype == EEntitySubType::bmp) return "Image.bmp";
      return subtype == EEntitySubType::gif ? "Image.gif" : "Image.dat";
    case EEntityType::audio:
      return "Audio.dat";
    case EEntityType::video:
      return subtype == EEntitySubType::mpeg ? "Video.mpg" : "Video.dat";
    case EEntityType::application:
      if (subtype == EEntitySubType::octet_stream) return "AppOctetStream.dat";
      return subtype == EEntitySubType::postscript ? "AppPostscript.dat" : "Application.dat";
    case EEntityType::multipart:
      return "Multipart.dat";
    case EEntityType::message:
      if (subtype == EEntitySubType::Rfc822 || subtype == EEntitySubType::partial ||
          subtype == EEntitySubType::external_Body) {
        return "Mail.eml";
      }
      return "Mail.dat";
  }
  return "Unrecognized.dat";
}

}  // namespace korvane
