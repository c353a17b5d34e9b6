// Composing: a new message, a reply, a forward, or a draft as a new message; saved into the drafts.
#include <cstdio>
#include <ctime>
#include <sstream>

#include "box_rows.h"
#include "frame/files.h"
#include "page.h"
#include "pages.h"

namespace korvane::site {

namespace {

std::string Prefixed(const char* prefix, const std::string& subject) {
  return subject.size() >= 3 && (subject[0] == prefix[0] || subject[0] == prefix[0] + 32) &&
                 subject.substr(1, 2) == std::string(prefix).substr(1, 2)
             ? subject
             : prefix + subject;
}

std::string PlainText(MailMessage& message) {
  std::string text;
  message.MessageBody(text, ETextAlternativeType::AlterType_Text, ETextFormat::TextFormat_Normal);
  return text;
}

std::string Quoted(const std::string& text) {
  std::istringstream lines(text);
  std::string quoted;
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    quoted += (line.starts_with(">") ? ">" : "> ") + line + "\n";
  }
  return quoted;
}

struct Draft {
  std::string to, cc, bcc, subject, body, in_reply_to;
};

Draft From(MailMessage& message, const std::string& how) {
  Draft draft;
  const std::string subject = message.Subject(ETextFormat::TextFormat_Normal);
  if (how == "edit") {
    draft.to = message.MessageToAddress();
    draft.cc = message.CC();
    draft.bcc = message.BCC();
    draft.subject = subject;
    draft.body = PlainText(message);
    draft.in_reply_to = message.InReplyTo();
  } else if (how == "forward") {
    draft.subject = Prefixed("Fwd: ", subject);
    draft.body = "\n\n---------- Forwarded message ----------\nFrom: " + message.FromName() + " <" +
                 message.FromMailAddress() + ">\nDate: " + DateText(message) +
                 "\nSubject: " + subject + "\nTo: " + message.MessageToAddress() + "\n\n" +
                 PlainText(message);
  } else {
    draft.to =
        message.ReplyToAddress().empty() ? message.FromMailAddress() : message.ReplyToAddress();
    if (how == "reply-all") {
      draft.cc = message.MessageToAddress();
      if (!message.CC_Address().empty())
        draft.cc += (draft.cc.empty() ? "" : ", ") + message.CC_Address();
    }
    draft.subject = Prefixed("Re: ", subject);
    draft.in_reply_to = message.MessageID();
    draft.body = "\n\nOn " + DateText(message) + " " + message.FromName() + " wrote:\n" +
                 Quoted(PlainText(message));
  }
  return draft;
}

std::string Now() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%d/%m/%Y %H:%M:%S", &utc);
  return text;
}

/// The files of the message that is forwarded or edited, to be taken along.
void FillFiles(Page& page, const Visit& visit, MailMessage& message) {
  const auto attachments = message.GetAttachments();
  if (!attachments || attachments->Count() == 0) return;
  page.Row("TAKEN_FROM").SetIntValue("SOURCE", message.Id());
  for (int32_t i = 1; i <= attachments->Count(); ++i) {
    const auto attachment = attachments->ItemIndex(i);
    if (attachment->NameOnServer().empty() ||
        !FileExists(visit.StoredPath(attachment->NameOnServer())))
      continue;
    auto& row = page.Row("TAKEN");
    row.SetIntValue("TAKEN_ID", attachment->Id());
    row.SetValue("TAKEN_NAME", attachment->Name());
  }
}

/// A file of the new message, and what goes into it once the message named it.
struct NewFile {
  std::shared_ptr<MailAttachment> attachment;
  std::string content;
};

std::vector<NewFile> UploadedFiles(const Visit& visit, MailMessage& message) {
  std::vector<NewFile> files;
  const auto [first, last] = visit.request.files.equal_range("files");
  for (auto one = first; one != last; ++one) {
    if (one->second.filename.empty()) continue;
    files.push_back({message.NM_NewAttachment(), one->second.content});
    files.back().attachment->NM_FileName(one->second.filename);
  }
  return files;
}

/// The ticked files of the message that the new one was made from.
void TakeFilesAlong(const Visit& visit, Mail& mail, MailMessage& message,
                    std::vector<NewFile>& files) {
  const auto source = mail.web.GetMessage(visit.Number("source", 0, 1));
  const auto attachments = source ? source->GetAttachments() : nullptr;
  for (const std::string& ticked : visit.Fields("taken")) {
    const auto id = ParseNumber(ticked);
    const auto attachment = attachments && id ? attachments->Item(*id) : nullptr;
    std::string content;
    if (!attachment || attachment->NameOnServer().empty() ||
        !ReadWholeFile(visit.StoredPath(attachment->NameOnServer()), content)) {
      throw PageFault(404, "An attachment of the first message is not there any more.");
    }
    files.push_back({message.NM_NewAttachment(), std::move(content)});
    files.back().attachment->NM_FileName(attachment->Name());
  }
}

}  // namespace

void ShowCompose(Visit& visit) {
  Draft draft;
  std::string title = "New message";
  std::shared_ptr<MailMessage> taken_from;
  for (const char* how : {"reply", "reply-all", "forward", "edit"}) {
    const auto number = ParseNumber(visit.Field(how));
    if (!number) continue;
    const auto lock = visit.site.mail.LockUser(visit.user());
    const auto mail = visit.site.mail.Open(visit.user());
    const auto message = mail->web.GetMessage(*number);
    if (!message) {
      throw PageFault(404, FaultText(mail->web.GetLastError(), mail->web.GetLastErrorDesc()));
    }
    draft = From(*message, how);
    title = how == std::string("forward") ? "Forward"
            : how == std::string("edit")  ? "Edit as new"
                                          : "Reply";
    if (title != "Reply") taken_from = message;
  }
  Page page(visit, title, "compose");
  page.Set("HEADING", title);
  page.Set("TO", draft.to);
  page.Set("CC", draft.cc);
  page.Set("BCC", draft.bcc);
  page.Set("SUBJECT", draft.subject);
  page.Set("BODY", draft.body);
  page.Set("IN_REPLY_TO", draft.in_reply_to);
  if (taken_from) FillFiles(page, visit, *taken_from);
  page.Answer();
}

void SaveDraft(Visit& visit) {
  const auto lock = visit.site.mail.LockUser(visit.user());
  const auto mail = visit.site.mail.Open(visit.user());
  const auto message = mail->web.NewMessage();
  if (!message) throw PageFault(503, "A new message cannot be made.");
  const std::string body = visit.Field("body");
  std::string from = visit.Field("from");
  if (from.empty()) from = mail->web.Username();
  message->NM_From(from);
  message->NM_MessageTo(visit.Field("to"));
  message->NM_CC(visit.Field("cc"));
  message->NM_BCC(visit.Field("bcc"));
  message->NM_Subject(visit.Field("subject"));
  message->NM_InReplyTo(visit.Field("in_reply_to"));
  message->NM_MessageBody(body);
  message->NM_SendDate(Now());

  // The message names the files when it is saved; their contents are put in place afterwards.
  std::vector<NewFile> files = UploadedFiles(visit, *message);
  if (visit.Ticked("taken")) TakeFilesAlong(visit, *mail, *message, files);
  size_t size = body.size();
  for (const NewFile& file : files) size += file.content.size();
  message->NM_Size(static_cast<int32_t>(size));
  if (!message->NM_Save(mail->database, kDrafts)) {
    throw PageFault(503, FaultText(message->GetLastError(), message->GetLastErrorDesc()));
  }
  int missing = 0;
  for (const NewFile& file : files) {
    if (!WriteWholeFile(visit.StoredPath(file.attachment->NameOnServer()), file.content, true))
      ++missing;
  }
  if (missing > 0) {
    visit.TellFault("The draft was saved, but " + std::to_string(missing) +
                    " of its files could not be written. Check the free space.");
  } else {
    visit.Tell("The message was saved in Drafts. This site stores mail and does not send it.");
  }
  visit.GoTo("/box/" + std::to_string(kDrafts));
}

}  // namespace korvane::site
