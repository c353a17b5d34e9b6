#include "support/store_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "frame/schema.h"
#include "frame/sql_text.h"

namespace korvane::test {

namespace {

namespace fs = std::filesystem;

std::string SettingsText(const std::string& folder, const std::string& url, bool debug) {
  return "Windows Registry Editor Version 5.00\r\n\r\n"
         "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel_IS_App\\KorvaneMulti\\Korvane1\\KorvaneDll]\r\n"
         "\"PathAtcmts\"=\"" +
         folder +
         "/attachments\"\r\n"
         "\"PathAtcmtsInvio\"=\"" +
         folder +
         "/attachments\"\r\n"
         "\"URLAtcmts\"=\"http://localhost/attachments\"\r\n"
         "\"PathMessages\"=\"" +
         folder +
         "/messages\"\r\n"
         "\"PathLog\"=\"" +
         folder +
         "/log\"\r\n"
         "\"PathBackgrDownloader\"=\"" +
         folder +
         "\"\r\n"
         "\"DbConnectionString\"=\"" +
         url +
         "\"\r\n"
         "\"ServerTimeout\"=dword:00002710\r\n"
         "\"DebugMode\"=dword:0000000" +
         (debug ? "1" : "0") + "\r\n";
}

std::string Number(int64_t value) { return std::to_string(value); }

}  // namespace

std::string LocalHost() {
  const char* scheme = std::getenv("KORVANE_TEST_SCHEME");
  return (scheme ? std::string(scheme) : "") + "127.0.0.1";
}

Store::Store(std::string url)
    : url_(url.empty() ? "sqlite://" + folder_ / "mail.db" : std::move(url)) {
  for (const char* name : {"messages", "attachments", "log"}) fs::create_directory(folder_ / name);
  SetDebugMode(false);
  ::setenv("KORVANE_REGISTRY", (folder_ / "registry.reg").c_str(), 1);
  CreateSchema(url_);
  connection_ = Connect();
}

void Store::SetDebugMode(bool on) {
  std::ofstream(folder_ / "registry.reg", std::ios::binary)
      << SettingsText(folder_.path(), url_, on);
}

int32_t Store::Add(const Account& account) {
  const int32_t id = ++accounts_ + 4;
  const std::string user = Number(account.user);
  const auto text = [](const std::string& value) { return "'" + DoubleQuotes(value) + "'"; };
  db().Execute(
      "INSERT INTO account_email (Id_account_email, Nome_server, Porta_server, "
      "Time_out_server, Username_server, Password_server, caso) VALUES (" +
      Number(id) + "," + text(account.host) + "," + Number(account.port) + "," +
      Number(account.timeout) + "," + text(account.name) + "," + text(account.password) + "," +
      (account.kind.IsNull() ? "NULL" : account.kind.ToText()) + ")");
  db().Execute(
      "INSERT INTO account_email_utenti (Id_account_email_utenti, id_utente, "
      "Id_account_email) VALUES (" +
      Number(id + 100) + "," + user + "," + Number(id) + ")");
  if (CountOf("SELECT COUNT(*) FROM utenti WHERE id_utente=" + user) == 0) {
    db().Execute("INSERT INTO utenti (id_utente) VALUES (" + user + ")");
  }
  if (account.is_default) {
    db().Execute("UPDATE utenti SET Account_default=" + Number(id + 100) +
                 " WHERE id_utente=" + user);
  }
  return id;
}

void Store::ChangeAccount(int32_t id, const std::string& column, const Any& value) {
  const auto row = db().Open("SELECT * FROM account_email WHERE Id_account_email=" + Number(id));
  row->SetField(column, value);
  row->Update();
}

std::shared_ptr<BossObject> Store::Boss() const {
  auto boss = std::make_shared<BossObject>();
  if (!boss->Init(1)) throw std::runtime_error("the settings of the test cannot be read");
  return boss;
}

std::string Store::MessageFile(int32_t user) const {
  return MessageFolder() + "/" + Number(user) + "_Messaggi.dat";
}

int64_t Store::MessageFileSize(int32_t user) const {
  std::error_code fault;
  const auto size = fs::file_size(MessageFile(user), fault);
  return fault ? -1 : static_cast<int64_t>(size);
}

std::vector<std::string> Store::AttachmentFiles() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(AttachmentFolder())) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<Store::Row> Store::Rows(int32_t user) {
  std::vector<Row> rows;
  const auto row =
      db().Execute("SELECT * FROM mail WHERE id_utente=" + Number(user) + " ORDER BY id_mail");
  const auto number = [&](const char* column) {
    return row->Field(column).ToInt32().value_or(-999);
  };
  const auto flag = [&](const char* column) { return row->Field(column).ToBool().value_or(false); };
  for (; !row->Eof(); row->MoveNext()) {
    rows.push_back({number("id_mail"), number("id_server"), number("id_cartella"),
                    number("IdSulServer"), number("body_scaricato"), number("dimensione"),
                    row->Field("oggetto").ToText(), row->Field("campo_received").ToText(),
                    row->Field("campo_MessageId").ToText(), flag("Letto"), flag("Cancellata"),
                    flag("DwnldCorrettoFAQ"), flag("allegati")});
  }
  return rows;
}

Store::Row Store::RowOf(int32_t id) {
  const int64_t user = CountOf("SELECT id_utente FROM mail WHERE id_mail=" + Number(id));
  for (const Row& row : Rows(static_cast<int32_t>(user))) {
    if (row.id == id) return row;
  }
  throw std::runtime_error("no row " + Number(id));
}

void Store::Change(int32_t id, const std::string& column, const Any& value) {
  const auto row = db().Open("SELECT * FROM mail WHERE id_mail=" + Number(id));
  row->SetField(column, value);
  row->Update();
}

std::vector<std::string> Store::Subjects(int32_t user) {
  std::vector<std::string> subjects;
  for (const Row& row : Rows(user)) subjects.push_back(row.subject);
  return subjects;
}

std::optional<Store::Bookkeeping> Store::Kept(int32_t account, int32_t user) {
  const auto row =
      db().Execute("SELECT * FROM ultimi_scaricamenti WHERE id_utente=" + Number(user) +
                   " AND id_server=" + Number(account));
  if (row->Eof()) return std::nullopt;
  Bookkeeping kept{row->Field("Data").ToText(), row->Field("Error").ToBool().value_or(false)};
  row->MoveNext();
  if (!row->Eof()) throw std::runtime_error("two rows of one account");
  return kept;
}

void Store::Keep(int32_t account, const Bookkeeping& kept, int32_t user) {
  const auto row = db().Open("SELECT * FROM ultimi_scaricamenti WHERE id_utente=" + Number(user) +
                             " AND id_server=" + Number(account));
  row->SetField("Data", kept.time);
  row->SetField("Error", kept.error);
  row->Update();
}

std::optional<int64_t> Store::DeadBytes(int32_t user) {
  const auto row =
      db().Execute("SELECT dim_msg_canc_file FROM Pulizia WHERE id_utente=" + Number(user));
  if (row->Eof()) return std::nullopt;
  return row->Field("dim_msg_canc_file").ToInt64();
}

int64_t Store::CountOf(const std::string& statement) {
  return db().Execute(statement)->FieldAt(0).ToInt64().value_or(-1);
}

}  // namespace korvane::test
