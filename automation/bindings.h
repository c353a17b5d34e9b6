// What stands behind each member of the object model.
#pragma once

#include <span>
#include <string_view>

#include "frame/any.h"
#include "frame/object_model.h"

namespace korvane::automation {

/// Runs a member. `arguments` are matched and converted; those that receive a result are written.
/// May throw AutomationException, ArgumentError, DatabaseError.
using Invoke = Any (*)(Object& self, std::span<Any> arguments);

/// The function behind a member, or none.
Invoke FindBinding(const model::Class& of, const model::Member& member);

/// A new object of a creatable class, or none.
std::shared_ptr<Object> Create(std::string_view class_name);

/// The classes of the database connection that scripts hand to the library; they stand beside the
/// published ones.
std::span<const model::Class> DatabaseClasses();
const model::Class& ConnectionClass();

/// A published class or one of the database's, or none.
const model::Class* FindClass(std::string_view name);

}  // namespace korvane::automation
