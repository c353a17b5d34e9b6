// A page of the site: the layout with one content template in it. Every value is escaped by the
// template for the place where it stands.
#pragma once

#include <ctemplate/template.h>

#include <memory>
#include <string>

#include "visit.h"

namespace korvane::site {

class Page {
 public:
  /// `content`: the name of a template without its ending.
  Page(const Visit& visit, const std::string& title, const std::string& content);

  /// The dictionary of the content.
  ctemplate::TemplateDictionary& operator*() { return *content_; }
  ctemplate::TemplateDictionary* operator->() { return content_; }
  void Set(const std::string& name, const std::string& value) { content_->SetValue(name, value); }
  void Set(const std::string& name, int64_t value) {
    content_->SetIntValue(name, static_cast<long>(value));
  }
  void Show(const std::string& section) { content_->ShowSection(section); }
  void ShowIf(bool condition, const std::string& section) {
    if (condition) content_->ShowSection(section);
  }
  /// A further row of a section that repeats; it knows the form token of the login.
  ctemplate::TemplateDictionary& Row(const std::string& section);

  /// Marks a box in the navigation.
  void AtBox(int32_t box) { box_ = box; }
  /// Answers with the page.
  void Answer(int status = 200);

 private:
  void FillNavigation();

  const Visit& visit_;
  ctemplate::TemplateDictionary layout_;
  ctemplate::TemplateDictionary* content_;
  int32_t box_ = 0;
};

/// "2.4 MB".
std::string SizeText(int64_t bytes);
std::string BoxName(int32_t box);
/// When a message was sent; where that cannot be read, when it was received.
std::string DateText(const MailMessage& message);

}  // namespace korvane::site
