#include "site_users.h"

#include <sodium.h>

#include <stdexcept>

#include "frame/sql_text.h"

namespace korvane::site {

namespace {

std::string Hash(const std::string& password) {
  char hash[crypto_pwhash_STRBYTES];
  if (crypto_pwhash_str(hash, password.data(), password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                        crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0) {
    throw std::runtime_error("there is not enough memory to hash a password");
  }
  return hash;
}

bool Fits(const std::string& hash, const std::string& password) {
  return crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
}

}  // namespace

void SiteUsers::CreateTable() {
  if (database_.HasTable("site_users")) return;
  database_.Execute(
      "CREATE TABLE site_users (id_utente INTEGER NOT NULL PRIMARY KEY, "
      "name VARCHAR(190) NOT NULL UNIQUE, password_hash VARCHAR(200) NOT NULL)");
}

void SiteUsers::Set(int32_t id, const std::string& name, const std::string& password) {
  auto row = database_.Open("SELECT * FROM site_users WHERE id_utente=" + std::to_string(id));
  if (row->Eof()) {
    row->Close();
    row = database_.Open("site_users");
    row->AddNew();
    row->SetField("id_utente", id);
  }
  row->SetField("name", name);
  row->SetField("password_hash", Hash(password));
  row->Update();
  row->Close();
}

std::optional<int32_t> SiteUsers::Check(const std::string& name, const std::string& password) {
  const auto row = database_.Execute(
      "SELECT id_utente, password_hash FROM site_users WHERE name='" + DoubleQuotes(name) + "'");
  if (row->Eof()) {
    // The work of a check all the same, so that time does not tell which names exist.
    static const std::string nobody = Hash("nobody has this password");
    Fits(nobody, password);
    return std::nullopt;
  }
  if (!Fits(row->Field("password_hash").ToText(), password)) return std::nullopt;
  return row->Field("id_utente").ToInt32();
}

}  // namespace korvane::site
