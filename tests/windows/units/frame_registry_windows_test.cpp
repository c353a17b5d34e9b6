// The registry of Windows: the operations of the class, its edges, and the settings of an instance
// in their real key below HKEY_LOCAL_MACHINE.
#include <gtest/gtest.h>
#include <windows.h>

#include <map>
#include <string>

#include "frame/boss_object.h"
#include "frame/registry.h"
#include "support/instance_settings.h"
#include "support/settings_in_use.h"

namespace korvane {
namespace {

constexpr int32_t kAllAccess = KEY_ALL_ACCESS;
const std::string kParent = "SOFTWARE\\Tarsel_IS_App\\KorvaneMulti";

// An instance that no installation has, with its key, while the test lasts.
class RegistryOfWindows : public ::testing::Test {
 protected:
  static constexpr int32_t kInstance = 990'017;

  RegistryOfWindows() : path_(kParent + "\\Korvane" + std::to_string(kInstance) + "\\KorvaneDll") {
    HKEY made = nullptr;
    EXPECT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE, path_.c_str(), &made), ERROR_SUCCESS);
    RegCloseKey(made);
    EXPECT_EQ(registry_.OpenKey(Registry::kLocalMachine, path_, kAllAccess), 0);
  }
  ~RegistryOfWindows() override {
    registry_.CloseKey();
    RegDeleteTreeA(HKEY_LOCAL_MACHINE, (kParent + "\\Korvane" + std::to_string(kInstance)).c_str());
  }

  std::string Text(const std::string& name, int32_t expected = 0) {
    std::string value = "before";
    EXPECT_EQ(registry_.GetStringValue(name, value), expected) << name;
    return value;
  }
  void SetWide(const wchar_t* name, const std::wstring& value) {
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, path_.c_str(), 0, KEY_SET_VALUE, &key),
              ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                             static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))),
              ERROR_SUCCESS);
    RegCloseKey(key);
  }
  std::wstring GetWide(const wchar_t* name) {
    wchar_t value[100] = L"";
    DWORD size = sizeof value;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, std::wstring(path_.begin(), path_.end()).c_str(),
                           name, RRF_RT_REG_SZ, nullptr, value, &size),
              ERROR_SUCCESS);
    return value;
  }

  std::string path_;
  Registry registry_;
};

TEST_F(RegistryOfWindows, ATextComesBack) {
  EXPECT_EQ(registry_.SetStringValue("PathAtcmts", "C:\\mail\\files"), 0);
  EXPECT_EQ(Text("PathAtcmts"), "C:\\mail\\files");
  EXPECT_EQ(Text("PATHATCMTS"), "C:\\mail\\files") << "names are compared in any case";
}

TEST_F(RegistryOfWindows, AValueHoldingTheEmptyStringReadsAsEmptyWithStatusZero) {
  EXPECT_EQ(registry_.SetStringValue("Empty", ""), 0);
  EXPECT_EQ(Text("Empty"), "");
}

TEST_F(RegistryOfWindows, AValueOf1023CharactersReadsWholeAndOneOf1024OrMoreFailsAndReadsAsEmpty) {
  const std::string fits(1023, 'x');
  EXPECT_EQ(registry_.SetStringValue("Long", fits), 0);
  EXPECT_EQ(Text("Long"), fits);
  for (const size_t size : {1024u, 1025u, 5000u}) {
    EXPECT_EQ(registry_.SetStringValue("Long", std::string(size, 'x')), 0);
    EXPECT_EQ(Text("Long", Registry::kMoreData), "");
  }
}

TEST_F(RegistryOfWindows, AMissingValueReturnsAStatusAndEmpty) {
  EXPECT_EQ(Text("Missing", Registry::kNotFound), "");
  int32_t number = 5;
  EXPECT_EQ(registry_.GetLongValue("Missing", number), Registry::kNotFound);
  EXPECT_EQ(number, 5);
}

TEST_F(RegistryOfWindows, NumbersComeBackAndTheKindOfAValueIsNotLookedAt) {
  for (const int32_t value : {0, 7000, -1, -2'147'483'647 - 1, 2'147'483'647}) {
    EXPECT_EQ(registry_.SetLongValue("Number", value), 0);
    int32_t back = 5;
    EXPECT_EQ(registry_.GetLongValue("Number", back), 0);
    EXPECT_EQ(back, value);
  }
  EXPECT_EQ(registry_.SetStringValue("Text", "abc"), 0);
  int32_t number = 0;
  EXPECT_EQ(registry_.GetLongValue("Text", number), 0);
  EXPECT_EQ(number, 0x00636261);
  EXPECT_EQ(registry_.SetStringValue("Text", "longer"), 0);
  EXPECT_EQ(registry_.GetLongValue("Text", number), Registry::kMoreData);
}

TEST_F(RegistryOfWindows, WhatTheEditorWroteIsReadAsItsCharacters) {
  SetWide(L"Wide", L"Citt\u00E0 \u20AC");
  EXPECT_EQ(Text("Wide"), "Citt\xC3\xA0 \xE2\x82\xAC");
}

TEST_F(RegistryOfWindows, CharactersOfTheCodePageAreWrittenAsTheEditorShowsThem) {
  EXPECT_EQ(registry_.SetStringValue("Wide", "Citt\xC3\xA0 \xE2\x82\xAC"), 0);
  EXPECT_EQ(GetWide(L"Wide"), L"Citt\u00E0 \u20AC");
  EXPECT_EQ(Text("Wide"), "Citt\xC3\xA0 \xE2\x82\xAC");
}

TEST_F(RegistryOfWindows, CharactersBeyondTheCodePageComeBackToo) {
  EXPECT_EQ(registry_.SetStringValue("Beyond", "\xE6\x97\xA5\xE6\x9C\xAC"), 0);
  EXPECT_EQ(Text("Beyond"), "\xE6\x97\xA5\xE6\x9C\xAC");
}

TEST_F(RegistryOfWindows, AValueIsDeletedOnce) {
  EXPECT_EQ(registry_.SetStringValue("Gone", "x"), 0);
  EXPECT_EQ(registry_.DelValue("Gone"), 0);
  EXPECT_EQ(registry_.DelValue("Gone"), Registry::kNotFound);
  EXPECT_EQ(Text("Gone", Registry::kNotFound), "");
}

TEST_F(RegistryOfWindows, AKeyIsMadeAndDeletedAndTheFieldKeepsTheParent) {
  EXPECT_EQ(registry_.CreateKey("Sub\\Key"), 0);
  Registry sub;
  EXPECT_EQ(sub.OpenKey(Registry::kLocalMachine, path_ + "\\Sub\\Key", Registry::kQueryValue), 0);
  EXPECT_EQ(sub.CloseKey(), 0);
  EXPECT_NE(registry_.DelKey("Sub"), 0) << "it has a key below it";
  EXPECT_EQ(registry_.DelKey("Sub\\Key"), 0);
  EXPECT_EQ(registry_.DelKey("Sub"), 0);
  EXPECT_EQ(registry_.DelKey("Sub"), Registry::kNotFound);
  EXPECT_EQ(registry_.SetStringValue("StillOpen", "x"), 0);
}

TEST_F(RegistryOfWindows, AFailingOpenLeavesNoHandleAndClosingItReturnsTheSystemsError) {
  Registry other;
  EXPECT_EQ(other.OpenKey(Registry::kLocalMachine, path_ + "\\Missing", Registry::kQueryValue),
            Registry::kNotFound);
  EXPECT_EQ(other.CloseKey(), Registry::kInvalidHandle);
  std::string value = "before";
  EXPECT_EQ(other.GetStringValue("PathAtcmts", value), Registry::kInvalidHandle);
  EXPECT_EQ(value, "");
  EXPECT_EQ(other.OpenKey(0x12345678, path_, Registry::kQueryValue), Registry::kInvalidHandle);
}

TEST_F(RegistryOfWindows, AnOpenThatFailsClosesWhatWasOpen) {
  EXPECT_EQ(registry_.OpenKey(Registry::kLocalMachine, "NoSuchKey", Registry::kQueryValue),
            Registry::kNotFound);
  EXPECT_EQ(registry_.CloseKey(), Registry::kInvalidHandle);
}

TEST_F(RegistryOfWindows, AKeyOpenedForReadingOnlyIsNotWritten) {
  Registry reader;
  ASSERT_EQ(reader.OpenKey(Registry::kLocalMachine, path_, Registry::kQueryValue), 0);
  EXPECT_EQ(reader.SetStringValue("No", "x"), Registry::kAccessDenied);
  EXPECT_EQ(reader.SetLongValue("No", 1), Registry::kAccessDenied);
  EXPECT_EQ(reader.DelValue("No"), Registry::kAccessDenied);
}

TEST_F(RegistryOfWindows, TheInstanceKeyInitialisesTheConfigurationObject) {
  for (const char* name : {"PathAtcmts", "PathAtcmtsInvio", "URLAtcmts", "PathMessages", "PathLog",
                           "PathBackgrDownloader", "DbConnectionString"}) {
    EXPECT_EQ(registry_.SetStringValue(name, std::string("value of ") + name), 0);
  }
  EXPECT_EQ(registry_.SetLongValue("ServerTimeout", 5000), 0);
  BossObject boss;
  ASSERT_TRUE(boss.Init(kInstance)) << "only DebugMode is missing";
  EXPECT_EQ(boss.GetLastError(), 0);
  EXPECT_EQ(boss.DebugMode(), 0);
  EXPECT_EQ(boss.PathAtcmts(), "value of PathAtcmts");
  EXPECT_EQ(boss.PathAtcmtsInvio(), "value of PathAtcmtsInvio");
  EXPECT_EQ(boss.URLAtcmts(), "value of URLAtcmts");
  EXPECT_EQ(boss.PathMessages(), "value of PathMessages");
  EXPECT_EQ(boss.PathLog(), "value of PathLog");
  EXPECT_EQ(boss.PathBackgrDwnloader(), "value of PathBackgrDownloader");
  EXPECT_EQ(boss.DbConnectionString(), "value of DbConnectionString");
  EXPECT_EQ(boss.ServerTimeout(), 5000);
  EXPECT_EQ(registry_.SetLongValue("DebugMode", 2), 0);
  ASSERT_TRUE(boss.Init(kInstance));
  EXPECT_EQ(boss.DebugMode(), 2);
}

TEST_F(RegistryOfWindows, EveryValueMissingFromTheInstanceKeyHasItsNumber) {
  EXPECT_FALSE(BossObject().Init(kInstance + 1));
  const std::pair<const char*, int32_t> order[] = {
      {"PathAtcmts", 1044},         {"PathAtcmtsInvio", 1046}, {"URLAtcmts", 1045},
      {"PathMessages", 1047},       {"PathLog", 1047},         {"PathBackgrDownloader", 1047},
      {"DbConnectionString", 1047}, {"ServerTimeout", 1048}};
  for (const auto& [name, number] : order) {
    BossObject boss;
    EXPECT_FALSE(boss.Init(kInstance)) << name;
    EXPECT_EQ(boss.GetLastError(), number) << name;
    EXPECT_EQ(boss.GetLastErrorDesc(), "XXX");
    EXPECT_EQ(registry_.SetStringValue(name, "abc"), 0);
  }
  EXPECT_TRUE(BossObject().Init(kInstance));
  BossObject missing;
  EXPECT_FALSE(missing.Init(kInstance + 1));
  EXPECT_EQ(missing.GetLastError(), 1043);
}

}  // namespace
}  // namespace korvane
