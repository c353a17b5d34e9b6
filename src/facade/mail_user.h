// MailUser: everything that the library knows about the user being served in one request: the
// identifier, a copy of the settings, the database connection, the box being worked on, the page
// size and the POP3 account loaded from the view "Query1_account". Its published interface is
// empty; the layers below the facades see it through this header alone.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "../frame/any.h"
#include "../frame/boss_object.h"
#include "../frame/database.h"
#include "../frame/error_state.h"

namespace korvane {

class MailUser : public Object, public ErrorState {
 public:
  static constexpr int32_t kNoAccount = -10;        ///< no account, or the current one
  static constexpr int32_t kDefaultAccount = -100;  ///< the user's default, or all accounts

  int32_t UserId() const { return user_id_; }
  void UserId(int32_t value) { user_id_ = value; }
  int32_t KorvaneId() const { return korvane_id_; }
  const std::string& PathAtcmts() const { return path_atcmts_; }
  const std::string& URLAtcmts() const { return url_atcmts_; }
  const std::string& PathMessages() const { return path_messages_; }
  const std::string& PathLog() const { return path_log_; }
  const std::string& PathBackgrDwnloader() const { return path_backgr_dwnloader_; }
  int32_t DebugMode() const { return debug_mode_; }
  int32_t BoxId() const { return box_id_; }
  void BoxId(int32_t value) { box_id_ = value; }
  int32_t AccountId() const { return account_id_; }
  int32_t IsEnglishDate() const { return is_english_date_; }
  /// True when dates go into the database day first.
  bool DayFirst() const { return is_english_date_ != 1; }
  int32_t MailListPageSize() const { return mail_list_page_size_; }
  void MailListPageSize(int32_t value) { mail_list_page_size_ = value; }

  const std::string& MailServer() const { return mail_server_; }
  void MailServer(std::string value) { mail_server_ = std::move(value); }
  int32_t ServerPort() const { return server_port_; }
  void ServerPort(int32_t value) { server_port_ = value; }
  /// Milliseconds; -1 when not set.
  int32_t ServerTimeout() const { return server_timeout_; }
  void ServerTimeout(int32_t value) { server_timeout_ = value; }
  const std::string& Username() const { return username_; }
  void Username(std::string value) { username_ = std::move(value); }
  /// The password of the loaded account: the row's, or for the kinds of account that keep none in
  /// the database the one that the page set.
  const std::string& Password() const { return password_; }
  /// Sets the page's password.
  void Password(std::string value);
  /// False when the loaded account is of a kind that takes the page's password and the page set
  /// none: connecting then fails before anything is sent.
  bool HasPassword() const { return has_password_; }

  const std::shared_ptr<korvane::Connection>& Connection() const { return connection_; }

  /// Takes over the settings and the connection (null for BasicInterface) and loads an account:
  /// kDefaultAccount, kNoAccount for none, or one by its identifier.
  bool InitFromConfig(const BossObject& boss, std::shared_ptr<korvane::Connection> connection,
                      int32_t user_id, int32_t account_id);
  /// Loads an account. Error 1035 when there is none.
  bool LoadAccount(int32_t account_id);

  /// A walk over all accounts of the user. Errors 1031 to 1034.
  bool OpenUserAccounts();
  bool NextAccount();
  bool CloseUserAccounts();

  /// What the account fields hold now, to put back after another account was loaded. Restoring
  /// needs no statement, so it works for fields that the page set.
  struct AccountState {
    int32_t account_id;
    std::string mail_server;
    int32_t server_port;
    int32_t server_timeout;
    std::string username;
    std::string password;
    bool has_password;
  };
  AccountState SaveAccount() const;
  void RestoreAccount(AccountState state);

 private:
  void ReadAccountRow(const Recordset& row);
  void TakeDatabaseFault(std::string_view place, const DatabaseError& fault);

  std::shared_ptr<korvane::Connection> connection_;
  int32_t user_id_ = 0;
  int32_t korvane_id_ = 0;
  std::string path_atcmts_;
  std::string url_atcmts_;
  std::string path_messages_;
  std::string path_log_;
  std::string path_backgr_dwnloader_;
  int32_t debug_mode_ = 0;
  int32_t box_id_ = 0;
  int32_t is_english_date_ = 0;
  int32_t mail_list_page_size_ = 0;
  int32_t account_id_ = kNoAccount;
  std::string mail_server_;
  int32_t server_port_ = 110;
  int32_t server_timeout_ = -1;
  std::string username_;
  std::string password_;
  bool has_password_ = true;
  std::string page_password_;  ///< what the page set, kept apart from passwords read from rows
  bool page_password_set_ = false;
  std::shared_ptr<Recordset> accounts_;
};

}  // namespace korvane
