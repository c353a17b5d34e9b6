#include "message/message_source.h"

#include <algorithm>
#include <unordered_map>

#include "facade/mail_user.h"
#include "frame/code_page.h"
#include "frame/files.h"
#include "message/mail_message.h"
#include "mime/content_encoding.h"
#include "mime/header_fields.h"
#include "mime/html_addresses.h"
#include "mime/mail_date.h"
#include "mime/quote_pairs.h"

namespace korvane {

namespace {

constexpr std::string_view kLineEnd = "\r\n";
/// A file is encoded in pieces of this many bytes, so that a large one is never in memory whole.
constexpr size_t kFileBlock = kBase64Line * 4096;

// The fields that the new content gets anew, and those that counted the old one.
bool IsContentField(std::string_view name) {
  for (const char* field :
       {"mime-version", "content-type", "content-transfer-encoding", "content-disposition",
        "content-location", "content-id", "content-length", "content-md5", "lines"}) {
    if (name == field) return true;
  }
  return false;
}

bool IsToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return c > 0x20 && c < 0x7F &&
           std::string_view("()<>@,;:\\\"/[]?=").find(c) == std::string_view::npos;
  });
}

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

std::vector<std::string_view> Items(std::string_view list) {
  std::vector<std::string_view> items;
  QuotePairs quotes(list);
  size_t from = 0;
  for (size_t i = 0; i <= list.size(); ++i) {
    if (i < list.size() && (list[i] != ',' || quotes.Inside(i))) continue;
    const std::string_view item = TrimBlanks(list.substr(from, i - from));
    if (!item.empty()) items.push_back(item);
    from = i + 1;
  }
  return items;
}

// A list from the names and the addresses that the message keeps apart. Names that hold a comma
// cannot be told from two; the addresses then stand alone.
std::string Mailboxes(const std::string& names, const std::string& addresses) {
  const auto address = Items(addresses);
  auto name = Items(names);
  if (address.size() == 1) name.assign(1, TrimBlanks(names));
  std::string list;
  for (size_t i = 0; i < address.size(); ++i) {
    if (!list.empty()) list += ", ";
    if (name.size() == address.size() && !name[i].empty() && name[i] != address[i]) {
      list += '"' + std::string(name[i]) + "\" <" + std::string(address[i]) + ">";
    } else {
      list += address[i];
    }
  }
  return EncodeAddresses(list);
}

/// What the message's text has to be made from, and the boundaries that it must not hold.
class Source {
 public:
  Source(MailMessage& message, const MailUser& account, const SourceSink& sink,
         std::vector<std::string>* missing)
      : message_(message), account_(account), sink_(sink), missing_(missing) {}

  bool Write() {
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

 private:
  bool Flush() {
    const bool taken = out_.empty() || sink_(out_);
    out_.clear();
    return taken;
  }
  bool FlushWhenLarge() { return out_.size() < kFileBlock || Flush(); }

  void NoteParts(const MultipartEntity& entity) {
    if (!entity.NameOnServer().empty()) {
      if (std::string link = LinkTo(entity); !link.empty()) {
        links_.emplace(entity.NameOnServer(), std::move(link));
      }
    }
    for (const auto& child : entity.Children()) NoteParts(*child);
  }

  // No encoded content holds "=_", and a message that holds this is not carried as it is. The sign
  // at the end keeps one boundary from being the beginning of another.
  std::string NewBoundary() {
    return "=_korvane_" + Digest() + "_" + std::to_string(++boundaries_) + "=";
  }

  // Depends on the message alone, so that two exports of it are equal.
  const std::string& Digest() {
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

  void Field(std::string_view name, const std::string& encoded) {
    if (encoded.empty()) return;
    out_ += name;
    out_ += ": ";
    out_ += encoded;
    out_ += kLineEnd;
  }

  void Header() {
    if (message_.OriginalHeader().empty()) {
      NewHeader();
    } else {
      OriginalHeader();
    }
  }

  // Line by line; a field goes with its continuations. What is no field is left out.
  void OriginalHeader() {
    std::string_view header = message_.OriginalHeader();
    bool keep = false;
    while (!header.empty()) {
      const size_t end = std::min(header.find(kLineEnd), header.size());
      const std::string_view line = header.substr(0, end);
      header.remove_prefix(std::min(end + kLineEnd.size(), header.size()));
      if (line.empty()) continue;
      if (line.front() != ' ' && line.front() != '\t') {
        const size_t colon = line.find(':');
        keep = colon != std::string_view::npos && colon > 0 &&
               !IsContentField(LowerCase(TrimBlanks(line.substr(0, colon))));
      }
      if (!keep) continue;
      for (const char c : line) out_ += c == '\r' || c == '\n' || c == '\0' ? ' ' : c;
      out_ += kLineEnd;
    }
  }

  void NewHeader() {
    Field("Return-Path", EncodeAddresses(message_.ReturnPath()));
    Field("Received", EncodeText(message_.Received()));
    const std::string& sent =
        message_.SendDate().empty() ? message_.ReceivedDate() : message_.SendDate();
    std::string date = PadDate(sent);
    if (date.find('?') != std::string::npos) date = NormaliseMailDate(sent);
    if (date.find('?') == std::string::npos) {
      constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
      const auto month = static_cast<size_t>((date[3] - '0') * 10 + date[4] - '0' - 1);
      Field("Date", date.substr(0, 2) + " " + std::string(kMonths.substr(month % 12 * 3, 3)) + " " +
                        date.substr(6, 4) + " " + date.substr(11) + " +0000");
    }
    Field("From", Mailboxes(message_.FromName(), message_.FromMailAddress()));
    Field("Sender", EncodeAddresses(message_.Sender()));
    Field("Reply-To", EncodeAddresses(message_.ReplyTo()));
    Field("To", Mailboxes(message_.MessageToName(), message_.MessageToAddress()));
    Field("Cc", EncodeAddresses(message_.CC()));
    Field("Bcc", EncodeAddresses(message_.BCC()));
    Field("Subject", EncodeText(message_.Subject(ETextFormat::TextFormat_Normal)));
    Field("Message-ID", EncodeText(message_.MessageID()));
    Field("In-Reply-To", EncodeText(message_.InReplyTo()));
    Field("References", EncodeText(message_.References()));
    Field("Keywords", EncodeText(message_.Keywords()));
    Field("Comments", EncodeText(message_.Comments()));
    Field("Encrypted", EncodeText(message_.Encrypted()));
  }

  // A text, with the fields that tell how to read it.
  bool Text(const ContentFields& fields, std::string_view text) {
    std::string type = TypeOf(fields);
    // What other alphabets were taken for leads back to their bytes, and the name given to them is
    // right again.
    std::string charset = LowerCase(Parameter(fields.content_type, "charset"));
    std::string bytes;
    const bool ascii = std::all_of(text.begin(), text.end(),
                                   [](char c) { return static_cast<uint8_t>(c) < 0x80; });
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

  void PlaceFields(const ContentFields& fields) {
    const std::string_view id = WithoutAngleBrackets(fields.id);
    if (!id.empty()) Field("Content-ID", EncodeText("<" + std::string(id) + ">"));
    Field("Content-Location", EncodeText(fields.location));
  }

  bool Entity(const MultipartEntity& entity, const ContentFields* root, size_t related) {
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

  bool Multipart(const MultipartEntity& entity, const ContentFields& fields, size_t related) {
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

  bool Attached(const MultipartEntity& entity, const ContentFields& fields) {
    std::string type = TypeOf(fields);
    const std::string charset = Parameter(fields.content_type, "charset");
    if (IsToken(charset)) type += EncodeParameter("charset", charset);
    AppendOtherParameters(type, fields.content_type);
    if (const std::string name = Parameter(fields.content_type, "name"); !name.empty()) {
      type += EncodeParameter("name", name);
    }
    Field("Content-Type", type);
    const std::string file_name = Parameter(fields.disposition, "filename");
    std::string disposition;
    if (fields.disposition_kind == EContentDisposition::ContDisp_Attachment) {
      disposition = "attachment";
    } else if (fields.disposition_kind == EContentDisposition::ContDisp_Inline) {
      disposition = "inline";
    } else if (!file_name.empty()) {
      // Some other word, which says the same as none.
      const std::string word = MediaType(fields.disposition);
      disposition = IsToken(word) ? word : "attached";
    }
    if (!disposition.empty()) {
      if (!file_name.empty()) disposition += EncodeParameter("filename", file_name);
      Field("Content-Disposition", disposition);
    }
    PlaceFields(fields);
    if (entity.IsFreshlyParsed()) return Bytes(fields.type, entity.Data());
    return File(entity.FilePath(), entity.Name());
  }

  bool Bytes(EEntityType type, std::string_view bytes) {
    if (type == EEntityType::message && CanStandAsItIs(bytes)) {
      out_ += "Content-Transfer-Encoding: 8bit\r\n\r\n";
      out_ += bytes;
      return FlushWhenLarge();
    }
    out_ += "Content-Transfer-Encoding: base64\r\n\r\n";
    for (size_t from = 0; from < bytes.size(); from += kFileBlock) {
      out_ += EncodeBase64(bytes.substr(from, kFileBlock));
      if (!FlushWhenLarge()) return false;
    }
    return true;
  }

  bool CanStandAsItIs(std::string_view message) {
    return HasCleanLines(message) &&
           message.find("--=_korvane_" + Digest()) == std::string_view::npos;
  }

  bool File(const std::string& path, const std::string& name) {
    out_ += "Content-Transfer-Encoding: base64\r\n\r\n";
    BinaryFile file;
    if (path.empty() || !file.Open(path, BinaryFile::Mode::kRead)) {
      if (missing_) missing_->push_back(name);
      return true;
    }
    std::string block(kFileBlock, '\0');
    for (;;) {
      size_t filled = 0;
      while (filled < block.size()) {
        const int64_t more = file.ReadSome(block.data() + filled, block.size() - filled);
        if (more < 0 && missing_) missing_->push_back(name);
        if (more <= 0) break;
        filled += static_cast<size_t>(more);
      }
      out_ += EncodeBase64(std::string_view(block).substr(0, filled));
      if (!FlushWhenLarge()) return false;
      if (filled < block.size()) return true;
    }
  }

  bool TextWithFiles(std::string_view text, const std::vector<const UUAtcmt*>& files) {
    const std::string boundary = NewBoundary();
    Field("Content-Type", "multipart/mixed" + EncodeParameter("boundary", boundary));
    out_ += "\r\n\r\n--" + boundary + "\r\n";
    if (!Text(message_.Fields(), text)) return false;
    for (const UUAtcmt* file : files) {
      out_ += "\r\n--" + boundary + "\r\nContent-Type: application/octet-stream\r\n";
      Field("Content-Disposition", "attachment" + EncodeParameter("filename", file->UUName()));
      if (!File(file->UUNameOnServer(), file->UUName())) return false;
    }
    out_ += "\r\n--" + boundary + "--\r\n";
    return true;
  }

  // The addresses of published files become what the sender called the parts.
  std::string WithPartLinks(std::string_view html) const {
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

  MailMessage& message_;
  const MailUser& account_;
  const SourceSink& sink_;
  std::vector<std::string>* missing_;
  std::string out_;
  std::string digest_;
  int boundaries_ = 0;
  std::unordered_map<std::string, std::string> links_;  ///< by the name of the stored file
};

}  // namespace

bool WriteMessageSource(MailMessage& message, const MailUser& account, const SourceSink& sink,
                        std::vector<std::string>* missing) {
  return Source(message, account, sink, missing).Write();
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
