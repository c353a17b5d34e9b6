#include "template_values.h"

#include <utility>

namespace korvane::site {

namespace {
std::string_view View(const ctemplate::TemplateString& name) { return {name.data(), name.size()}; }
}  // namespace

class TemplateValues::PartIterator final : public Iterator {
 public:
  explicit PartIterator(const Section& section)
      : next_(section.parts.begin()), end_(section.parts.end()) {}
  bool HasNext() const override { return next_ != end_; }
  const TemplateDictionaryInterface& Next() override { return *next_++; }

 private:
  std::list<TemplateValues>::const_iterator next_;
  std::list<TemplateValues>::const_iterator end_;
};

/// Of a section without values of its own.
class TemplateValues::OnceIterator final : public Iterator {
 public:
  explicit OnceIterator(const TemplateValues* values) : next_(values) {}
  bool HasNext() const override { return next_ != nullptr; }
  const TemplateDictionaryInterface& Next() override { return *std::exchange(next_, nullptr); }

 private:
  const TemplateValues* next_;
};

void TemplateValues::SetValue(std::string_view name, std::string value) {
  for (Entry& entry : values_) {
    if (entry.name == name) {
      entry.value = std::move(value);
      return;
    }
  }
  if (values_.empty()) values_.reserve(8);
  values_.push_back({name, std::move(value)});
}

TemplateValues::Section& TemplateValues::Place(std::string_view name) {
  for (Section& section : sections_) {
    if (section.name == name) return section;
  }
  return sections_.emplace_back(name);
}

void TemplateValues::ShowSection(std::string_view name) { Place(name); }

TemplateValues& TemplateValues::AddSection(std::string_view name) {
  return Place(name).parts.emplace_back(this);
}

TemplateValues& TemplateValues::Include(std::string_view name, std::string file) {
  Section& section = Place(name);
  section.file = std::move(file);
  return section.parts.emplace_back();
}

const TemplateValues::Section* TemplateValues::Find(const ctemplate::TemplateString& name) const {
  for (const TemplateValues* scope = this; scope; scope = scope->around_) {
    for (const Section& section : scope->sections_) {
      if (section.name == View(name)) return &section;
    }
  }
  return nullptr;
}

ctemplate::TemplateString TemplateValues::GetValue(const ctemplate::TemplateString& name) const {
  for (const TemplateValues* scope = this; scope; scope = scope->around_) {
    for (const Entry& entry : scope->values_) {
      if (entry.name == View(name)) return {entry.value.data(), entry.value.size()};
    }
  }
  return {"", 0};
}

bool TemplateValues::IsHiddenSection(const ctemplate::TemplateString& name) const {
  return !Find(name);
}
bool TemplateValues::IsUnhiddenSection(const ctemplate::TemplateString& name) const {
  return Find(name) != nullptr;
}
bool TemplateValues::IsHiddenTemplate(const ctemplate::TemplateString& name) const {
  return !Find(name);
}

const char* TemplateValues::GetIncludeTemplateName(const ctemplate::TemplateString& name,
                                                   int) const {
  const Section* section = Find(name);
  return section ? section->file.c_str() : "";
}

ctemplate::TemplateDictionaryInterface::Iterator* TemplateValues::CreateSectionIterator(
    const ctemplate::TemplateString& name) const {
  const Section* section = Find(name);
  // The library deletes it.
  if (section && !section->parts.empty()) return new PartIterator(*section);
  return new OnceIterator(section ? this : nullptr);
}
ctemplate::TemplateDictionaryInterface::Iterator* TemplateValues::CreateTemplateIterator(
    const ctemplate::TemplateString& name) const {
  return CreateSectionIterator(name);
}

void TemplateValues::DumpToString(std::string* out, int level) const {
  const std::string margin(static_cast<size_t>(level), ' ');
  for (const Entry& entry : values_) {
    *out += margin + std::string(entry.name) + ": " + entry.value + '\n';
  }
  for (const Section& section : sections_) {
    if (section.parts.empty()) *out += margin + std::string(section.name) + '\n';
    for (const TemplateValues& part : section.parts) {
      *out += margin + std::string(section.name) + '\n';
      part.DumpToString(out, level + 1);
    }
  }
}

}  // namespace korvane::site
