// The component's objects for one request: made, used and dropped, as every page does it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "facade/web_interface.h"
#include "frame/boss_object.h"
#include "frame/database.h"

namespace korvane::site {

/// A page cannot be made; the text is for the person who reads it.
class PageFault : public std::runtime_error {
 public:
  PageFault(int http_status, const std::string& text)
      : std::runtime_error(text), status(http_status) {}
  int status;
};

/// What an error number means, with the server's reply where there is one.
std::string FaultText(int32_t number, const std::string& text);

struct Mail {
  std::shared_ptr<Connection> database;
  WebInterface web;
  bool has_account = false;  ///< an account of the user is loaded
};

class MailAccess {
 public:
  /// Reads the settings. Throws std::runtime_error that says what to do.
  explicit MailAccess(int32_t installation);

  const BossObject& settings() const { return *boss_; }
  /// This thread's connection.
  std::shared_ptr<Connection> Database();
  /// A facade for the user with an account loaded: the default one, or `account`.
  std::unique_ptr<Mail> Open(int32_t user, int32_t account = -100);

  /// Requests of one user that touch the store wait for each other; other users' do not.
  std::unique_lock<std::mutex> LockUser(int32_t user);

 private:
  int32_t installation_;
  std::shared_ptr<BossObject> boss_;  ///< as read when the site started
  std::mutex mutex_;
  std::map<int32_t, std::unique_ptr<std::mutex>> users_;
};

}  // namespace korvane::site
