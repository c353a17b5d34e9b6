#include "dispatch_ids.h"

#include <algorithm>

namespace korvane::com {

namespace {

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool SameName(std::string_view left, std::string_view right) {
  return std::ranges::equal(left, right, {}, Lower, Lower);
}

}  // namespace

int32_t DispatchId(const model::Class& of, const model::Member& member) {
  if (member.name == "Item") return kDefaultMember;
  const auto first = std::ranges::find(of.members, member.name, &model::Member::name);
  return static_cast<int32_t>(first - of.members.begin()) + 1;
}

int32_t FindDispatchId(const model::Class& of, std::string_view name) {
  for (const model::Member& member : of.members) {
    if (SameName(member.name, name)) return DispatchId(of, member);
  }
  return IsCollection(of) && SameName(name, "_NewEnum") ? kNewEnumeration : -1;
}

const model::Member* FindByDispatchId(const model::Class& of, int32_t id, model::Kind kind) {
  for (const model::Member& member : of.members) {
    if (member.kind == kind && DispatchId(of, member) == id) return &member;
  }
  return nullptr;
}

bool IsCollection(const model::Class& of) {
  return model::FindMember(of, "ItemIndex", model::Kind::kGet) != nullptr;
}

int32_t FindParameter(std::span<const model::Parameter> parameters, std::string_view name) {
  for (size_t i = 0; i < parameters.size(); ++i) {
    if (SameName(parameters[i].name, name)) return static_cast<int32_t>(i);
  }
  return -1;
}

}  // namespace korvane::com
