#include "cli/accounts.h"

#include <algorithm>

#include "cli/failure.h"
#include "frame/sql_text.h"

namespace korvane::cli {
namespace {

// Kinds of account: where the password is.
constexpr int32_t kPasswordStored = 0;
constexpr int32_t kPasswordAskedFor = 1;

constexpr int32_t kPop3sPort = 995;

std::string Decimal(int64_t number) { return std::to_string(number); }

int32_t Cell(const Recordset& row, const char* name) {
  return row.Field(name).ToInt32().value_or(0);
}

/// A line break in a name or a password would be a second command.
void RefuseControls(const std::string& text, const char* what) {
  for (const unsigned char c : text) {
    if (c < 0x20 || c == 0x7F) {
      throw Failure(Exit::kUsage, std::string("the ") + what + " holds a control character");
    }
  }
}

void Check(Connection& connection, const AccountChanges& changes) {
  if (!connection.HasTable("account_email") || !connection.HasTable("account_email_utenti")) {
    throw Failure(
        Exit::kDatabase,
        "this database keeps its accounts in tables of the site's own: change them there");
  }
  RefuseControls(changes.server.value_or(""), "server");
  RefuseControls(changes.username.value_or(""), "user name");
  RefuseControls(changes.password.value_or(""), "password");
}

/// The greatest of some identifiers plus one.
int32_t Above(Connection& connection, const std::vector<std::string>& maxima) {
  int32_t next = 1;
  for (const std::string& statement : maxima) {
    next = std::max(next, NextIdentifier(connection, statement));
  }
  return next;
}

void MakeDefault(Connection& connection, int32_t user, int32_t link) {
  const auto row = connection.Open("SELECT * FROM utenti WHERE id_utente=" + Decimal(user));
  if (row->Eof()) {
    row->AddNew();
    row->SetField("id_utente", user);
  }
  row->SetField("Account_default", link);
  row->Update();
  row->Close();
}

void Fill(Recordset& row, const AccountChanges& changes) {
  if (changes.server) row.SetField("Nome_server", *changes.server);
  if (changes.port) row.SetField("Porta_server", *changes.port);
  if (changes.timeout) row.SetField("Time_out_server", *changes.timeout);
  if (changes.username) row.SetField("Username_server", *changes.username);
  if (changes.password) {
    row.SetField("Password_server", *changes.password);
    row.SetField("caso", kPasswordStored);
  } else if (changes.forget_password) {
    row.SetField("Password_server", nullptr);
    row.SetField("caso", kPasswordAskedFor);
  }
}

int32_t LinkOf(Connection& connection, int32_t user, int32_t id) {
  return FirstValue(connection,
                    "SELECT Id_account_email_utenti FROM account_email_utenti WHERE "
                    "id_utente=" +
                        Decimal(user) + " AND Id_account_email=" + Decimal(id))
      .ToInt32()
      .value_or(0);
}

}  // namespace

bool Account::Tls() const {
  if (server.starts_with("pop3://")) return false;
  return server.starts_with("pop3s") || port == kPop3sPort;
}

std::string Account::Name() const {
  return username + " at " + server + " port " + std::to_string(port);
}

std::vector<Account> ListAccounts(Connection& connection, int32_t user) {
  std::vector<Account> accounts;
  const auto rows =
      connection.Execute("SELECT * FROM Query1_account WHERE id_utente=" + Decimal(user));
  for (; !rows->Eof(); rows->MoveNext()) {
    Account account;
    account.id = Cell(*rows, "Id_account_email");
    account.is_default = Cell(*rows, "Id_account_email_utenti") == Cell(*rows, "Account_default");
    account.server = rows->Field("Nome_server").ToText();
    account.port = Cell(*rows, "Porta_server");
    account.timeout = Cell(*rows, "Time_out_server");
    account.username = rows->Field("Username_server").ToText();
    const auto kind = rows->Field("caso").ToInt32();
    account.password_stored = kind && *kind != 1 && *kind != 2;
    accounts.push_back(std::move(account));
  }
  rows->Close();
  std::sort(accounts.begin(), accounts.end(),
            [](const Account& a, const Account& b) { return a.id < b.id; });
  return accounts;
}

Account FindAccount(Connection& connection, int32_t user, int32_t id) {
  for (Account& account : ListAccounts(connection, user)) {
    if (account.id == id) return std::move(account);
  }
  throw Failure(Exit::kAccount, "user " + Decimal(user) + " has no account " + Decimal(id) +
                                    "; korvane account list shows them");
}

int32_t AddAccount(Connection& connection, int32_t user, const AccountChanges& account) {
  Check(connection, account);
  const bool first = ListAccounts(connection, user).empty();
  Transaction transaction(connection, Transaction::Kind::kAllocating);
  // A number that messages still carry would make them this account's.
  const int32_t id = Above(connection, {"SELECT MAX(Id_account_email) FROM account_email",
                                        "SELECT MAX(id_server) FROM mail",
                                        "SELECT MAX(id_server) FROM ultimi_scaricamenti"});
  const int32_t link =
      Above(connection, {"SELECT MAX(Id_account_email_utenti) FROM account_email_utenti"});
  auto row = connection.Open("account_email");
  row->AddNew();
  row->SetField("Id_account_email", id);
  Fill(*row, account);
  row->Update();
  row->Close();
  row = connection.Open("account_email_utenti");
  row->AddNew();
  row->SetField("Id_account_email_utenti", link);
  row->SetField("id_utente", user);
  row->SetField("Id_account_email", id);
  row->Update();
  row->Close();
  if (first || account.make_default) MakeDefault(connection, user, link);
  transaction.Commit();
  return id;
}

void ChangeAccount(Connection& connection, int32_t user, int32_t id,
                   const AccountChanges& changes) {
  Check(connection, changes);
  FindAccount(connection, user, id);
  Transaction transaction(connection);
  const auto row =
      connection.Open("SELECT * FROM account_email WHERE Id_account_email=" + Decimal(id));
  Fill(*row, changes);
  row->Update();
  row->Close();
  if (changes.make_default) MakeDefault(connection, user, LinkOf(connection, user, id));
  transaction.Commit();
}

void RemoveAccount(Connection& connection, int32_t user, int32_t id) {
  Check(connection, {});
  const bool was_default = FindAccount(connection, user, id).is_default;
  Transaction transaction(connection);
  const std::string of_user = " WHERE id_utente=" + Decimal(user);
  connection.Execute("UPDATE utenti SET Account_default=NULL" + of_user +
                     " AND Account_default=" + Decimal(LinkOf(connection, user, id)));
  connection.Execute("DELETE FROM account_email_utenti" + of_user +
                     " AND Id_account_email=" + Decimal(id));
  connection.Execute("DELETE FROM ultimi_scaricamenti" + of_user + " AND id_server=" + Decimal(id));
  const Any others =
      FirstValue(connection,
                 "SELECT COUNT(*) FROM account_email_utenti WHERE Id_account_email=" + Decimal(id));
  if (others.ToInt32() == 0) {
    connection.Execute("DELETE FROM account_email WHERE Id_account_email=" + Decimal(id));
  }
  if (was_default) {
    const Any next = FirstValue(
        connection, "SELECT MIN(Id_account_email_utenti) FROM account_email_utenti" + of_user);
    if (const auto link = next.ToInt32(); link && !next.IsNull()) {
      MakeDefault(connection, user, *link);
    }
  }
  transaction.Commit();
}

}  // namespace korvane::cli
