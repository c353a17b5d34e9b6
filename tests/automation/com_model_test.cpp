// What the Windows server has of its own and is no Windows: numbers of members, the type library's
// source.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "automation/com/dispatch_ids.h"
#include "automation/com/identifiers.h"
#include "automation/com/idl.h"

namespace korvane::com {
namespace {

TEST(DispatchIds, AreOnesOwnInEachClassAndOneForAPropertysTwoSides) {
  for (const model::Class& one : model::Classes()) {
    std::set<std::pair<int32_t, model::Kind>> seen;
    for (const model::Member& member : one.members) {
      const int32_t id = DispatchId(one, member);
      EXPECT_GE(id, 0);
      EXPECT_TRUE(seen.emplace(id, member.kind).second) << one.name << '.' << member.name;
      EXPECT_EQ(FindByDispatchId(one, id, member.kind), &member);
      EXPECT_EQ(FindDispatchId(one, member.name), id);
    }
  }
}

TEST(DispatchIds, AreTheOnesThatClientsHaveCompiledIn) {
  const auto id = [](const char* of, const char* name) {
    return FindDispatchId(*model::FindClass(of), name);
  };
  EXPECT_EQ(id("WebInterface", "Version"), 1);
  EXPECT_EQ(id("WebInterface", "username"), 2);
  EXPECT_EQ(id("WebInterface", "ConnDataBase"), 16);
  EXPECT_EQ(id("WebInterface", "GetListMessagesInBox"), 22);
  EXPECT_EQ(id("MailMessage", "NM_Save"), 56);
  EXPECT_EQ(id("MailMessages", "Item"), 0);
  EXPECT_EQ(id("MailMessages", "_NEWENUM"), -4);
  EXPECT_EQ(id("MailMessage", "_NewEnum"), -1);
  EXPECT_EQ(id("BasicInterface", "DeleteMessageUIDL"), 24);
}

TEST(TypeLibrarySource, NamesEveryClassInterfaceMemberAndEnumeration) {
  const std::string idl = ToIdl();
  std::set<std::string_view> identifiers;
  for (const model::Class& one : model::Classes()) {
    const ClassIdentifiers* ids = FindIdentifiers(one.name);
    ASSERT_NE(ids, nullptr) << one.name;
    identifiers.insert({ids->class_id, ids->interface_id});
    EXPECT_NE(idl.find("interface _" + std::string(one.name) + " : IDispatch"), std::string::npos);
    EXPECT_NE(idl.find("coclass " + std::string(one.name) + " {"), std::string::npos);
    for (const model::Member& member : one.members) {
      EXPECT_NE(idl.find("HRESULT " + std::string(member.name) + "("), std::string::npos);
    }
  }
  EXPECT_EQ(identifiers.size(), 2 * model::Classes().size());
  EXPECT_EQ(Identifiers().size(), model::Classes().size());
  for (const model::Enumeration& one : model::Enumerations()) {
    EXPECT_NE(idl.find("enum " + std::string(one.name) + " {"), std::string::npos);
  }
}

TEST(TypeLibrarySource, AFileThatIsNoTypeLibraryIsNotSettled) {
  std::string nothing;
  EXPECT_FALSE(SettleDefaults(nothing));
  std::mt19937 random(3);
  for (int round = 0; round < 5'000; ++round) {
    std::string bytes(random() % 600, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random() % 4 ? random() % 8 : random());
    const size_t size = bytes.size();
    EXPECT_FALSE(SettleDefaults(bytes));
    EXPECT_EQ(bytes.size(), size);
  }
}

}  // namespace
}  // namespace korvane::com
