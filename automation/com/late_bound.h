// Another's automation object, called by the names of its members.
#pragma once

#include <oaidl.h>

#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "variant.h"

namespace korvane::com {

class LateBound {
 public:
  LateBound() = default;
  explicit LateBound(Reference<IDispatch> object) : object_(std::move(object)) {}

  IDispatch* get() const { return object_.get(); }
  explicit operator bool() const { return static_cast<bool>(object_); }

  /// The number of a member; DISPID_UNKNOWN when there is none.
  DISPID Find(std::string_view name) const;
  bool Has(std::string_view name) const { return Find(name) != DISPID_UNKNOWN; }
  /// Reads the default property; false when there is none.
  bool DefaultValue(Variant& value) const;

  /// Reads a property or calls a method: callers without a type library do not tell them apart.
  /// These throw DatabaseError with what the object says about its fault.
  Variant Get(std::string_view name, std::span<VARIANT> arguments = {}) const;
  Variant Get(std::string_view name, VARIANT& argument) const { return Get(name, {&argument, 1}); }
  void Put(std::string_view name, VARIANT value) const;

 private:
  Variant Invoke(WORD how, std::span<VARIANT> arguments, std::string_view name) const;

  Reference<IDispatch> object_;
  mutable std::vector<std::pair<std::string, DISPID>> found_;
};

/// Makes an object by its name in the registry. Throws DatabaseError.
LateBound CreateLateBound(std::string_view name);

/// The object that a value holds. Throws DatabaseError when it holds none.
LateBound ObjectOf(const Variant& value, std::string_view what);

}  // namespace korvane::com
