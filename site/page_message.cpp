// A message: its summary, its body for the sandboxed frame, its attachments.
#include <algorithm>
#include <cctype>

#include "box_rows.h"
#include "facade/mail_user.h"
#include "frame/files.h"
#include "message/message_source.h"
#include "page.h"
#include "pages.h"
#include "passwords.h"
#include "random_text.h"

namespace korvane::site {

namespace {

/// Pictures that a browser shows as nothing but a picture, by their first bytes: neither the name
/// nor the declared type of a mail's file is to be trusted.
std::string PictureType(std::string_view data) {
  if (data.starts_with("\x89PNG\r\n\x1a\n")) return "image/png";
  if (data.starts_with("\xff\xd8\xff")) return "image/jpeg";
  if (data.starts_with("GIF87a") || data.starts_with("GIF89a")) return "image/gif";
  if (data.starts_with("BM") && data.size() > 26) return "image/bmp";
  if (data.starts_with("RIFF") && data.substr(8, 4) == "WEBP") return "image/webp";
  return "";
}

int32_t MessageNumber(const Visit& visit) {
  const auto number = ParseNumber(visit.request.matches[1].str());
  if (!number) throw PageFault(404, "There is no such message.");
  return *number;
}

std::shared_ptr<MailMessage> OpenMessage(const Visit& visit, Mail& mail) {
  auto message = mail.web.GetMessage(MessageNumber(visit));
  if (!message) {
    const int32_t number = mail.web.GetLastError();
    throw PageFault(number == 1001 ? 404 : 502, FaultText(number, mail.web.GetLastErrorDesc()));
  }
  return message;
}

/// A message of which only the header is here is fetched when it is opened. True when that takes a
/// password that has to be asked for first.
bool AsksToFetch(Visit& visit, Mail& mail) {
  const int32_t number = MessageNumber(visit);
  if (HeadersOnly(*mail.database, visit.user(), {number}).empty()) return false;
  const int32_t from = AccountOfMessage(*mail.database, visit.user(), number);
  if (from < 1) return false;
  const auto accounts = AccountsOf(*mail.database, visit.user(), from);
  if (AsksForPasswords(visit, accounts, visit.request.path)) return true;
  if (!accounts.empty() && !accounts[0].keeps_password) {
    mail.web.Password(GivenPassword(visit, from));
  }
  return false;
}

/// A file name as a header may carry it (RFC 6266, RFC 8187): nothing in it can end the header.
std::string DispositionFor(const std::string& name, bool as_attachment) {
  std::string plain;
  std::string encoded;
  static constexpr char kDigits[] = "0123456789ABCDEF";
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) || c == '.' || c == '-' || c == '_') {
      plain += c;
      encoded += c;
    } else {
      if (byte < 0x80 || byte >= 0xc0) plain += '_';
      encoded += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return std::string(as_attachment ? "attachment" : "inline") + "; filename=\"" + plain +
         "\"; filename*=UTF-8''" + encoded;
}

void Send(Visit& visit, const std::string& path, const std::string& name, bool inline_picture) {
  std::string data;
  if (!ReadWholeFile(path, data)) throw PageFault(404, "The file of this attachment is missing.");
  const std::string picture = PictureType(data);
  const bool shown = inline_picture && !picture.empty();
  visit.response.set_header("Content-Disposition", DispositionFor(name, !shown));
  visit.response.set_header("Content-Security-Policy", "default-src 'none'; sandbox");
  visit.response.set_header("X-Content-Type-Options", "nosniff");
  visit.response.set_content(data, shown ? picture.c_str() : "application/octet-stream");
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

bool AsksForRemotePictures(const std::string& html) {
  const std::string lower = Lower(html);
  for (const char* sign :
       {"src=\"http", "src='http", "src=http", "background=\"http", "url(http", "url('http",
        "url(\"http", "srcset=\"http", "src=\"//", "poster=\"http"}) {
    if (lower.find(sign) != std::string::npos) return true;
  }
  return false;
}

std::string DecodePercent(std::string_view text) {
  const auto digit = [](char c) {
    return c >= '0' && c <= '9'                 ? c - '0'
           : (c | 32) >= 'a' && (c | 32) <= 'f' ? (c | 32) - 'a' + 10
                                                : -1;
  };
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && digit(text[i + 1]) >= 0 &&
        digit(text[i + 2]) >= 0) {
      plain += static_cast<char>(digit(text[i + 1]) * 16 + digit(text[i + 2]));
      i += 2;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

/// What a picture's address in the frame is signed with: the frame has no cookie to show.
std::string FrameSignature(int32_t user, const std::string& name) {
  return Signature("frame file " + std::to_string(user) + " " + name);
}

/// The HTML with the published addresses of this user's files turned into signed ones.
std::string WithSignedLinks(const Visit& visit, const std::string& html) {
  const std::string prefix =
      visit.site.mail.settings().URLAtcmts() + "/" + std::to_string(visit.user()) + "_";
  const size_t name_at = prefix.size() - std::to_string(visit.user()).size() - 1;
  std::string out;
  size_t at = 0;
  for (size_t found; (found = html.find(prefix, at)) != std::string::npos;) {
    const size_t name_start = found + name_at;
    const size_t end = std::min(html.find_first_of("\"' )>\r\n\t,", name_start), html.size());
    const std::string escaped = html.substr(name_start, end - name_start);
    out.append(html, at, found - at);
    out += "/frame-file/" + FrameSignature(visit.user(), DecodePercent(escaped)) + "/" +
           std::to_string(visit.user()) + "/" + escaped;
    at = end;
  }
  out.append(html, at);
  return out;
}

void FillAttachments(Page& page, const Visit& visit, MailMessage& message) {
  const auto attachments = message.GetAttachments();
  if (!attachments || attachments->Count() == 0) return;
  page.Show("ATTACHMENTS");
  for (int32_t i = 1; i <= attachments->Count(); ++i) {
    const auto attachment = attachments->ItemIndex(i);
    auto& row = page.Row("ATTACHMENT");
    row.SetValue("FILE_NAME", attachment->Name());
    const std::string stored = attachment->NameOnServer();
    BinaryFile file;
    if (stored.empty() || !file.Open(visit.StoredPath(stored), BinaryFile::Mode::kRead)) {
      row.ShowSection("FILE_MISSING");
      continue;
    }
    char start[32] = {};
    const int64_t read = file.ReadSome(start, sizeof start);
    const std::string picture =
        PictureType({start, static_cast<size_t>(std::max<int64_t>(read, 0))});
    auto& there = row.AddSection("FILE_THERE");
    there.SetValue("FILE_NAME", attachment->Name());
    there.SetValue("FILE_ADDRESS", "/message/" + std::to_string(message.Id()) + "/attachment/" +
                                       std::to_string(attachment->Id()));
    there.SetValue("FILE_SIZE", SizeText(file.Length()));
    there.SetValue("FILE_TYPE", picture.empty() ? "file" : picture.substr(6) + " picture");
    if (!picture.empty()) there.ShowSection("THUMBNAIL");
  }
}

void FillText(Page& page, MailMessage& message, bool as_html, bool with_pictures) {
  std::string html;
  const bool has_html = message.MessageBody(html, ETextAlternativeType::AlterType_Html,
                                            ETextFormat::TextFormat_HTML, true) ||
                        message.MessageBody(html, ETextAlternativeType::AlterType_Html,
                                            ETextFormat::TextFormat_HTML, false);
  // Plain text made into HTML needs no frame.
  const bool looks_html = has_html && !html.starts_with("<pre>");
  page.Set("OTHER_FORMAT", as_html ? "plain" : "html");
  page.Set("OTHER_FORMAT_NAME", as_html ? "plain text" : "HTML");
  if (as_html && looks_html) {
    auto& frame = page.Row("FRAME");
    frame.SetIntValue("ID", message.Id());
    if (with_pictures) {
      frame.ShowSection("WITH_PICTURES");
    } else if (AsksForRemotePictures(html)) {
      page.Row("PICTURES_BLOCKED").SetIntValue("ID", message.Id());
    }
    return;
  }
  std::string text;
  if (message.MessageBody(text, ETextAlternativeType::AlterType_Text,
                          ETextFormat::TextFormat_Normal)) {
    page.Row("TEXT").SetValue("TEXT_BODY", text);
  } else {
    page.Show("NO_TEXT");
  }
}

}  // namespace

void ShowMessage(Visit& visit) {
  const auto lock = visit.site.mail.LockUser(visit.user());
  const auto mail = visit.site.mail.Open(visit.user());
  if (AsksToFetch(visit, *mail)) return;
  const auto message = OpenMessage(visit, *mail);
  // A form with a password is not sent again by a reload.
  if (visit.request.method == "POST") return visit.GoTo(visit.request.path);
  const int32_t box = mail->web.Account()->BoxId();

  const std::string subject = message->Subject(ETextFormat::TextFormat_Normal);
  Page page(visit, subject.empty() ? "(no subject)" : subject, "message");
  page.AtBox(box);
  page.Set("ID", message->Id());
  page.Set("BOX_ID", box);
  page.Set("SUBJECT", subject.empty() ? "(no subject)" : subject);
  page.Set("FROM_NAME", message->FromName());
  page.Set("FROM_ADDRESS", message->FromMailAddress());
  page.Set("TO", message->MessageToAddress());
  if (!message->CC().empty()) page.Row("CC_LINE").SetValue("CC", message->CC());
  page.Set("DATE", DateText(*message));
  page.Set("MESSAGE_SIZE", SizeText(message->Size()));
  if (!message->OriginalHeader().empty()) {
    page.Row("FULL_HEADER").SetValue("HEADER", message->OriginalHeader());
  }
  FillText(page, *message, visit.Field("format") != "plain", visit.Ticked("pictures"));
  FillAttachments(page, visit, *message);
  page.Answer();
}

void ShowBody(Visit& visit) {
  const auto lock = visit.site.mail.LockUser(visit.user());
  const auto mail = visit.site.mail.Open(visit.user());
  const auto message = OpenMessage(visit, *mail);
  std::string html;
  message->MessageBody(html, ETextAlternativeType::AlterType_Html, ETextFormat::TextFormat_HTML);
  const bool remote = visit.Ticked("pictures");
  // Nothing in a mail runs, sends or navigates: no script, no form, no frame, no base, and no
  // picture from elsewhere until it is asked for.
  visit.response.set_header(
      "Content-Security-Policy",
      std::string("default-src 'none'; style-src 'unsafe-inline'; img-src 'self' data:") +
          (remote ? " http: https:" : "") +
          "; base-uri 'none'; form-action 'none'; frame-ancestors 'self'; "
          "sandbox allow-popups allow-popups-to-escape-sandbox");
  visit.response.set_header("Referrer-Policy", "no-referrer");
  visit.response.set_header("X-DNS-Prefetch-Control", "off");
  visit.response.set_content(
      "<!doctype html><meta charset=\"utf-8\"><base target=\"_blank\">"
      "<style>body{font:15px/1.5 system-ui,sans-serif;margin:12px;overflow-wrap:anywhere}"
      "img{max-width:100%;height:auto}pre{white-space:pre-wrap}</style>" +
          WithSignedLinks(visit, html),
      "text/html; charset=utf-8");
}

void SendFile(Visit& visit) {
  const auto lock = visit.site.mail.LockUser(visit.user());
  const auto mail = visit.site.mail.Open(visit.user());
  const auto message = OpenMessage(visit, *mail);
  const auto key = ParseNumber(visit.request.matches[2].str());
  const auto attachments = message->GetAttachments();
  const auto attachment = attachments && key ? attachments->Item(*key) : nullptr;
  if (!attachment || attachment->NameOnServer().empty()) {
    throw PageFault(404, "There is no such attachment.");
  }
  Send(visit, visit.StoredPath(attachment->NameOnServer()), attachment->Name(),
       visit.Ticked("inline"));
}

void SendSource(Visit& visit) {
  const auto lock = visit.site.mail.LockUser(visit.user());
  const auto mail = visit.site.mail.Open(visit.user());
  const auto message = OpenMessage(visit, *mail);
  std::string subject = message->Subject(ETextFormat::TextFormat_Normal);
  if (subject.empty()) subject = "message";
  const std::string source = MessageSource(*message, *mail->web.Account());
  visit.response.set_header("Content-Disposition", DispositionFor(subject + ".eml", true));
  visit.response.set_header("Content-Security-Policy", "default-src 'none'; sandbox");
  visit.response.set_header("X-Content-Type-Options", "nosniff");
  visit.response.set_content(source, "message/rfc822");
}

void SendFrameFile(Visit& visit) {
  const auto user = ParseNumber(visit.request.matches[2].str());
  const std::string name = visit.request.matches[3].str();
  if (!user || name.find_first_of("/\\") != std::string::npos ||
      !SameSecret(visit.request.matches[1].str(), FrameSignature(*user, name))) {
    throw PageFault(404, "There is no such file.");
  }
  Send(visit, JoinPath(visit.site.mail.settings().PathAtcmts(), name), name, true);
}

}  // namespace korvane::site
