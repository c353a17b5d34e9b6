#include "facade/account_directory.h"

#include <algorithm>

#include "frame/retried_transaction.h"
#include "frame/sql_text.h"

namespace korvane {

namespace {

/// Kinds of account, the column "caso": 1 takes the password from the page.
constexpr int32_t kPasswordKept = 0;
constexpr int32_t kPasswordFromPage = 1;

void Fill(Recordset& row, const AccountEntry& account, const std::optional<std::string>& password) {
  row.SetField("Nome_server", account.server);
  row.SetField("Porta_server", account.port);
  row.SetField("Time_out_server", account.timeout);
  row.SetField("Username_server", account.username);
  row.SetField("caso", account.keeps_password ? kPasswordKept : kPasswordFromPage);
  if (!account.keeps_password) {
    row.SetField("Password_server", Any(nullptr));
  } else if (password) {
    row.SetField("Password_server", *password);
  }
}

std::string LinkOf(int32_t user, int32_t account) {
  return "SELECT * FROM account_email_utenti WHERE id_utente=" + std::to_string(user) +
         " AND Id_account_email=" + std::to_string(account);
}

}  // namespace

std::vector<AccountEntry> AccountDirectory::List(int32_t user) {
  std::vector<AccountEntry> accounts;
  const auto number = [](const Any& cell) { return cell.ToInt32().value_or(0); };
  // Every page of a site's inbox asks this: the columns that are needed, by their position.
  for (auto row = database_.Execute(
           "SELECT Id_account_email, Nome_server, Porta_server, Time_out_server, Username_server,"
           " caso, Account_default, Id_account_email_utenti FROM Query1_account WHERE id_utente=" +
           std::to_string(user));
       !row->Eof(); row->MoveNext()) {
    AccountEntry& account = accounts.emplace_back();
    account.id = number(row->FieldAt(0));
    account.server = row->FieldAt(1).ToText();
    account.port = number(row->FieldAt(2));
    account.timeout = number(row->FieldAt(3));
    account.username = row->FieldAt(4).ToText();
    const Any kind = row->FieldAt(5);
    account.keeps_password = !kind.IsNull() && number(kind) != 1 && number(kind) != 2;
    const Any chosen = row->FieldAt(6);
    account.is_default = !chosen.IsNull() && number(chosen) == number(row->FieldAt(7));
  }
  std::ranges::sort(accounts, {}, &AccountEntry::id);
  return accounts;
}

std::optional<AccountEntry> AccountDirectory::Find(int32_t user, int32_t account) {
  for (AccountEntry& one : List(user)) {
    if (one.id == account) return std::move(one);
  }
  return std::nullopt;
}

int32_t AccountDirectory::Add(int32_t user, const AccountEntry& account,
                              const std::string& password) {
  int32_t id = 0;
  RetriedTransaction(database_, Transaction::Kind::kAllocating,
                     [&] { id = AddOnce(user, account, password); });
  return id;
}

int32_t AccountDirectory::AddOnce(int32_t user, const AccountEntry& account,
                                  const std::string& password) {
  const bool first = List(user).empty();
  // A number that messages of the user's removed accounts still carry would make them this
  // account's. Messages saved here carry -1. Other users' rows do not matter, and reading them all
  // would take long.
  const std::string of_user = " WHERE id_utente=" + std::to_string(user) + " AND id_server>0";
  int32_t id = NextIdentifier(database_, "SELECT MAX(Id_account_email) FROM account_email");
  for (const char* used :
       {"SELECT MAX(id_server) FROM mail", "SELECT MAX(id_server) FROM ultimi_scaricamenti"}) {
    id = std::max(id, NextIdentifier(database_, used + of_user));
  }
  const int32_t link =
      NextIdentifier(database_, "SELECT MAX(Id_account_email_utenti) FROM account_email_utenti");
  auto row = database_.Open("account_email");
  row->AddNew();
  row->SetField("Id_account_email", id);
  Fill(*row, account, password);
  row->Update();
  row->Close();
  row = database_.Open("account_email_utenti");
  row->AddNew();
  row->SetField("Id_account_email_utenti", link);
  row->SetField("id_utente", user);
  row->SetField("Id_account_email", id);
  row->Update();
  row->Close();
  if (first || account.is_default) SetDefault(user, link);
  return id;
}

bool AccountDirectory::Change(int32_t user, const AccountEntry& account,
                              const std::optional<std::string>& password) {
  bool done = false;
  RetriedTransaction(
      database_, Transaction::Kind::kPlain, [&] { done = ChangeOnce(user, account, password); },
      MadeAgain);
  return done;
}

bool AccountDirectory::ChangeOnce(int32_t user, const AccountEntry& account,
                                  const std::optional<std::string>& password) {
  if (database_.Execute(LinkOf(user, account.id))->Eof()) return false;
  auto row = database_.Open("SELECT * FROM account_email WHERE Id_account_email=" +
                            std::to_string(account.id));
  if (row->Eof()) return false;
  Fill(*row, account, password);
  row->Update();
  row->Close();
  return true;
}

bool AccountDirectory::Remove(int32_t user, int32_t account) {
  bool done = false;
  RetriedTransaction(
      database_, Transaction::Kind::kPlain, [&] { done = RemoveOnce(user, account); },
      [&] { return done && database_.Execute(LinkOf(user, account))->Eof(); });
  return done;
}

bool AccountDirectory::RemoveOnce(int32_t user, int32_t account) {
  const auto link = database_.Execute(LinkOf(user, account));
  if (link->Eof()) return false;
  const std::string number =
      std::to_string(link->Field("Id_account_email_utenti").ToInt32().value_or(0));
  const std::string of_user = " WHERE id_utente=" + std::to_string(user);
  const Any chosen = FirstValue(database_, "SELECT Account_default FROM utenti" + of_user);
  const bool was_default = !chosen.IsNull() && chosen.ToText() == number;
  database_.Execute("UPDATE utenti SET Account_default=NULL WHERE Account_default=" + number);
  database_.Execute("DELETE FROM account_email_utenti WHERE Id_account_email_utenti=" + number);
  database_.Execute("DELETE FROM ultimi_scaricamenti" + of_user +
                    " AND id_server=" + std::to_string(account));
  const auto shared =
      database_.Execute("SELECT COUNT(*) AS n FROM account_email_utenti WHERE Id_account_email=" +
                        std::to_string(account));
  if (shared->Field("n").ToInt64().value_or(0) == 0) {
    database_.Execute("DELETE FROM account_email WHERE Id_account_email=" +
                      std::to_string(account));
  }
  const Any next = FirstValue(
      database_, "SELECT MIN(Id_account_email_utenti) FROM account_email_utenti" + of_user);
  if (was_default && !next.IsNull()) SetDefault(user, next.ToInt32().value_or(0));
  return true;
}

bool AccountDirectory::MakeDefault(int32_t user, int32_t account) {
  bool done = false;
  RetriedTransaction(
      database_, Transaction::Kind::kPlain,
      [&] {
        const auto link = database_.Execute(LinkOf(user, account));
        done = !link->Eof();
        if (done) SetDefault(user, link->Field("Id_account_email_utenti").ToInt32().value_or(0));
      },
      MadeAgain);
  return done;
}

void AccountDirectory::SetDefault(int32_t user, int32_t link) {
  auto row = database_.Open("SELECT * FROM utenti WHERE id_utente=" + std::to_string(user));
  if (row->Eof()) {
    row->Close();
    row = database_.Open("utenti");
    row->AddNew();
    row->SetField("id_utente", user);
  }
  row->SetField("Account_default", link);
  row->Update();
  row->Close();
}

}  // namespace korvane
