#include "frame/boss_object.h"

#include <gtest/gtest.h>

#include <map>

#include "frame/error_numbers.h"
#include "support/instance_settings.h"
#include "support/settings_in_use.h"

namespace korvane {
namespace {

using test::InstanceSettings;
using test::SettingsInUse;

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
  const SettingsInUse file(InstanceSettings(3));
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
  const SettingsInUse file(InstanceSettings(3));
  for (const int32_t number : {0, -5}) {
    BossObject boss;
    EXPECT_FALSE(boss.Init(number));
    EXPECT_EQ(boss.GetLastError(), 0);
    EXPECT_EQ(boss.KorvaneId(), 0);
  }
}

TEST(BossObject, AKeyThatIsMissingIs1043) {
  const SettingsInUse file(InstanceSettings(3));
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
    const SettingsInUse file(InstanceSettings(3, name));
    BossObject boss;
    EXPECT_FALSE(boss.Init(3)) << name;
    EXPECT_EQ(boss.GetLastError(), number) << name;
    EXPECT_EQ(boss.GetLastErrorDesc(), "XXX");
    EXPECT_FALSE(boss.IsInitialised());
  }
}

TEST(BossObject, AKeyInWhichOnlyDebugModeIsMissingInitialisesWithDebugModeZero) {
  const SettingsInUse file(InstanceSettings(3, "DebugMode"));
  BossObject boss;
  EXPECT_TRUE(boss.Init(3));
  EXPECT_EQ(boss.GetLastError(), 0);
  EXPECT_EQ(boss.DebugMode(), 0);
}

TEST(BossObject, AKeyInWhichTheUrlIsMissingKeepsTheTwoPathsReadBefore) {
  const SettingsInUse file(InstanceSettings(3, "URLAtcmts"));
  BossObject boss;
  EXPECT_FALSE(boss.Init(3));
  EXPECT_EQ(boss.GetLastError(), 1045);
  EXPECT_EQ(boss.PathAtcmts(), "/a");
  EXPECT_EQ(boss.PathAtcmtsInvio(), "/i");
  EXPECT_EQ(boss.PathMessages(), "") << "what comes after the fault is not read";
}

TEST(BossObject, ALaterInitThatFailsDoesNotResetTheFlag) {
  const SettingsInUse file(InstanceSettings(3));
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
  /// How many updates find the row written by somebody else.
  int changed = 0;

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
    void Update() override {
      if (owner_.changed-- > 0) throw DatabaseError(DatabaseError::Kind::kChanged, "changed");
      owner_.written += "!";
    }
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

TEST(BossObject, Init2OfSeveralPagesAtOnceSucceedsForEach) {
  const auto shared = std::make_shared<PreparedRow>("04/03/2002", "22/03/2002");
  shared->changed = 3;
  BossObject boss;
  EXPECT_TRUE(boss.Init2(shared));
  EXPECT_EQ(boss.GetLastError(), 0);
  EXPECT_EQ(boss.IsEnglishDate(), -1);
}

}  // namespace
}  // namespace korvane
