// What a template is filled with: values, sections that are shown, and their values. It is
// ctemplate's interface over flat lists; the library's own dictionary copies every name and value
// and looks each one up under a lock, which took longer than all the rest of a page.
//
// Names are literals of the program: they are not copied.
#pragma once

#include <ctemplate/template_dictionary_interface.h>

#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::site {

class TemplateValues final : public ctemplate::TemplateDictionaryInterface {
 public:
  /// A value or section that is missing here is looked for in `around`.
  explicit TemplateValues(const TemplateValues* around = nullptr) : around_(around) {}

  void SetValue(std::string_view name, std::string value);
  void SetIntValue(std::string_view name, int64_t value) { SetValue(name, std::to_string(value)); }
  /// The section is shown once, with the values that are here.
  void ShowSection(std::string_view name);
  /// The section is shown once for each that is added; a reference stays good.
  TemplateValues& AddSection(std::string_view name);
  /// The template `file` in the place of {{>name}}. It sees its own values only.
  TemplateValues& Include(std::string_view name, std::string file);

 private:
  struct Entry {
    std::string_view name;
    std::string value;
  };
  struct Section {
    explicit Section(std::string_view of) : name(of) {}
    std::string_view name;
    std::string file;                 ///< of an included template
    std::list<TemplateValues> parts;  ///< none: it is shown with the values around it
  };
  class PartIterator;
  class OnceIterator;

  const Section* Find(const ctemplate::TemplateString& name) const;
  Section& Place(std::string_view name);

  ctemplate::TemplateString GetValue(const ctemplate::TemplateString& name) const override;
  bool IsHiddenSection(const ctemplate::TemplateString& name) const override;
  bool IsUnhiddenSection(const ctemplate::TemplateString& name) const override;
  bool IsHiddenTemplate(const ctemplate::TemplateString& name) const override;
  const char* GetIncludeTemplateName(const ctemplate::TemplateString& name, int) const override;
  Iterator* CreateSectionIterator(const ctemplate::TemplateString& name) const override;
  Iterator* CreateTemplateIterator(const ctemplate::TemplateString& name) const override;
  void DumpToString(std::string* out, int level) const override;

  const TemplateValues* around_;
  std::vector<Entry> values_;
  std::vector<Section> sections_;
};

}  // namespace korvane::site
