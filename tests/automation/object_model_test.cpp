// The object model against what callers were promised, line by line.
#include "frame/object_model.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "automation/bindings.h"

namespace korvane::model {
namespace {

std::string TypeText(Type type, std::string_view of) {
  switch (type) {
    case Type::kInt32:
      return "int32";
    case Type::kBool:
      return "bool";
    case Type::kText:
      return "string";
    case Type::kAny:
      return "any";
    default:
      return std::string(of);
  }
}

std::string ParameterLine(const Parameter& parameter) {
  std::string line = std::string(parameter.name) + ": " + TypeText(parameter.type, parameter.of);
  switch (parameter.omitted.kind) {
    case Default::Kind::kNumber:
      line += " = " + std::to_string(parameter.omitted.number);
      break;
    case Default::Kind::kBool:
      line += parameter.omitted.number ? " = true" : " = false";
      break;
    case Default::Kind::kEmptyText:
      line += " = \"\"";
      break;
    case Default::Kind::kRequired:
      break;
  }
  return parameter.receives_result ? line + " !" : line;
}

std::string MemberLine(const Member& member) {
  std::string line = member.kind == Kind::kGet   ? "get "
                     : member.kind == Kind::kLet ? "let "
                                                 : "call ";
  line += std::string(member.name) + '(';
  for (const Parameter& parameter : member.parameters) {
    if (&parameter != member.parameters.data()) line += ", ";
    line += ParameterLine(parameter);
  }
  line += ')';
  if (member.result != Type::kNothing) line += " -> " + TypeText(member.result, member.result_of);
  return line;
}

std::vector<std::string> ModelLines() {
  std::vector<std::string> lines;
  for (const Class& one : Classes()) {
    lines.push_back("class " + std::string(one.name) +
                    (one.creatable ? " creatable" : " handed-out"));
    for (const Member& member : one.members) lines.push_back(MemberLine(member));
  }
  for (const Enumeration& one : Enumerations()) {
    std::string line = "enum " + std::string(one.name);
    for (const auto& member : one.members) {
      line += ' ' + std::string(member.name) + '=' + std::to_string(member.value);
    }
    lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> PublishedLines() {
  std::ifstream file(KORVANE_SOURCE_DIR "/tests/automation/published_interface.txt");
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line[0] != '#') lines.push_back(line);
  }
  return lines;
}

TEST(ObjectModel, IsWhatCallersWerePromisedMemberByMember) {
  const auto published = PublishedLines();
  ASSERT_GT(published.size(), 150u);
  EXPECT_EQ(ModelLines(), published);
}

TEST(ObjectModel, EveryMemberHasSomethingBehindIt) {
  for (const Class& one : Classes()) {
    for (const Member& member : one.members) {
      EXPECT_NE(automation::FindBinding(one, member), nullptr) << one.name << '.' << member.name;
    }
  }
}

TEST(ObjectModel, EveryNamedTypeExists) {
  std::set<std::string_view> known;
  for (const Class& one : Classes()) known.insert(one.name);
  for (const Enumeration& one : Enumerations()) known.insert(one.name);
  for (const Class& one : Classes()) {
    for (const Member& member : one.members) {
      if (!member.result_of.empty()) {
        EXPECT_TRUE(known.contains(member.result_of));
      }
      for (const Parameter& parameter : member.parameters) {
        if (!parameter.of.empty()) {
          EXPECT_TRUE(known.contains(parameter.of)) << parameter.of;
        }
      }
    }
  }
}

TEST(ObjectModel, OptionalParametersAreTheLastOnes) {
  for (const Class& one : Classes()) {
    for (const Member& member : one.members) {
      bool optional = false;
      for (const Parameter& parameter : member.parameters) {
        EXPECT_TRUE(parameter.Optional() || !optional) << member.name;
        optional = parameter.Optional();
      }
    }
  }
}

TEST(ObjectModel, OnlyTheThreeEntranceClassesAreCreatable) {
  std::set<std::string> creatable;
  for (const Class& one : Classes()) {
    if (one.creatable) creatable.emplace(one.name);
    EXPECT_EQ(automation::Create(one.name) != nullptr, one.creatable) << one.name;
  }
  EXPECT_EQ(creatable, (std::set<std::string>{"BasicInterface", "BossObject", "WebInterface"}));
}

TEST(ObjectModel, NothingInItNeedsEscapingInItsTexts) {
  for (const std::string& text : {ToJson(), ToMarkdown()}) {
    EXPECT_EQ(text.find('\\'), std::string::npos);
    EXPECT_EQ(text.find('\r'), std::string::npos);
  }
  for (const Class& one : Classes()) {
    EXPECT_EQ(one.purpose.find_first_of("\"|`"), std::string_view::npos) << one.purpose;
  }
  for (const Enumeration& one : Enumerations()) {
    EXPECT_EQ(one.purpose.find_first_of("\"|`"), std::string_view::npos) << one.purpose;
  }
}

TEST(ObjectModel, ThePageAboutItIsUpToDate) {
  std::ifstream file(KORVANE_SOURCE_DIR "/docs/object_model.md");
  const std::string page{std::istreambuf_iterator<char>(file), {}};
  EXPECT_EQ(page, ToMarkdown()) << "write it again with: korvane object-model";
}

}  // namespace
}  // namespace korvane::model
