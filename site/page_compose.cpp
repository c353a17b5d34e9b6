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
                 message.FromMailAddress() + ">\nDate: " + message.SendDate() +
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
    draft.body = "\n\nOn " + message.SendDate() + " " + message.FromName() + " wrote:\n" +
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

}  // namespace

void ShowCompose(Visit& visit) {
  Draft draft;
  std::string title = "New message";
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
  }
  Page page(visit, title, "compose");
  page.Set("HEADING", title);
  page.Set("TO", draft.to);
  page.Set("CC", draft.cc);
  page.Set("BCC", draft.bcc);
  page.Set("SUBJECT", draft.subject);
  page.Set("BODY", draft.body);
  page.Set("IN_REPLY_TO", draft.in_reply_to);
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
  std::vector<std::pair<std::shared_ptr<MailAttachment>, const std::string*>> files;
  size_t size = body.size();
  const auto [first, last] = visit.request.files.equal_range("files");
  for (auto one = first; one != last; ++one) {
    if (one->second.filename.empty()) continue;
    auto attachment = message->NM_NewAttachment();
    attachment->NM_FileName(one->second.filename);
    files.emplace_back(std::move(attachment), &one->second.content);
    size += one->second.content.size();
  }
  message->NM_Size(static_cast<int32_t>(size));
  if (!message->NM_Save(mail->database, kDrafts)) {
    throw PageFault(503, FaultText(message->GetLastError(), message->GetLastErrorDesc()));
  }
  int missing = 0;
  for (const auto& [attachment, content] : files) {
    if (!WriteWholeFile(attachment->NameOnServer(), *content, true)) ++missing;
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
