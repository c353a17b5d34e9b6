#include "frame/registry.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>
#include <vector>

#include "support/settings_file_in_use.h"

namespace korvane {
namespace {

using test::SettingsFileInUse;

constexpr int32_t kAll = Registry::kQueryValue | Registry::kSetValue | Registry::kCreateSubKey;
const std::string kFile =
    "Windows Registry Editor Version 5.00\r\n\r\n"
    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Site]\r\n"
    "\"Text\"=\"hello\"\r\n\"Empty\"=\"\"\r\n\"Number\"=dword:ffffffff\r\n"
    "\"Bytes\"=hex:41,42\r\n\"Wide\"=hex(b):01,00,00,00,00,00,00,00\r\n";

std::string WithValueOf(size_t characters) {
  return kFile + "\"Long\"=\"" + std::string(characters, 'x') + "\"\r\n";
}

TEST(Registry, AValueHoldingTheEmptyStringReadsAsEmptyWithStatusZero) {
  const SettingsFileInUse file(kFile);
  Registry registry;
  ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", Registry::kQueryValue), 0);
  std::string value = "before";
  EXPECT_EQ(registry.GetStringValue("Empty", value), 0);
  EXPECT_EQ(value, "");
}

TEST(Registry, AValueOf1023CharactersReadsWholeAndALongerOneFailsAndReadsAsEmpty) {
  for (const size_t length : {1022u, 1023u, 1024u, 1025u, 70'000u}) {
    const SettingsFileInUse file(WithValueOf(length));
    Registry registry;
    ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", 1), 0);
    std::string value = "before";
    const int32_t status = registry.GetStringValue("Long", value);
    if (length <= 1023) {
      EXPECT_EQ(status, 0);
      EXPECT_EQ(value, std::string(length, 'x'));
    } else {
      EXPECT_EQ(status, Registry::kMoreData);
      EXPECT_EQ(value, "");
    }
  }
}

TEST(Registry, CharactersBeyondAsciiCountAsOneEach) {
  for (const size_t length : {512u, 1023u, 1024u}) {
    std::string text;
    for (size_t i = 0; i < length; ++i) text += "\u00E0";
    const SettingsFileInUse file(kFile + "\"Long\"=\"" + text + "\"\r\n");
    Registry registry;
    ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", 1), 0);
    std::string value = "before";
    EXPECT_EQ(registry.GetStringValue("Long", value), length <= 1023 ? 0 : Registry::kMoreData);
    EXPECT_EQ(value, length <= 1023 ? text : "");
  }
}

TEST(Registry, AMissingValueReturnsANonZeroStatusAndEmpty) {
  const SettingsFileInUse file(kFile);
  Registry registry;
  ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", 1), 0);
  std::string value = "before";
  EXPECT_EQ(registry.GetStringValue("Missing", value), Registry::kNotFound);
  EXPECT_EQ(value, "");
  int32_t number = 5;
  EXPECT_EQ(registry.GetLongValue("Missing", number), Registry::kNotFound);
}

TEST(Registry, NumbersAreReadWithTheirSignAndTheKindOfValueIsNotChecked) {
  const SettingsFileInUse file(kFile);
  Registry registry;
  ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", 1), 0);
  int32_t number = 0;
  EXPECT_EQ(registry.GetLongValue("Number", number), 0);
  EXPECT_EQ(number, -1);
  number = 0;
  EXPECT_EQ(registry.GetLongValue("Bytes", number), 0);
  EXPECT_EQ(number, 0x4241);
  EXPECT_EQ(registry.GetLongValue("Text", number), Registry::kMoreData);
  EXPECT_EQ(registry.GetLongValue("Wide", number), Registry::kMoreData);
  std::string text;
  EXPECT_EQ(registry.GetStringValue("Bytes", text), 0);
  EXPECT_EQ(text, "AB");
}

TEST(Registry, BytesThatFillTheBufferWithoutANulReadAsEmpty) {
  std::string hex = "\"Full\"=hex:";
  for (int i = 0; i < 1024; ++i) hex += i == 0 ? "41" : ",41";
  const SettingsFileInUse file(kFile + hex + "\r\n");
  Registry registry;
  ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", 1), 0);
  std::string value = "before";
  EXPECT_EQ(registry.GetStringValue("Full", value), 0);
  EXPECT_EQ(value, "");
}

TEST(Registry, AFailingOpenLeavesNoHandle) {
  const SettingsFileInUse file(kFile);
  Registry registry;
  EXPECT_EQ(registry.CloseKey(), Registry::kInvalidHandle);
  ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", 1), 0);
  EXPECT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Other", 1), Registry::kNotFound);
  std::string value;
  EXPECT_EQ(registry.GetStringValue("Text", value), Registry::kInvalidHandle);
  int32_t number;
  EXPECT_EQ(registry.GetLongValue("Text", number), Registry::kInvalidHandle);
  EXPECT_EQ(registry.CloseKey(), Registry::kInvalidHandle);
  EXPECT_EQ(registry.OpenKey(0x12345678, "SOFTWARE", 1), Registry::kInvalidHandle);
}

TEST(Registry, TheRootsAreToldApart) {
  const SettingsFileInUse file(kFile);
  Registry registry;
  EXPECT_EQ(registry.OpenKey(0x80000001, "SOFTWARE\\Site", 1), Registry::kNotFound);
  EXPECT_EQ(registry.OpenKey(Registry::kLocalMachine, "", 1), 0);
}

TEST(Registry, AMissingFileHasNoKeys) {
  const SettingsFileInUse file;
  Registry registry;
  EXPECT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE", 1), Registry::kNotFound);
}

TEST(Registry, AnEmptyFileHasNoKeys) {
  const SettingsFileInUse file("");
  Registry registry;
  EXPECT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE", 1), Registry::kNotFound);
}

TEST(Registry, AFolderInPlaceOfTheFileIsNoSettings) {
  const SettingsFileInUse file;
  std::filesystem::create_directory(file.path());
  Registry registry;
  EXPECT_NE(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE", 1), 0);
}

TEST(Registry, WhatIsWrittenIsReadBackByTheSameAndByAnotherHandle) {
  const SettingsFileInUse file(kFile);
  Registry registry;
  ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", kAll), 0);
  EXPECT_EQ(registry.SetStringValue("Text", "C:\\new \"one\""), 0);
  EXPECT_EQ(registry.SetLongValue("Timeout", 7000), 0);
  EXPECT_EQ(registry.DelValue("Empty"), 0);
  EXPECT_EQ(registry.DelValue("Empty"), Registry::kNotFound);
  Registry other;
  ASSERT_EQ(other.OpenKey(Registry::kLocalMachine, "software\\site", 1), 0);
  for (Registry* one : {&registry, &other}) {
    std::string text;
    EXPECT_EQ(one->GetStringValue("text", text), 0);
    EXPECT_EQ(text, "C:\\new \"one\"");
    int32_t number = 0;
    EXPECT_EQ(one->GetLongValue("Timeout", number), 0);
    EXPECT_EQ(number, 7000);
    EXPECT_EQ(one->GetStringValue("Empty", text), Registry::kNotFound);
  }
  EXPECT_NE(file.Bytes().find("\"Bytes\"=hex:41,42\r\n"), std::string::npos);
}

TEST(Registry, KeysAreMadeAndDeletedBelowTheOpenOne) {
  const SettingsFileInUse file(kFile);
  Registry registry;
  ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE", kAll), 0);
  EXPECT_EQ(registry.CreateKey("Fresh\\Deep"), 0);
  Registry other;
  EXPECT_EQ(other.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Fresh\\Deep", 1), 0);
  EXPECT_EQ(registry.DelKey("Fresh"), Registry::kAccessDenied) << "it has a key below it";
  EXPECT_EQ(registry.DelKey("Fresh\\Deep"), 0);
  EXPECT_EQ(registry.DelKey("Fresh\\Deep"), Registry::kNotFound);
  EXPECT_EQ(registry.DelKey("Fresh"), 0);
  EXPECT_EQ(other.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", 1), 0);
}

TEST(Registry, TheAccessAskedForIsTheAccessGiven) {
  const SettingsFileInUse file(kFile);
  Registry registry;
  ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", Registry::kQueryValue), 0);
  EXPECT_EQ(registry.SetStringValue("Text", "x"), Registry::kAccessDenied);
  EXPECT_EQ(registry.SetLongValue("Text", 1), Registry::kAccessDenied);
  EXPECT_EQ(registry.DelValue("Text"), Registry::kAccessDenied);
  EXPECT_EQ(registry.CreateKey("x"), Registry::kAccessDenied);
  ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", Registry::kSetValue), 0);
  std::string value;
  EXPECT_EQ(registry.GetStringValue("Text", value), Registry::kAccessDenied);
}

TEST(Registry, AFolderThatCannotBeWrittenRefusesChanges) {
  if (geteuid() == 0) {
    // The owner of everything is refused nothing: here it is the folder that is not there any more.
    const SettingsFileInUse file(kFile);
    Registry registry;
    ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", kAll), 0);
    std::filesystem::remove_all(file.folder().path());
    EXPECT_NE(registry.SetStringValue("Text", "x"), 0);
    return;
  }
  const SettingsFileInUse file(kFile);
  Registry registry;
  ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", kAll), 0);
  chmod(file.folder().path().c_str(), 0500);
  EXPECT_EQ(registry.SetStringValue("Text", "x"), Registry::kAccessDenied);
  chmod(file.folder().path().c_str(), 0700);
}

TEST(Registry, AFileBehindALinkIsReplacedAndTheLinkStays) {
  const SettingsFileInUse file;
  const std::string real = file.folder() / "real.reg";
  { std::ofstream(real) << kFile; }
  std::filesystem::create_symlink(real, file.path());
  Registry registry;
  ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", kAll), 0);
  EXPECT_EQ(registry.SetStringValue("Text", "changed"), 0);
  EXPECT_TRUE(std::filesystem::is_symlink(file.path()));
  EXPECT_NE(file.Bytes().find("changed"), std::string::npos);
}

TEST(Registry, WritersAtTheSameTimeLoseNothing) {
  const SettingsFileInUse file(kFile);
  std::vector<std::thread> writers;
  for (int i = 0; i < 4; ++i) {
    writers.emplace_back([i] {
      Registry registry;
      ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", kAll), 0);
      for (int k = 0; k < 10; ++k) {
        EXPECT_EQ(registry.SetLongValue(std::to_string(i) + "_" + std::to_string(k), k), 0);
      }
    });
  }
  for (auto& writer : writers) writer.join();
  Registry registry;
  ASSERT_EQ(registry.OpenKey(Registry::kLocalMachine, "SOFTWARE\\Site", 1), 0);
  for (int i = 0; i < 4; ++i) {
    for (int k = 0; k < 10; ++k) {
      int32_t number = -1;
      EXPECT_EQ(registry.GetLongValue(std::to_string(i) + "_" + std::to_string(k), number), 0);
      EXPECT_EQ(number, k);
    }
  }
}

}  // namespace
}  // namespace korvane
