#include "page.h"

#include <cstdio>

#include "box_rows.h"

namespace korvane::site {

std::string SizeText(int64_t bytes) {
  char text[32];
  if (bytes < 1024) {
    std::snprintf(text, sizeof text, "%d B", static_cast<int>(bytes));
  } else if (bytes < 1024 * 1024) {
    std::snprintf(text, sizeof text, "%.0f KB", static_cast<double>(bytes) / 1024);
  } else {
    std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / (1024 * 1024));
  }
  return text;
}

std::string BoxName(int32_t box) {
  if (box == kInbox) return "Inbox";
  if (box == kDrafts) return "Drafts";
  return "Box " + std::to_string(box);
}

std::string DateText(const MailMessage& message) {
  const std::string& sent = message.SendDate();
  return sent.empty() || sent.find('?') != std::string::npos ? message.ReceivedDate() : sent;
}

namespace {
std::string TemplateFile(const Visit& visit, const std::string& name) {
  return visit.site.options.assets + "/templates/" + name + ".html";
}
}  // namespace

Page::Page(const Visit& visit, const std::string& title, const std::string& content)
    : visit_(visit), layout_("layout") {
  layout_.SetValue("TITLE", title);
  content_ = layout_.AddIncludeDictionary("CONTENT");
  content_->SetFilename(TemplateFile(visit, content));
  if (visit.login) {
    content_->SetValue("CSRF", visit.login->csrf);
    layout_.SetValue("CSRF", visit.login->csrf);
  }
}

ctemplate::TemplateDictionary& Page::Row(const std::string& section) {
  return *content_->AddSectionDictionary(section);
}

void Page::FillNavigation() {
  auto* navigation = layout_.AddSectionDictionary("NAVIGATION");
  navigation->SetValue("USER", visit_.login->name);
  for (const BoxCount& box : CountBoxes(*visit_.site.mail.Database(), visit_.user())) {
    auto* row = navigation->AddSectionDictionary("BOX");
    row->SetIntValue("BOX_ID", box.box);
    row->SetValue("BOX_NAME", BoxName(box.box));
    row->SetIntValue("BOX_COUNT", static_cast<long>(box.messages));
    if (box.unread > 0) {
      row->AddSectionDictionary("BOX_UNREAD")
          ->SetValue("UNREAD", box.unread > kMostUnreadShown
                                   ? std::to_string(kMostUnreadShown) + "+"
                                   : std::to_string(box.unread));
    }
    if (box.box == box_) row->ShowSection("BOX_CURRENT");
  }
  for (const Login::Notice& notice : visit_.login->TakeNotices()) {
    auto* row = layout_.AddSectionDictionary("NOTICE");
    row->SetValue("NOTICE_TEXT", notice.text);
    row->SetValue("NOTICE_KIND", notice.fault ? "fault" : "told");
    row->SetValue("NOTICE_ROLE", notice.fault ? "alert" : "status");
    if (!notice.undo.empty()) {
      row->AddSectionDictionary("NOTICE_UNDO")->SetValue("UNDO_IDS", notice.undo);
    }
  }
}

void Page::Answer(int status) {
  if (visit_.login) FillNavigation();
  std::string html;
  if (!ctemplate::ExpandTemplate(TemplateFile(visit_, "layout"), ctemplate::STRIP_WHITESPACE,
                                 &layout_, &html)) {
    throw PageFault(500, "A template of this site is missing or damaged.");
  }
  visit_.response.status = status;
  visit_.response.set_content(html, "text/html; charset=utf-8");
}

}  // namespace korvane::site
