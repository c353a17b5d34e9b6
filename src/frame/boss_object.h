// BossObject: the settings of one installation. A page creates it, calls Init with the
// installation's number and hands it to WebInterface::Init.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "any.h"
#include "database.h"
#include "error_state.h"

namespace korvane {

class BossObject : public Object, public ErrorState {
 public:
  int32_t KorvaneId() const { return korvane_id_; }
  const std::string& PathAtcmts() const { return path_atcmts_; }
  const std::string& URLAtcmts() const { return url_atcmts_; }
  const std::string& PathMessages() const { return path_messages_; }
  const std::string& PathAtcmtsInvio() const { return path_atcmts_invio_; }
  const std::string& PathLog() const { return path_log_; }
  /// Spelled so; the setting behind it is "PathBackgrDownloader".
  const std::string& PathBackgrDwnloader() const { return path_backgr_dwnloader_; }
  const std::string& DbConnectionString() const { return db_connection_string_; }
  int32_t DebugMode() const { return debug_mode_; }
  /// Network time-out in milliseconds.
  int32_t ServerTimeout() const { return server_timeout_; }
  /// 1 when the database writes dates month first, -1 when day first, 0 before Init2.
  int32_t IsEnglishDate() const { return is_english_date_; }

  /// Reads the settings of installation `lKorvaneId` from the registry. Errors 1043 to 1048. A
  /// number of 0 or less reads nothing and reports nothing.
  bool Init(int32_t lKorvaneId);

  /// Asks the database which way round it writes dates, by its prepared row in "testdata".
  bool Init2(const std::shared_ptr<Connection>& cnnDataBase);

  /// Internal: initialises without the registry, with empty paths and a time-out of 7,000.
  bool InitDefaults(int32_t lKorvaneId);

  /// Internal: true after a successful Init or InitDefaults.
  bool IsInitialised() const { return initialised_; }

 private:
  void ReadSettings();
  void ResetSettings();

  int32_t korvane_id_ = 0;
  bool initialised_ = false;
  std::string path_atcmts_;
  std::string path_atcmts_invio_;
  std::string url_atcmts_;
  std::string path_messages_;
  std::string path_log_;
  std::string path_backgr_dwnloader_;
  std::string db_connection_string_;
  int32_t server_timeout_ = 0;
  int32_t debug_mode_ = 0;
  int32_t is_english_date_ = 0;
};

}  // namespace korvane
