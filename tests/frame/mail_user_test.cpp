#include "facade/mail_user.h"

#include <gtest/gtest.h>

#include "frame/error_numbers.h"
#include "frame/schema.h"
#include "support/settings_file_in_use.h"
#include "support/temp_folder.h"

namespace korvane {
namespace {

class MailUserTest : public testing::Test {
 protected:
  void SetUp() override {
    const std::string url = "sqlite://" + (folder_ / "mail.db");
    CreateSchema(url);
    connection_ = OpenDatabase(url);
    boss_.InitDefaults(4);
  }
  // An account of user 7; `kind` is the text of the column, NULL included.
  void Account(int id, const std::string& password, const std::string& kind,
               bool is_default = false) {
    const std::string number = std::to_string(id);
    connection_->Execute("INSERT INTO account_email VALUES (" + number + ", 'pop" + number +
                         ".example', " + std::to_string(1000 + id) + ", " +
                         std::to_string(5000 + id) + ", 'user" + number + "', " + password + ", " +
                         kind + ")");
    connection_->Execute("INSERT INTO account_email_utenti VALUES (" + std::to_string(100 + id) +
                         ", 7, " + number + ")");
    if (is_default) {
      connection_->Execute("INSERT INTO utenti VALUES (7, " + std::to_string(100 + id) + ")");
    }
  }
  bool Init(int32_t account = MailUser::kNoAccount) {
    return user_.InitFromConfig(boss_, connection_, 7, account);
  }

  test::TempFolder folder_;
  std::shared_ptr<Connection> connection_;
  BossObject boss_;
  MailUser user_;
};

TEST_F(MailUserTest, AFreshOneHasTheStatedValues) {
  EXPECT_EQ(user_.GetLastError(), 0);
  EXPECT_EQ(user_.UserId(), 0);
  EXPECT_EQ(user_.ServerPort(), 110);
  EXPECT_EQ(user_.ServerTimeout(), -1);
  EXPECT_EQ(user_.MailListPageSize(), 0);
  EXPECT_EQ(user_.AccountId(), MailUser::kNoAccount);
}

TEST_F(MailUserTest, TheConfigurationIsCopied) {
  const test::SettingsFileInUse file(
      "Windows Registry Editor Version 5.00\r\n"
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel_IS_App\\KorvaneMulti\\Korvane5\\KorvaneDll]\r\n"
      "\"PathAtcmts\"=\"/a\"\r\n\"PathAtcmtsInvio\"=\"/i\"\r\n\"URLAtcmts\"=\"http://u\"\r\n"
      "\"PathMessages\"=\"/m\"\r\n\"PathLog\"=\"/l\"\r\n\"PathBackgrDownloader\"=\"/b\"\r\n"
      "\"DbConnectionString\"=\"\"\r\n\"ServerTimeout\"=dword:00000007\r\n\"DebugMode\"=dword:"
      "00000001\r\n");
  BossObject boss;
  ASSERT_TRUE(boss.Init(5));
  ASSERT_TRUE(boss.Init2(connection_));
  ASSERT_TRUE(user_.InitFromConfig(boss, connection_, 7, MailUser::kNoAccount));
  EXPECT_EQ(user_.KorvaneId(), 5);
  EXPECT_EQ(user_.PathAtcmts(), "/a");
  EXPECT_EQ(user_.URLAtcmts(), "http://u");
  EXPECT_EQ(user_.PathMessages(), "/m");
  EXPECT_EQ(user_.PathLog(), "/l");
  EXPECT_EQ(user_.PathBackgrDwnloader(), "/b");
  EXPECT_EQ(user_.DebugMode(), 1);
  EXPECT_EQ(user_.IsEnglishDate(), -1);
  EXPECT_TRUE(user_.DayFirst());
  EXPECT_EQ(user_.BoxId(), 1);
  EXPECT_EQ(user_.UserId(), 7);
  EXPECT_EQ(user_.Connection(), connection_);
}

TEST_F(MailUserTest, AUserWithoutADefaultAccountFailsWith1035) {
  Account(1, "'p1'", "0");
  EXPECT_FALSE(Init(MailUser::kDefaultAccount));
  EXPECT_EQ(user_.GetLastError(), error::AccountNotFound);
  EXPECT_EQ(user_.GetLastErrorDesc(), "XXX");
  EXPECT_FALSE(user_.LoadAccount(99));
  EXPECT_EQ(user_.GetLastError(), 1035);
  EXPECT_TRUE(user_.LoadAccount(1));
  EXPECT_EQ(user_.GetLastError(), 0);
}

TEST_F(MailUserTest, TheDefaultAccountIsTheOneTheUserNames) {
  Account(1, "'p1'", "0");
  Account(2, "'p2'", "0", true);
  EXPECT_TRUE(Init(MailUser::kDefaultAccount));
  EXPECT_EQ(user_.AccountId(), 2);
  EXPECT_EQ(user_.MailServer(), "pop2.example");
  EXPECT_EQ(user_.ServerPort(), 1002);
  EXPECT_EQ(user_.ServerTimeout(), 5002);
  EXPECT_EQ(user_.Username(), "user2");
  EXPECT_EQ(user_.Password(), "p2");
}

TEST_F(MailUserTest, AnotherUsersAccountIsNotLoaded) {
  Account(1, "'p1'", "0");
  user_.InitFromConfig(boss_, connection_, 8, MailUser::kNoAccount);
  EXPECT_FALSE(user_.LoadAccount(1));
  EXPECT_EQ(user_.GetLastError(), 1035);
}

TEST_F(MailUserTest, AnAccountOfKindTwoKeepsThePagesPasswordAndOneOfKindZeroTakesTheRows) {
  Account(1, "'p1'", "0");
  Account(2, "'p2'", "2");
  user_.Password("page");
  ASSERT_TRUE(Init(2));
  EXPECT_EQ(user_.Password(), "page");
  ASSERT_TRUE(user_.LoadAccount(1));
  EXPECT_EQ(user_.Password(), "p1");
}

TEST_F(MailUserTest, KindsOneTwoAndNullNeverTakeTheRowsPasswordNorAnotherAccounts) {
  Account(1, "'p1'", "1");
  Account(2, "'p2'", "2");
  Account(3, "'p3'", "NULL");
  Account(4, "'p4'", "0");
  Account(5, "'p5'", "3");
  Account(6, "'p6'", "-1");
  ASSERT_TRUE(Init());
  for (const int id : {4, 5, 6}) {
    ASSERT_TRUE(user_.LoadAccount(id));
    EXPECT_EQ(user_.Password(), "p" + std::to_string(id));
    EXPECT_TRUE(user_.HasPassword());
    for (const int other : {1, 2, 3}) {
      ASSERT_TRUE(user_.LoadAccount(other));
      EXPECT_EQ(user_.Password(), "") << other;
      EXPECT_FALSE(user_.HasPassword()) << other;
    }
  }
  user_.Password("page");
  for (const int other : {1, 2, 3}) {
    ASSERT_TRUE(user_.LoadAccount(other));
    EXPECT_EQ(user_.Password(), "page");
    EXPECT_TRUE(user_.HasPassword());
  }
}

TEST_F(MailUserTest, AnEmptyPasswordOfThePageIsAPassword) {
  Account(1, "'p1'", "1");
  ASSERT_TRUE(Init());
  user_.Password("");
  ASSERT_TRUE(user_.LoadAccount(1));
  EXPECT_TRUE(user_.HasPassword());
}

TEST_F(MailUserTest, WithNoAccountTheTimeoutIsTheConfigurationsOnlyIfNoneWasSet) {
  ASSERT_TRUE(Init());
  EXPECT_EQ(user_.AccountId(), MailUser::kNoAccount);
  EXPECT_EQ(user_.ServerTimeout(), 7000);
  MailUser other;
  other.ServerTimeout(123);
  ASSERT_TRUE(other.InitFromConfig(boss_, connection_, 7, MailUser::kNoAccount));
  EXPECT_EQ(other.ServerTimeout(), 123);
}

TEST_F(MailUserTest, InitSetsThePageSizeTo25WhateverThePageSetBefore) {
  user_.MailListPageSize(3);
  ASSERT_TRUE(Init());
  EXPECT_EQ(user_.MailListPageSize(), 25);
  user_.MailListPageSize(3);
  EXPECT_EQ(user_.MailListPageSize(), 3);
}

TEST_F(MailUserTest, AllAccountsAreWalkedInTurn) {
  Account(1, "'p1'", "0");
  Account(2, "'p2'", "0");
  ASSERT_TRUE(Init());
  EXPECT_TRUE(user_.OpenUserAccounts());
  EXPECT_EQ(user_.AccountId(), 1);
  EXPECT_TRUE(user_.NextAccount());
  EXPECT_EQ(user_.AccountId(), 2);
  EXPECT_FALSE(user_.NextAccount());
  EXPECT_EQ(user_.GetLastError(), error::LastAccountReached);
  EXPECT_EQ(user_.AccountId(), 2) << "the fields keep their values";
  EXPECT_FALSE(user_.NextAccount());
  EXPECT_EQ(user_.GetLastError(), error::AccountsAtEnd);
  EXPECT_TRUE(user_.CloseUserAccounts());
  EXPECT_FALSE(user_.NextAccount());
  EXPECT_EQ(user_.GetLastError(), error::AccountsNotOpen);
  EXPECT_TRUE(user_.CloseUserAccounts()) << "closing twice is no fault";
}

TEST_F(MailUserTest, AUserWithoutAccountsIs1031) {
  ASSERT_TRUE(Init());
  EXPECT_FALSE(user_.OpenUserAccounts());
  EXPECT_EQ(user_.GetLastError(), error::NoAccounts);
  EXPECT_EQ(user_.GetLastErrorDesc(), "XXX");
}

TEST_F(MailUserTest, WhatThePageSetIsRestoredWithoutAStatement) {
  Account(1, "'p1'", "0");
  ASSERT_TRUE(Init());
  user_.MailServer("own.example");
  user_.ServerPort(995);
  user_.Username("me");
  user_.Password("mine");
  const auto before = user_.SaveAccount();
  ASSERT_TRUE(user_.LoadAccount(1));
  connection_->Execute("DELETE FROM account_email_utenti");
  user_.RestoreAccount(before);
  EXPECT_EQ(user_.AccountId(), MailUser::kNoAccount);
  EXPECT_EQ(user_.MailServer(), "own.example");
  EXPECT_EQ(user_.ServerPort(), 995);
  EXPECT_EQ(user_.Username(), "me");
  EXPECT_EQ(user_.Password(), "mine");
}

TEST_F(MailUserTest, ADatabaseFaultIsANumberAndNothingIsRaised) {
  ASSERT_TRUE(Init());
  connection_->Execute("DROP VIEW Query1_account");
  EXPECT_FALSE(user_.LoadAccount(1));
  EXPECT_EQ(user_.GetLastError(), error::DatabaseFault);
  EXPECT_FALSE(user_.OpenUserAccounts());
  EXPECT_EQ(user_.GetLastError(), error::DatabaseFault);
  MailUser without;
  EXPECT_FALSE(without.LoadAccount(1));
  EXPECT_EQ(without.GetLastError(), error::DatabaseFault);
}

}  // namespace
}  // namespace korvane
