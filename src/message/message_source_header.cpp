// The header of a message's source: as it came, or made of the fields.
#include <algorithm>

#include "frame/code_page.h"
#include "message/source_writer.h"
#include "mime/header_fields.h"
#include "mime/mail_date.h"
#include "mime/quote_pairs.h"

namespace korvane::message_source {

namespace {

// The fields that the new content gets anew, and those that counted the old one.
bool IsContentField(std::string_view name) {
  for (const char* field :
       {"mime-version", "content-type", "content-transfer-encoding", "content-disposition",
        "content-location", "content-id", "content-length", "content-md5", "lines"}) {
    if (name == field) return true;
  }
  return false;
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

}  // namespace

void SourceWriter::Header() {
  if (message_.OriginalHeader().empty()) {
    NewHeader();
  } else {
    OriginalHeader();
  }
}

// Line by line; a field goes with its continuations. What is no field is left out.
void SourceWriter::OriginalHeader() {
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

void SourceWriter::NewHeader() {
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

}  // namespace korvane::message_source
