// A page of the site: the layout with one content template in it. Every value is escaped by the
// template for the place where it stands.
#pragma once

#include <memory>
#include <string>

#include "template_values.h"
#include "visit.h"

namespace korvane::site {

class Page {
 public:
  /// `content`: the name of a template without its ending.
  Page(const Visit& visit, const std::string& title, const std::string& content);

  /// The values of the content.
  TemplateValues& operator*() { return content_; }
  TemplateValues* operator->() { return &content_; }
  void Set(std::string_view name, std::string value) { content_.SetValue(name, std::move(value)); }
  void Set(std::string_view name, int64_t value) { content_.SetIntValue(name, value); }
  void Show(std::string_view section) { content_.ShowSection(section); }
  void ShowIf(bool condition, std::string_view section) {
    if (condition) content_.ShowSection(section);
  }
  /// A further row of a section that repeats; it knows the form token of the login.
  TemplateValues& Row(std::string_view section) { return content_.AddSection(section); }

  /// Marks a box in the navigation.
  void AtBox(int32_t box) { box_ = box; }
  /// Answers with the page.
  void Answer(int status = 200);

 private:
  void FillNavigation();

  const Visit& visit_;
  TemplateValues layout_;
  TemplateValues& content_;
  int32_t box_ = 0;
};

/// "2.4 MB".
std::string SizeText(int64_t bytes);
std::string BoxName(int32_t box);
/// When a message was sent; where that cannot be read, when it was received.
std::string DateText(const MailMessage& message);
/// DAY and TIME of a row of a list, and TODAY, where there is room for one of them only.
class RowDates {
 public:
  RowDates();
  void Fill(TemplateValues& row, const MailMessage& message) const;

 private:
  std::string today_;
};

}  // namespace korvane::site
