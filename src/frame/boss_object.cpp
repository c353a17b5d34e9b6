#include "frame/boss_object.h"

#include "frame/debug_log.h"
#include "frame/error_numbers.h"
#include "frame/registry.h"
#include "frame/retried_transaction.h"

namespace korvane {

namespace {

// The day of month with which a date text begins, or which stands behind the month.
int32_t LeadingNumber(const std::string& text) {
  int32_t number = 0;
  for (size_t i = 0; i < 2 && i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    number = number * 10 + (text[i] - '0');
  }
  return number;
}

}  // namespace

bool BossObject::Init(int32_t lKorvaneId) {
  ClearError();
  if (lKorvaneId > 0) {
    korvane_id_ = lKorvaneId;
    ReadSettings();
    if (NoError()) initialised_ = true;
  }
  return initialised_;
}

bool BossObject::Init2(const std::shared_ptr<Connection>& cnnDataBase) {
  ClearError();
  static const std::string kStatement = "select * from testdata where idtestdata = 1";
  static const std::string kWritten = "03/04/2002";
  Attempts attempts(kTransactionPatience, kTransactionAttempts);
  bool again = false;
  do {
    try {
      if (!cnnDataBase) throw DatabaseError(DatabaseError::Kind::kOther, "there is no connection");
      auto row = cnnDataBase->Open(kStatement);
      row->SetField("data1", kWritten);
      row->Update();
      row->Close();

      row = cnnDataBase->Open(kStatement);
      is_english_date_ = row->Field("data3").ToText().substr(0, 2) == "22" ? -1 : 1;
      // The day of data1, read back, would give a second answer. It is not taken: a database that
      // guesses the order of an ambiguous date gives a wrong one there, and the 22nd cannot be a
      // month.
      const int32_t day = LeadingNumber(row->Field("data1").ToText());
      [[maybe_unused]] const int32_t second_answer = day == 4 ? 1 : day == 3 ? -1 : 0;
      row->Close();
      again = false;
    } catch (const DatabaseError& fault) {
      // Every page asks: another one may have written the row since it was read here.
      again = fault.Retryable() && attempts.Next(fault.Waited());
      if (again) continue;
      SetError(error::DatabaseFault);
      WriteDebugLog(debug_mode_, path_log_, "BossObject.Init2", fault.what());
    }
  } while (again);
  return NoError();
}

bool BossObject::InitDefaults(int32_t lKorvaneId) {
  ClearError();
  korvane_id_ = lKorvaneId;
  ResetSettings();
  initialised_ = true;
  return true;
}

void BossObject::ReadSettings() {
  struct TextSetting {
    const char* name;
    std::string BossObject::*field;
    int32_t error;
  };
  // The order is that of the installation program; its error numbers do not follow it.
  static constexpr TextSetting kTexts[] = {
      {"PathAtcmts", &BossObject::path_atcmts_, error::PathAtcmtsNotRead},
      {"PathAtcmtsInvio", &BossObject::path_atcmts_invio_, error::PathAtcmtsInvioNotRead},
      {"URLAtcmts", &BossObject::url_atcmts_, error::UrlAtcmtsNotRead},
      {"PathMessages", &BossObject::path_messages_, error::PathOrConnectionNotRead},
      {"PathLog", &BossObject::path_log_, error::PathOrConnectionNotRead},
      {"PathBackgrDownloader", &BossObject::path_backgr_dwnloader_, error::PathOrConnectionNotRead},
      {"DbConnectionString", &BossObject::db_connection_string_, error::PathOrConnectionNotRead},
  };

  Registry registry;
  const std::string path = "SOFTWARE\\Tarsel_IS_App\\KorvaneMulti\\Korvane" +
                           std::to_string(korvane_id_) + "\\KorvaneDll";
  if (registry.OpenKey(Registry::kLocalMachine, path, Registry::kQueryValue) !=
      Registry::kSuccess) {
    SetError(error::SettingsKeyNotFound);
  }
  for (const TextSetting& setting : kTexts) {
    if (!NoError()) break;
    std::string value;
    if (registry.GetStringValue(setting.name, value) == Registry::kSuccess) {
      this->*setting.field = std::move(value);
    } else {
      SetError(setting.error);
    }
  }
  if (NoError()) {
    int32_t value = 0;
    if (registry.GetLongValue("ServerTimeout", value) == Registry::kSuccess) {
      server_timeout_ = value;
    } else {
      SetError(error::ServerTimeoutNotRead);
    }
  }
  if (NoError()) {
    int32_t value = 0;
    debug_mode_ = registry.GetLongValue("DebugMode", value) == Registry::kSuccess ? value : 0;
  }
  registry.CloseKey();
}

void BossObject::ResetSettings() {
  for (std::string* text : {&path_atcmts_, &path_atcmts_invio_, &url_atcmts_, &path_messages_,
                            &path_log_, &path_backgr_dwnloader_, &db_connection_string_}) {
    text->clear();
  }
  server_timeout_ = 7000;
  debug_mode_ = 0;
}

}  // namespace korvane
