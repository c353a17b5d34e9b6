#include "frame/boss_object.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>

#include "frame/error_numbers.h"
#include "frame/schema.h"
#include "support/settings_file_in_use.h"
#include "support/temp_folder.h"

namespace korvane {
namespace {

using test::SettingsFileInUse;
using test::TempFolder;

// A settings file of installation `number` without the value `left_out`.
std::string Settings(int number, const std::string& left_out = "") {
  const std::vector<std::pair<std::string, std::string>> values = {
      {"PathAtcmts", "\"/a\""},
      {"PathAtcmtsInvio", "\"/i\""},
      {"URLAtcmts", "\"http://u\""},
      {"PathMessages", "\"/m\""},
      {"PathLog", "\"/l\""},
      {"PathBackgrDownloader", "\"/b\""},
      {"DbConnectionString", "\"sqlite:////d\""},
      {"ServerTimeout", "dword:00001388"},
      {"DebugMode", "dword:00000002"}};
  std::string text =
      "Windows Registry Editor Version 5.00\r\n\r\n"
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel_IS_App\\KorvaneMulti\\Korvane" +
      std::to_string(number) + "\\KorvaneDll]\r\n";
  for (const auto& [name, value] : values) {
    if (name != left_out) text += "\"" + name + "\"=" + value + "\r\n";
  }
  return text;
}

TEST(BossObject, AFreshOneReportsNumberZeroAndNoText) {
  const BossObject boss;
  EXPECT_EQ(boss.GetLastError(), 0);
  EXPECT_EQ(boss.GetLastErrorDesc(), "");
  EXPECT_FALSE(boss.IsInitialised());
  EXPECT_EQ(boss.KorvaneId(), 0);
  EXPECT_EQ(boss.DebugMode(), 0);
  EXPECT_EQ(boss.IsEnglishDate(), 0);
}

TEST(BossObject, BeforeAnythingIsReadTheTimeoutIsZero) {
  EXPECT_EQ(BossObject().ServerTimeout(), 0);
}

TEST(BossObject, InitReadsEverySetting) {
  const SettingsFileInUse file(Settings(3));
  BossObject boss;
  EXPECT_TRUE(boss.Init(3));
  EXPECT_EQ(boss.GetLastError(), 0);
  EXPECT_EQ(boss.KorvaneId(), 3);
  EXPECT_EQ(boss.PathAtcmts(), "/a");
  EXPECT_EQ(boss.PathAtcmtsInvio(), "/i");
  EXPECT_EQ(boss.URLAtcmts(), "http://u");
  EXPECT_EQ(boss.PathMessages(), "/m");
  EXPECT_EQ(boss.PathLog(), "/l");
  EXPECT_EQ(boss.PathBackgrDwnloader(), "/b");
  EXPECT_EQ(boss.DbConnectionString(), "sqlite:////d");
  EXPECT_EQ(boss.ServerTimeout(), 5000);
  EXPECT_EQ(boss.DebugMode(), 2);
  EXPECT_TRUE(boss.IsInitialised());
}

TEST(BossObject, InitOfZeroOrLessReturnsFalseAndLeavesErrorNumberZero) {
  const SettingsFileInUse file(Settings(3));
  for (const int32_t number : {0, -5}) {
    BossObject boss;
    EXPECT_FALSE(boss.Init(number));
    EXPECT_EQ(boss.GetLastError(), 0);
    EXPECT_EQ(boss.KorvaneId(), 0);
  }
}

TEST(BossObject, AKeyThatIsMissingIs1043) {
  const SettingsFileInUse file(Settings(3));
  BossObject boss;
  EXPECT_FALSE(boss.Init(4));
  EXPECT_EQ(boss.GetLastError(), error::SettingsKeyNotFound);
  EXPECT_EQ(boss.GetLastErrorDesc(), "XXX");
  EXPECT_FALSE(boss.Init(30));
  EXPECT_EQ(boss.GetLastError(), 1043);
}

TEST(BossObject, EveryMissingSettingHasItsNumber) {
  const std::map<std::string, int32_t> numbers = {
      {"PathAtcmts", 1044},         {"PathAtcmtsInvio", 1046}, {"URLAtcmts", 1045},
      {"PathMessages", 1047},       {"PathLog", 1047},         {"PathBackgrDownloader", 1047},
      {"DbConnectionString", 1047}, {"ServerTimeout", 1048}};
  for (const auto& [name, number] : numbers) {
    const SettingsFileInUse file(Settings(3, name));
    BossObject boss;
    EXPECT_FALSE(boss.Init(3)) << name;
    EXPECT_EQ(boss.GetLastError(), number) << name;
    EXPECT_EQ(boss.GetLastErrorDesc(), "XXX");
    EXPECT_FALSE(boss.IsInitialised());
  }
}

TEST(BossObject, AKeyInWhichOnlyDebugModeIsMissingInitialisesWithDebugModeZero) {
  const SettingsFileInUse file(Settings(3, "DebugMode"));
  BossObject boss;
  EXPECT_TRUE(boss.Init(3));
  EXPECT_EQ(boss.GetLastError(), 0);
  EXPECT_EQ(boss.DebugMode(), 0);
}

TEST(BossObject, AKeyInWhichTheUrlIsMissingKeepsTheTwoPathsReadBefore) {
  const SettingsFileInUse file(Settings(3, "URLAtcmts"));
  BossObject boss;
  EXPECT_FALSE(boss.Init(3));
  EXPECT_EQ(boss.GetLastError(), 1045);
  EXPECT_EQ(boss.PathAtcmts(), "/a");
  EXPECT_EQ(boss.PathAtcmtsInvio(), "/i");
  EXPECT_EQ(boss.PathMessages(), "") << "what comes after the fault is not read";
}

TEST(BossObject, ALaterInitThatFailsDoesNotResetTheFlag) {
  const SettingsFileInUse file(Settings(3));
  BossObject boss;
  ASSERT_TRUE(boss.Init(3));
  EXPECT_TRUE(boss.Init(4)) << "the flag as it stands";
  EXPECT_EQ(boss.GetLastError(), 1043);
  EXPECT_TRUE(boss.Init(3));
  EXPECT_EQ(boss.GetLastError(), 0) << "a success clears the error";
}

TEST(BossObject, InitDefaultsNeedsNoRegistry) {
  BossObject boss;
  EXPECT_TRUE(boss.InitDefaults(9));
  EXPECT_EQ(boss.KorvaneId(), 9);
  EXPECT_EQ(boss.ServerTimeout(), 7000);
  EXPECT_EQ(boss.PathMessages(), "");
  EXPECT_TRUE(boss.IsInitialised());
}

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
  const std::string whole = Settings(3);
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
  for (const char c : Settings(3)) {
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

// A database of which only the prepared row is known.
class PreparedRow : public Connection, public std::enable_shared_from_this<PreparedRow> {
 public:
  explicit PreparedRow(std::string data1, std::string data3)
      : data1_(std::move(data1)), data3_(std::move(data3)) {}
  std::shared_ptr<Recordset> Execute(const std::string&) override { return nullptr; }
  std::shared_ptr<Recordset> Open(const std::string& statement) override {
    statements.push_back(statement);
    return std::make_shared<Row>(*this);
  }
  std::vector<std::string> statements;
  std::string written;

 private:
  struct Row : Recordset {
    explicit Row(PreparedRow& owner) : owner_(owner) {}
    bool Eof() const override { return false; }
    void MoveNext() override {}
    void MovePrevious() override {}
    void Move(int64_t) override {}
    void MoveLast() override {}
    Any Field(std::string_view name) const override {
      return name == "data1" ? owner_.data1_ : owner_.data3_;
    }
    void SetField(std::string_view name, const Any& value) override {
      owner_.written += std::string(name) + "=" + value.ToText();
    }
    void AddNew() override {}
    void Update() override { owner_.written += "!"; }
    void CancelUpdate() override {}
    void Close() override {}
    bool IsOpen() const override { return true; }
    PreparedRow& owner_;
  };
  std::string data1_;
  std::string data3_;
};

TEST(BossObject, Init2WritesTheProbeAndLetsTheTwentySecondAloneDecide) {
  // The day of data1 says the opposite each time.
  const auto day_first =
      std::make_shared<PreparedRow>("04/03/2002 00:00:00", "22/03/2002 00:00:00");
  BossObject boss;
  EXPECT_TRUE(boss.Init2(day_first));
  EXPECT_EQ(boss.IsEnglishDate(), -1);
  EXPECT_EQ(day_first->written, "data1=03/04/2002!");
  EXPECT_EQ(day_first->statements,
            std::vector<std::string>(2, "select * from testdata where idtestdata = 1"));
  const auto month_first = std::make_shared<PreparedRow>("03/04/2002", "03/22/2002");
  EXPECT_TRUE(boss.Init2(month_first));
  EXPECT_EQ(boss.IsEnglishDate(), 1);
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
