// The parts of a message's source: multiparts and shown texts, whose links lead to parts again.
#include <algorithm>
#include <cstdint>

#include "frame/code_page.h"
#include "message/source_writer.h"
#include "mime/header_fields.h"
#include "mime/html_addresses.h"
#include "mime/quote_pairs.h"

namespace korvane::message_source {

namespace {

bool IsMediaType(std::string_view text) {
  const size_t slash = text.find('/');
  return slash != std::string_view::npos && IsToken(text.substr(0, slash)) &&
         IsToken(text.substr(slash + 1));
}

std::string_view UsualType(const ContentFields& fields) {
  switch (fields.type) {
    case EEntityType::Text:
      return fields.subtype == EEntitySubType::html ? "text/html" : "text/plain";
    case EEntityType::Image:
      return "image/unknown";
    case EEntityType::audio:
      return "audio/unknown";
    case EEntityType::video:
      return "video/unknown";
    case EEntityType::multipart:
      return "multipart/mixed";
    case EEntityType::message:
      return "message/rfc822";
    case EEntityType::application:
      break;
  }
  return "application/octet-stream";
}

std::string EscapedInAttribute(std::string_view text) {
  constexpr std::string_view kHex = "0123456789ABCDEF";
  std::string out;
  for (const char c : text) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       std::string_view("-._~@$+!*:/").find(c) != std::string_view::npos;
    if (plain) {
      out += c;
    } else {
      out += '%';
      out += kHex[static_cast<uint8_t>(c) >> 4];
      out += kHex[static_cast<uint8_t>(c) & 15];
    }
  }
  return out;
}

// What HTML calls a part of a multipart/related.
std::string LinkTo(const MultipartEntity& part) {
  switch (part.RelatedReference()) {
    case MultipartEntity::Reference::kContentId:
      return "cid:" + EscapedInAttribute(WithoutAngleBrackets(part.Fields().id));
    case MultipartEntity::Reference::kLocation:
      return EscapedInAttribute(part.Fields().location);
    case MultipartEntity::Reference::kFileName:
    case MultipartEntity::Reference::kTypeName:
      return EscapedInAttribute(part.Fields().FileName());
    case MultipartEntity::Reference::kNone:
      break;
  }
  return {};
}

}  // namespace

bool IsToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return c > 0x20 && c < 0x7F &&
           std::string_view("()<>@,;:\\\"/[]?=").find(c) == std::string_view::npos;
  });
}

// The type as it was given, unless it is no type or the part is kept as another one.
std::string TypeOf(const ContentFields& fields) {
  ContentFields given;
  given.content_type = MediaType(fields.content_type);
  given.Classify(EEntitySubType::PredNotImportant);
  const bool good = IsMediaType(given.content_type) && given.type == fields.type &&
                    given.subtype == fields.subtype;
  return good ? given.content_type : std::string(UsualType(fields));
}

// Appends the parameters of a field that are not made anew.
void AppendOtherParameters(std::string& out, std::string_view value) {
  QuotePairs quotes(value);
  size_t from = value.size();
  for (size_t i = 0; i <= value.size(); ++i) {
    if (i < value.size() && (value[i] != ';' || quotes.Inside(i))) continue;
    if (from < value.size()) {
      const std::string_view item = value.substr(from, i - from);
      const size_t equals = item.find('=');
      const std::string name = LowerCase(TrimBlanks(item.substr(0, equals)));
      const bool made_anew = name.starts_with("name") || name.starts_with("filename") ||
                             name.starts_with("charset") || name.starts_with("boundary");
      if (equals != std::string_view::npos && !made_anew && IsToken(name) &&
          name.find('*') == std::string::npos) {
        out += EncodeParameter(name, Unquote(item.substr(equals + 1)));
      }
    }
    from = i + 1;
  }
}

void SourceWriter::NoteParts(const MultipartEntity& entity) {
  if (!entity.NameOnServer().empty()) {
    if (std::string link = LinkTo(entity); !link.empty()) {
      links_.emplace(entity.NameOnServer(), std::move(link));
    }
  }
  for (const auto& child : entity.Children()) NoteParts(*child);
}

bool SourceWriter::Entity(const MultipartEntity& entity, const ContentFields* root,
                          size_t related) {
  // The root's own fields are the message's; of a multipart the entity holds only some.
  const ContentFields& fields = root ? *root : entity.Fields();
  if (fields.type == EEntityType::multipart) return Multipart(entity, fields, related);
  if (fields.type == EEntityType::Text && !entity.IsAttachment()) {
    if (fields.subtype != EEntitySubType::html || related == 0 || links_.empty()) {
      return Text(fields, entity.Data());
    }
    return Text(fields, WithPartLinks(entity.Data()));
  }
  return Attached(entity, fields);
}

bool SourceWriter::Multipart(const MultipartEntity& entity, const ContentFields& fields,
                             size_t related) {
  const std::string boundary = NewBoundary();
  std::string type = TypeOf(fields);
  type += EncodeParameter("boundary", boundary);
  AppendOtherParameters(type, fields.content_type);
  Field("Content-Type", type);
  PlaceFields(fields);
  out_ += kLineEnd;
  if (fields.subtype == EEntitySubType::related) ++related;
  for (const auto& child : entity.Children()) {
    out_ += "\r\n--" + boundary + "\r\n";
    if (!Entity(*child, nullptr, related)) return false;
  }
  out_ += "\r\n--" + boundary + "--\r\n";
  return FlushWhenLarge();
}

// A text, with the fields that tell how to read it.
bool SourceWriter::Text(const ContentFields& fields, std::string_view text) {
  std::string type = TypeOf(fields);
  // What other alphabets were taken for leads back to their bytes, and the name given to them is
  // right again.
  std::string charset = LowerCase(Parameter(fields.content_type, "charset"));
  std::string bytes;
  const bool ascii =
      std::all_of(text.begin(), text.end(), [](char c) { return static_cast<uint8_t>(c) < 0x80; });
  if (!ascii && IsToken(charset) && charset != "utf-8" && charset != "us-ascii") {
    bytes = FromUtf8(text);
    if (ToUtf8(bytes) == text) {
      text = bytes;
    } else {
      charset = "utf-8";
    }
  } else if (!ascii || !IsToken(charset)) {
    charset = ascii ? "us-ascii" : "utf-8";
  }
  type += EncodeParameter("charset", charset);
  AppendOtherParameters(type, fields.content_type);
  if (fields.disposition_kind == EContentDisposition::ContDisp_Default) {
    if (const std::string name = Parameter(fields.content_type, "name"); !name.empty()) {
      type += EncodeParameter("name", name);
    }
  }
  Field("Content-Type", type);
  if (fields.disposition_kind == EContentDisposition::ContDisp_Inline) {
    Field("Content-Disposition", "inline");
  }
  PlaceFields(fields);
  if (NeedsNoEncoding(text)) {
    out_ += "Content-Transfer-Encoding: 7bit\r\n\r\n";
    out_ += text;
    return FlushWhenLarge();
  }
  // Where most of it would be escaped, base64 is the shorter one.
  const auto escaped = static_cast<size_t>(std::count_if(
      text.begin(), text.end(), [](char c) { return static_cast<uint8_t>(c) >= 0x80; }));
  if (escaped * 5 > text.size()) {
    out_ += "Content-Transfer-Encoding: base64\r\n\r\n";
    out_ += EncodeBase64(text);
  } else {
    out_ += "Content-Transfer-Encoding: quoted-printable\r\n\r\n";
    out_ += EncodeQuotedPrintable(text);
  }
  return FlushWhenLarge();
}

void SourceWriter::PlaceFields(const ContentFields& fields) {
  const std::string_view id = WithoutAngleBrackets(fields.id);
  if (!id.empty()) Field("Content-ID", EncodeText("<" + std::string(id) + ">"));
  Field("Content-Location", EncodeText(fields.location));
}

// The addresses of published files become what the sender called the parts.
std::string SourceWriter::WithPartLinks(std::string_view html) const {
  const std::string prefix = account_.URLAtcmts() + "/";
  std::string out;
  size_t from = 0;
  for (const HtmlAddress& place : FindHtmlAddresses(html)) {
    const std::string address =
        WithoutReferences(html.substr(place.begin, place.end - place.begin));
    if (!address.starts_with(prefix)) continue;
    const auto link = links_.find(WithoutPercentSigns(address.substr(prefix.size())));
    if (link == links_.end()) continue;
    out += html.substr(from, place.begin - from);
    out += link->second;
    from = place.end;
  }
  out += html.substr(from);
  return out;
}

}  // namespace korvane::message_source
