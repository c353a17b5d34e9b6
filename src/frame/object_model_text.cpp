// The object model as texts: JSON for the bindings, Markdown for people. No name or purpose in the
// model holds a character that either would have to escape; a test says so.
#include <string>

#include "frame/object_model.h"

namespace korvane::model {

namespace {

std::string_view TypeName(Type type) {
  switch (type) {
    case Type::kNothing:
      return "nothing";
    case Type::kInt32:
      return "int32";
    case Type::kBool:
      return "bool";
    case Type::kText:
      return "string";
    case Type::kAny:
      return "any";
    case Type::kEnum:
      return "enumeration";
    case Type::kObject:
      return "object";
  }
  return "";
}

std::string_view KindName(Kind kind) {
  return kind == Kind::kGet ? "get" : kind == Kind::kLet ? "let" : "call";
}

std::string DefaultJson(const Default& omitted) {
  switch (omitted.kind) {
    case Default::Kind::kNumber:
      return std::to_string(omitted.number);
    case Default::Kind::kBool:
      return omitted.number ? "true" : "false";
    case Default::Kind::kEmptyText:
      return "\"\"";
    case Default::Kind::kRequired:
      break;
  }
  return "null";
}

std::string Quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

void AppendParameterJson(std::string& out, const Parameter& parameter) {
  out += "{\"name\":" + Quoted(parameter.name) + ",\"type\":" + Quoted(TypeName(parameter.type));
  if (!parameter.of.empty()) out += ",\"of\":" + Quoted(parameter.of);
  if (parameter.Optional()) out += ",\"default\":" + DefaultJson(parameter.omitted);
  if (parameter.receives_result) out += ",\"receives_result\":true";
  out += '}';
}

void AppendMemberJson(std::string& out, const Member& member) {
  out += "{\"kind\":" + Quoted(KindName(member.kind)) + ",\"name\":" + Quoted(member.name);
  out += ",\"parameters\":[";
  for (const Parameter& parameter : member.parameters) {
    if (&parameter != member.parameters.data()) out += ',';
    AppendParameterJson(out, parameter);
  }
  out += "],\"result\":" + Quoted(TypeName(member.result));
  if (!member.result_of.empty()) out += ",\"of\":" + Quoted(member.result_of);
  out += '}';
}

void AppendClassesJson(std::string& out, std::span<const Class> classes) {
  out += '[';
  for (const Class& one : classes) {
    if (&one != classes.data()) out += ",\n";
    out += "{\"name\":" + Quoted(one.name) +
           ",\"creatable\":" + (one.creatable ? "true" : "false") +
           ",\"purpose\":" + Quoted(one.purpose) + ",\"members\":[";
    for (const Member& member : one.members) {
      if (&member != one.members.data()) out += ",\n";
      AppendMemberJson(out, member);
    }
    out += "]}";
  }
  out += ']';
}

/// A parameter as the page shows it: name, type, and what it is when omitted.
std::string ParameterText(const Parameter& parameter) {
  std::string text = "`" + std::string(parameter.name) + "` ";
  text += parameter.of.empty() ? TypeName(parameter.type) : parameter.of;
  if (parameter.receives_result) text += " (receives a result)";
  if (parameter.Optional()) text += " = " + DefaultJson(parameter.omitted);
  return text;
}

}  // namespace

std::string ToJson(std::span<const Class> additional) {
  std::string out = "{\"classes\":";
  AppendClassesJson(out, Classes());
  out += ",\n\"additional\":";
  AppendClassesJson(out, additional);
  out += ",\n\"enumerations\":[";
  for (const Enumeration& one : Enumerations()) {
    if (&one != Enumerations().data()) out += ",\n";
    out +=
        "{\"name\":" + Quoted(one.name) + ",\"purpose\":" + Quoted(one.purpose) + ",\"members\":[";
    for (const EnumerationMember& member : one.members) {
      if (&member != one.members.data()) out += ',';
      out +=
          "{\"name\":" + Quoted(member.name) + ",\"value\":" + std::to_string(member.value) + '}';
    }
    out += "]}";
  }
  return out + "]}\n";
}

std::string ToMarkdown() {
  std::string out =
      "# The object model\n\n"
      "What a script sees, member by member in slot order. *get* reads a property, *let* writes "
      "one, "
      "*call* is an operation. What stands behind \"=\" is what an omitted parameter is taken for. "
      "`korvane object-model` prints this page.\n";
  for (const Class& one : Classes()) {
    out += "\n## " + std::string(one.name) + "\n\n";
    out += std::string(one.purpose) +
           (one.creatable ? "; created by name.\n" : "; handed out only.\n");
    if (one.members.empty()) continue;
    out += "\n| # | kind | name | parameters | result |\n|---|---|---|---|---|\n";
    int slot = 0;
    for (const Member& member : one.members) {
      out += "| " + std::to_string(++slot) + " | " + std::string(KindName(member.kind)) + " | `" +
             std::string(member.name) + "` | ";
      for (const Parameter& parameter : member.parameters) {
        if (&parameter != member.parameters.data()) out += "; ";
        out += ParameterText(parameter);
      }
      out += " | ";
      if (member.result != Type::kNothing) {
        out += member.result_of.empty() ? TypeName(member.result) : member.result_of;
      }
      out += " |\n";
    }
  }
  out += "\n## Enumerations\n\n| enumeration | members | purpose |\n|---|---|---|\n";
  for (const Enumeration& one : Enumerations()) {
    out += "| `" + std::string(one.name) + "` | ";
    for (const EnumerationMember& member : one.members) {
      if (&member != one.members.data()) out += ", ";
      out += "`" + std::string(member.name) + "` " + std::to_string(member.value);
    }
    out += " | " + std::string(one.purpose) + " |\n";
  }
  return out;
}

}  // namespace korvane::model
