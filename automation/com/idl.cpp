#include "idl.h"

#include <cstdint>
#include <cstring>

#include "dispatch_ids.h"
#include "frame/object_model.h"
#include "identifiers.h"

namespace korvane::com {

namespace {

using model::Default;
using model::Kind;
using model::Type;

std::string TypeText(Type type, std::string_view of) {
  switch (type) {
    case Type::kInt32:
      return "long";
    case Type::kBool:
      return "VARIANT_BOOL";
    case Type::kText:
      return "BSTR";
    case Type::kAny:
      return "VARIANT";
    case Type::kEnum:
      return std::string(of);
    case Type::kObject:
      return "_" + std::string(of) + "*";
    case Type::kNothing:
      break;
  }
  return "void";
}

std::string DefaultText(const Default& omitted) {
  switch (omitted.kind) {
    case Default::Kind::kNumber:
      return ", optional, defaultvalue(" + std::to_string(omitted.number) + ")";
    case Default::Kind::kBool:
      return omitted.number != 0 ? ", optional, defaultvalue(-1)" : ", optional, defaultvalue(0)";
    case Default::Kind::kEmptyText:
      // The compiler takes no text for a text by reference; a text of address 0 is the empty one.
      return ", optional, defaultvalue(0)";
    case Default::Kind::kRequired:
      break;
  }
  return "";
}

std::string MemberText(const model::Class& of, const model::Member& member) {
  std::string text = "    [id(" + std::to_string(DispatchId(of, member)) + ")";
  if (member.kind == Kind::kGet) text += ", propget";
  if (member.kind == Kind::kLet) text += ", propput";
  text += "]\n    HRESULT " + std::string(member.name) + "(";
  std::string_view separator = "";
  for (const model::Parameter& parameter : member.parameters) {
    text.append(separator).append("[in, out").append(DefaultText(parameter.omitted)).append("] ");
    text += TypeText(parameter.type, parameter.of) + "* " + std::string(parameter.name);
    separator = ", ";
  }
  if (member.result != Type::kNothing) {
    text.append(separator).append("[out, retval] ");
    text += TypeText(member.result, member.result_of) + "* result";
  }
  return text + ");\n";
}

size_t OptionalAnyValues() {
  size_t count = 0;
  for (const model::Class& one : model::Classes()) {
    for (const model::Member& member : one.members) {
      for (const model::Parameter& parameter : member.parameters) {
        if (parameter.type == Type::kAny && parameter.Optional()) ++count;
      }
    }
  }
  return count;
}

}  // namespace

std::string ToIdl() {
  const std::string library(kLibraryName);
  std::string idl =
      "import \"oaidl.idl\";\n"
      "[uuid(" +
      std::string(kLibraryId) + "), version(" + std::to_string(kMajorVersion) + "." +
      std::to_string(kMinorVersion) + "), helpstring(\"" + library + "\")]\nlibrary " + library +
      " {\n  importlib(\"stdole2.tlb\");\n\n";
  for (const model::Enumeration& one : model::Enumerations()) {
    const std::string name(one.name);
    idl += "  typedef [helpstring(\"" + std::string(one.purpose) + "\")] enum " + name + " {\n";
    for (const model::EnumerationMember& member : one.members) {
      idl += "    " + std::string(member.name) + " = " + std::to_string(member.value);
      idl += &member == &one.members.back() ? "\n" : ",\n";
    }
    idl += "  } " + name + ";\n\n";
  }
  for (const model::Class& one : model::Classes()) {
    idl += "  interface _" + std::string(one.name) + ";\n";
  }
  for (const model::Class& one : model::Classes()) {
    const ClassIdentifiers* ids = FindIdentifiers(one.name);
    idl += "\n  [uuid(" + std::string(ids->interface_id) +
           "), dual, oleautomation, nonextensible]\n  interface _" + std::string(one.name) +
           " : IDispatch {\n";
    for (const model::Member& member : one.members) idl += MemberText(one, member);
    idl += "  };\n";
  }
  for (const model::Class& one : model::Classes()) {
    const ClassIdentifiers* ids = FindIdentifiers(one.name);
    idl += "\n  [uuid(" + std::string(ids->class_id) + "), helpstring(\"" +
           std::string(one.purpose) + "\")" + (one.creatable ? "" : ", noncreatable") +
           "]\n  coclass " + std::string(one.name) + " {\n    [default] interface _" +
           std::string(one.name) + ";\n  };\n";
  }
  return idl + "}\n";
}

bool SettleDefaults(std::string& type_library) {
  // The layout: a header with the number of types at 0x20, the types' offsets, a directory of
  // segments whose first one holds the types in records of 100 bytes. Of a type, the word at 4 is
  // where its members are and the half word at 0x18 how many of them are functions. Behind the
  // members' length there is a record for each function: its length, ... its flags at 0x10, the
  // number of parameters at 0x14; at its end 12 bytes a parameter, and before these, when the flags
  // say so, a default each: the high bit, five bits of type, 26 bits of number.
  constexpr size_t kHeader = 0x54;
  constexpr size_t kTypeRecord = 100;
  constexpr uint32_t kHasDefaults = 0x1000;
  constexpr uint32_t kOfAny = 0x80000000u | (12u << 26);
  constexpr uint32_t kOfInt32 = 0x80000000u | (3u << 26);
  bool whole = true;
  const auto word = [&](size_t at) -> uint32_t {
    uint32_t value = 0;
    if (at + 4 > type_library.size()) {
      whole = false;
    } else {
      std::memcpy(&value, type_library.data() + at, 4);
    }
    return value;
  };
  const uint32_t types = word(0x20);
  const size_t type_segment = word(kHeader + size_t{types} * 4);
  size_t found = 0;
  for (uint32_t type = 0; whole && type < types; ++type) {
    const size_t record = type_segment + type * kTypeRecord;
    const uint32_t functions = word(record + 0x18) & 0xFFFF;
    size_t at = size_t{word(record + 4)} + 4;
    for (uint32_t i = 0; whole && i < functions; ++i) {
      const size_t length = word(at) & 0xFFFF;
      const size_t parameters = word(at + 0x14) & 0xFFFF;
      const bool has_defaults = (word(at + 0x10) & kHasDefaults) != 0;
      if (length < 0x18 + parameters * (has_defaults ? 16 : 12)) return false;
      for (size_t j = 0; has_defaults && j < parameters; ++j) {
        const size_t place = at + length - parameters * 16 + j * 4;
        const uint32_t packed = word(place);
        if (!whole || (packed & 0xFC000000u) != kOfAny) continue;
        const uint32_t settled = kOfInt32 | (packed & 0x03FFFFFFu);
        std::memcpy(type_library.data() + place, &settled, 4);
        ++found;
      }
      at += length;
    }
  }
  return whole && found == OptionalAnyValues();
}

}  // namespace korvane::com
