// The published object model as data: the classes, their members in slot order, parameters with
// optionality and defaults, and the enumerations. The C interface dispatches by it; the type
// library, the documentation page and Python's help() are made from it. It is written once, in
// object_model.cpp.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace korvane::model {

enum class Type {
  kNothing,
  kInt32,
  kBool,
  kText,
  kAny,
  kEnum,    ///< passed as a 32-bit number; the enumeration is named beside it
  kObject,  ///< an object of the library; the class is named beside it
};

enum class Kind { kGet, kLet, kCall };

/// What an optional parameter is when it is omitted.
struct Default {
  enum class Kind { kRequired, kNumber, kBool, kEmptyText } kind = Kind::kRequired;
  int32_t number = 0;
};

struct Parameter {
  std::string_view name;
  Type type;
  std::string_view of;  ///< the enumeration or class, "" otherwise
  Default omitted;
  bool receives_result = false;  ///< an any-value that the operation writes to
  bool Optional() const { return omitted.kind != Default::Kind::kRequired; }
};

struct Member {
  Kind kind;
  std::string_view name;
  std::span<const Parameter> parameters;  ///< of a let property: the value, last
  Type result;
  std::string_view result_of;  ///< the class of an object result, "" otherwise
};

struct Class {
  std::string_view name;
  bool creatable;
  std::string_view purpose;
  std::span<const Member> members;  ///< in slot order
};

struct EnumerationMember {
  std::string_view name;
  int32_t value;
};

struct Enumeration {
  std::string_view name;
  std::string_view purpose;
  std::span<const EnumerationMember> members;
};

std::span<const Class> Classes();
std::span<const Enumeration> Enumerations();

/// The class of that name, or none.
const Class* FindClass(std::string_view name);
/// The member of that name and kind, or none. Names are compared exactly.
const Member* FindMember(const Class& of, std::string_view name, Kind kind);

/// The whole model as a JSON text (RFC 8259). A binding may add classes of its own ("additional").
std::string ToJson(std::span<const Class> additional = {});
/// The whole model as a Markdown page.
std::string ToMarkdown();

}  // namespace korvane::model
