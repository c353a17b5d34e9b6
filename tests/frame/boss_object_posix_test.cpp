// The configuration object over a settings file, and over a database that is opened by URL.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "frame/boss_object.h"
#include "frame/error_numbers.h"
#include "frame/schema.h"
#include "support/instance_settings.h"
#include "support/settings_file_in_use.h"
#include "support/temp_folder.h"

namespace korvane {
namespace {

using test::InstanceSettings;
using test::SettingsFileInUse;
using test::TempFolder;

// A settings file that is missing, empty, cut, wide or not one at all.
TEST(BossObject, AMissingOrEmptySettingsFileIs1043) {
  const SettingsFileInUse missing;
  BossObject boss;
  EXPECT_FALSE(boss.Init(1));
  EXPECT_EQ(boss.GetLastError(), 1043);
  const SettingsFileInUse empty("");
  EXPECT_FALSE(boss.Init(1));
  EXPECT_EQ(boss.GetLastError(), 1043);
}

TEST(BossObject, ACutSettingsFileFailsWithTheNumberOfWhatIsMissingOrReadsWhole) {
  const std::string whole = InstanceSettings(3);
  for (size_t length = 0; length <= whole.size(); ++length) {
    const SettingsFileInUse file(whole.substr(0, length));
    BossObject boss;
    const bool ok = boss.Init(3);
    EXPECT_EQ(ok, boss.GetLastError() == 0);
    if (ok) {
      EXPECT_EQ(boss.ServerTimeout(), 5000) << length;
      EXPECT_EQ(boss.DbConnectionString(), "sqlite:////d") << length;
    } else {
      EXPECT_GE(boss.GetLastError(), 1043);
      EXPECT_LE(boss.GetLastError(), 1048);
    }
  }
}

TEST(BossObject, ASettingsFileInUtf16IsRead) {
  std::string wide = "\xFF\xFE";
  for (const char c : InstanceSettings(3)) {
    wide += c;
    wide += '\0';
  }
  const SettingsFileInUse file(wide);
  BossObject boss;
  EXPECT_TRUE(boss.Init(3));
  EXPECT_EQ(boss.PathMessages(), "/m");
}

TEST(BossObject, AHostileSettingsFileIs1043) {
  for (const std::string& bytes :
       {std::string(100'000, '\0'), std::string("\xFF\xFE\x00\xD8\x01", 5),
        std::string(50'000, '['), std::string(50'000, '"'), std::string(1, '\xFF')}) {
    const SettingsFileInUse file(bytes);
    BossObject boss;
    EXPECT_FALSE(boss.Init(1));
    EXPECT_EQ(boss.GetLastError(), 1043);
  }
}

TEST(BossObject, TheWorkedFileOfThePageAboutSettingsIsRead) {
  std::ifstream page(KORVANE_SOURCE_DIR "/docs/settings.md");
  std::stringstream text;
  text << page.rdbuf();
  const std::string all = text.str();
  const size_t begin = all.find("```\nWindows Registry Editor");
  ASSERT_NE(begin, std::string::npos);
  const size_t end = all.find("```", begin + 4);
  ASSERT_NE(end, std::string::npos);
  const SettingsFileInUse file(all.substr(begin + 4, end - begin - 4));
  BossObject boss;
  ASSERT_TRUE(boss.Init(3));
  EXPECT_EQ(boss.PathAtcmts(), "/var/lib/korvane/attachments");
  EXPECT_EQ(boss.PathAtcmtsInvio(), "/var/lib/korvane/outgoing");
  EXPECT_EQ(boss.URLAtcmts(), "https://mail.example.org/files");
  EXPECT_EQ(boss.PathMessages(), "/var/lib/korvane/messages");
  EXPECT_EQ(boss.PathLog(), "/var/log/korvane");
  EXPECT_EQ(boss.PathBackgrDwnloader(), "");
  EXPECT_EQ(boss.DbConnectionString(), "sqlite:///var/lib/korvane/mail.db");
  EXPECT_EQ(boss.ServerTimeout(), 7000);
  EXPECT_EQ(boss.DebugMode(), 1);
}

TEST(BossObject, Init2AsksTheDatabaseForItsDateOrder) {
  const TempFolder folder;
  const std::string url = "sqlite://" + (folder / "mail.db");
  CreateSchema(url);
  BossObject boss;
  EXPECT_TRUE(boss.Init2(OpenDatabase(url)));
  EXPECT_EQ(boss.IsEnglishDate(), -1);
  EXPECT_TRUE(boss.Init2(OpenDatabase(url + "?dates=month-first")));
  EXPECT_EQ(boss.IsEnglishDate(), 1);
  const auto row = OpenDatabase(url)->Execute("select * from testdata where idtestdata = 1");
  EXPECT_EQ(row->Field("data1").ToText(), "04/03/2002 00:00:00") << "written month first last";
}

TEST(BossObject, Init2WithoutATableOrAConnectionIs1008AndDoesNotRaise) {
  const TempFolder folder;
  const std::string url = "sqlite://" + (folder / "mail.db");
  CreateSchema(url);
  const auto connection = OpenDatabase(url);
  connection->Execute("DROP TABLE testdata");
  BossObject boss;
  EXPECT_FALSE(boss.Init2(connection));
  EXPECT_EQ(boss.GetLastError(), error::DatabaseFault);
  EXPECT_FALSE(boss.Init2(nullptr));
  EXPECT_EQ(boss.GetLastError(), error::DatabaseFault);
  EXPECT_EQ(boss.IsEnglishDate(), 0);
}

}  // namespace
}  // namespace korvane
