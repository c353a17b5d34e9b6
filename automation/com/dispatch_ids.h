// The number by which an automation client calls a member. Reading and writing a property have one
// number: the slot, from 1, of the member that comes first under the name. A collection's Item is
// its default member and has the number 0.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "frame/object_model.h"

namespace korvane::com {

inline constexpr int32_t kDefaultMember = 0;
inline constexpr int32_t kNewEnumeration = -4;
inline constexpr int32_t kPropertyPut = -3;

int32_t DispatchId(const model::Class& of, const model::Member& member);
/// The number of a name in any case, "_NewEnum" of a collection among them; nothing is -1.
int32_t FindDispatchId(const model::Class& of, std::string_view name);
/// The member of that number and kind, or none.
const model::Member* FindByDispatchId(const model::Class& of, int32_t id, model::Kind kind);
/// Classes with a position and a count can be walked with For Each.
bool IsCollection(const model::Class& of);
/// The place of a parameter, its name in any case; nothing is -1.
int32_t FindParameter(std::span<const model::Parameter> parameters, std::string_view name);

}  // namespace korvane::com
