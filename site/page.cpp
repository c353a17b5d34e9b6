#include "page.h"

#include <algorithm>
#include <array>
#include <ctime>

#include "box_rows.h"

namespace korvane::site {

std::string SizeText(int64_t bytes) {
  constexpr int64_t kKilo = 1024;
  constexpr int64_t kMega = kKilo * 1024;
  if (bytes < kKilo) return std::to_string(bytes) + " B";
  if (bytes < kMega) return std::to_string((bytes + kKilo / 2) / kKilo) + " KB";
  const int64_t tenths = (bytes * 10 + kMega / 2) / kMega;
  return std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10) + " MB";
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

RowDates::RowDates() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  std::array<char, 16> text{};
  gmtime_r(&now, &parts);
  today_.assign(text.data(), std::strftime(text.data(), text.size(), "%d/%m/%Y", &parts));
}

void RowDates::Fill(TemplateValues& row, const MailMessage& message) const {
  const std::string& received = message.ReceivedDate();
  const size_t blank = std::min(received.find(' '), received.size());
  std::string day = received.substr(0, blank);
  if (day == today_) row.ShowSection("TODAY");
  row.SetValue("DAY", std::move(day));
  row.SetValue("TIME", blank < received.size() ? received.substr(blank + 1, 5) : "");
}

Page::Page(const Visit& visit, const std::string& title, const std::string& content)
    : visit_(visit), content_(layout_.Include("CONTENT", visit.site.templates.File(content))) {
  layout_.SetValue("TITLE", title);
  if (visit.login) {
    content_.SetValue("CSRF", visit.login->csrf);
    layout_.SetValue("CSRF", visit.login->csrf);
  }
}

void Page::FillNavigation() {
  auto& navigation = layout_.AddSection("NAVIGATION");
  navigation.SetValue("USER", visit_.login->name);
  for (const BoxCount& box : CountBoxes(*visit_.site.mail.Database(), visit_.user())) {
    auto& row = navigation.AddSection("BOX");
    row.SetIntValue("BOX_ID", box.box);
    row.SetValue("BOX_NAME", BoxName(box.box));
    row.SetIntValue("BOX_COUNT", box.messages);
    if (box.unread > 0) {
      row.AddSection("BOX_UNREAD")
          .SetValue("UNREAD", box.unread > kMostUnreadShown ? std::to_string(kMostUnreadShown) + "+"
                                                            : std::to_string(box.unread));
    }
    if (box.box == box_) row.ShowSection("BOX_CURRENT");
  }
  for (const Login::Notice& notice : visit_.login->TakeNotices()) {
    auto& row = layout_.AddSection("NOTICE");
    row.SetValue("NOTICE_TEXT", notice.text);
    row.SetValue("NOTICE_KIND", notice.fault ? "fault" : "told");
    row.SetValue("NOTICE_ROLE", notice.fault ? "alert" : "status");
    if (!notice.undo.empty()) {
      row.AddSection("NOTICE_UNDO").SetValue("UNDO_IDS", notice.undo);
    }
  }
}

void Page::Answer(int status) {
  if (visit_.login) FillNavigation();
  visit_.response.status = status;
  visit_.response.body = visit_.site.templates.Expand("layout", layout_);
  visit_.response.set_header("Content-Type", "text/html; charset=utf-8");
}

}  // namespace korvane::site
