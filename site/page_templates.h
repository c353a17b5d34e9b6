// The templates of the pages, parsed once when the site starts.
#pragma once

#include <ctemplate/template_cache.h>

#include <string>

#include "template_values.h"

namespace korvane::site {

class PageTemplates {
 public:
  /// Throws std::runtime_error that names the template that is missing or damaged.
  explicit PageTemplates(const std::string& folder);

  /// "box" is the file box.html of the folder.
  std::string File(const std::string& name) const { return folder_ + '/' + name + ".html"; }
  /// Throws std::runtime_error.
  std::string Expand(const std::string& name, const TemplateValues& values) const;

 private:
  std::string folder_;
  ctemplate::TemplateCache cache_;
};

}  // namespace korvane::site
