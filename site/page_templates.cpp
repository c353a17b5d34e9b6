#include "page_templates.h"

#include <ctemplate/per_expand_data.h>
#include <ctemplate/template_emitter.h>

#include <filesystem>
#include <stdexcept>

namespace korvane::site {

PageTemplates::PageTemplates(const std::string& folder)
    : folder_(std::filesystem::absolute(folder).string()) {
  bool any = false;
  for (const auto& file : std::filesystem::directory_iterator(folder_)) {
    if (file.path().extension() != ".html") continue;
    if (!cache_.LoadTemplate(file.path().string(), ctemplate::STRIP_WHITESPACE)) {
      throw std::runtime_error("the template " + file.path().string() + " is damaged");
    }
    any = true;
  }
  if (!any) throw std::runtime_error("there are no templates in " + folder_);
  // A frozen cache is read without a lock.
  cache_.Freeze();
}

std::string PageTemplates::Expand(const std::string& name, const TemplateValues& values) const {
  std::string html;
  html.reserve(32u << 10);
  ctemplate::PerExpandData data;
  ctemplate::StringEmitter emitter(&html);
  if (!cache_.ExpandNoLoad(File(name), ctemplate::STRIP_WHITESPACE, &values, &data, &emitter)) {
    throw std::runtime_error("the template " + File(name) + " cannot be expanded");
  }
  return html;
}

}  // namespace korvane::site
