#include "facade/mail_user.h"

#include "frame/debug_log.h"
#include "frame/error_numbers.h"

namespace korvane {

void MailUser::Password(std::string value) {
  page_password_ = value;
  page_password_set_ = true;
  password_ = std::move(value);
  has_password_ = true;
}

bool MailUser::InitFromConfig(const BossObject& boss,
                              std::shared_ptr<korvane::Connection> connection, int32_t user_id,
                              int32_t account_id) {
  ClearError();
  connection_ = std::move(connection);
  box_id_ = 1;
  user_id_ = user_id;
  korvane_id_ = boss.KorvaneId();
  path_atcmts_ = boss.PathAtcmts();
  url_atcmts_ = boss.URLAtcmts();
  path_messages_ = boss.PathMessages();
  path_log_ = boss.PathLog();
  path_backgr_dwnloader_ = boss.PathBackgrDwnloader();
  debug_mode_ = boss.DebugMode();
  is_english_date_ = boss.IsEnglishDate();
  if (connection_) connection_->MonthFirst(!DayFirst());
  mail_list_page_size_ = 25;
  if (account_id != kNoAccount) {
    LoadAccount(account_id);
  } else {
    account_id_ = kNoAccount;
    if (server_timeout_ == -1) server_timeout_ = boss.ServerTimeout();
  }
  return NoError();
}

bool MailUser::LoadAccount(int32_t account_id) {
  ClearError();
  const std::string user = std::to_string(user_id_);
  const std::string statement = account_id == kDefaultAccount
                                    ? "SELECT TOP 1 * FROM Query1_account WHERE id_utente=" + user +
                                          " AND Id_account_email_utenti=Account_default"
                                    : "SELECT * FROM Query1_account WHERE id_utente=" + user +
                                          " AND Id_account_email=" + std::to_string(account_id);
  try {
    if (!connection_) throw DatabaseError(DatabaseError::Kind::kOther, "there is no connection");
    const auto rows = connection_->Open(statement);
    if (rows->Eof()) {
      SetError(error::AccountNotFound);
    } else {
      ReadAccountRow(*rows);
    }
    rows->Close();
  } catch (const DatabaseError& fault) {
    TakeDatabaseFault("MailUser.LoadAccount", fault);
  }
  return NoError();
}

bool MailUser::OpenUserAccounts() {
  ClearError();
  try {
    if (!connection_) throw DatabaseError(DatabaseError::Kind::kOther, "there is no connection");
    accounts_ = connection_->Open("SELECT * FROM Query1_account WHERE id_utente=" +
                                  std::to_string(user_id_));
    if (accounts_->Eof()) {
      SetError(error::NoAccounts);
    } else {
      ReadAccountRow(*accounts_);
    }
  } catch (const DatabaseError& fault) {
    TakeDatabaseFault("MailUser.OpenUserAccounts", fault);
  }
  return NoError();
}

bool MailUser::NextAccount() {
  ClearError();
  try {
    if (!accounts_ || !accounts_->IsOpen()) {
      SetError(error::AccountsNotOpen);
    } else if (accounts_->Eof()) {
      SetError(error::AccountsAtEnd);
    } else {
      accounts_->MoveNext();
      if (accounts_->Eof()) {
        SetError(error::LastAccountReached);
      } else {
        ReadAccountRow(*accounts_);
      }
    }
  } catch (const DatabaseError& fault) {
    TakeDatabaseFault("MailUser.NextAccount", fault);
  }
  return NoError();
}

bool MailUser::CloseUserAccounts() {
  ClearError();
  try {
    if (accounts_ && accounts_->IsOpen()) accounts_->Close();
  } catch (const DatabaseError& fault) {
    TakeDatabaseFault("MailUser.CloseUserAccounts", fault);
  }
  accounts_.reset();
  return NoError();
}

MailUser::AccountState MailUser::SaveAccount() const {
  return {account_id_, mail_server_, server_port_, server_timeout_,
          username_,   password_,    has_password_};
}

void MailUser::RestoreAccount(AccountState state) {
  account_id_ = state.account_id;
  mail_server_ = std::move(state.mail_server);
  server_port_ = state.server_port;
  server_timeout_ = state.server_timeout;
  username_ = std::move(state.username);
  password_ = std::move(state.password);
  has_password_ = state.has_password;
}

void MailUser::ReadAccountRow(const Recordset& row) {
  account_id_ = row.Field("Id_account_email").ToInt32().value_or(kNoAccount);
  mail_server_ = row.Field("Nome_server").ToText();
  server_port_ = row.Field("Porta_server").ToInt32().value_or(110);
  server_timeout_ = row.Field("Time_out_server").ToInt32().value_or(0);
  username_ = row.Field("Username_server").ToText();
  const Any kind = row.Field("caso");
  const auto number = kind.ToInt32();
  if (kind.IsNull() || kind.IsEmpty() || number == 1 || number == 2) {
    // These accounts keep no password in the database; what another account's row held must not
    // be sent to this server.
    password_ = page_password_;
    has_password_ = page_password_set_;
  } else {
    password_ = row.Field("Password_server").ToText();
    has_password_ = true;
  }
}

void MailUser::TakeDatabaseFault(std::string_view place, const DatabaseError& fault) {
  SetError(error::DatabaseFault);
  WriteDebugLog(debug_mode_, path_log_, place, fault.what());
}

}  // namespace korvane
