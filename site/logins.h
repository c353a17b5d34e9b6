// Who is signed in: the one thing that is kept between requests. And the brake on guessing.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace korvane::site {

struct Login {
  int32_t user = 0;
  std::string name;
  std::string csrf;  ///< must come back with every form

  /// Sentences to show on the next page, and ids of messages whose deletion can be undone.
  struct Notice {
    std::string text;
    bool fault = false;
    std::string undo;
  };
  void Tell(Notice notice) {
    const std::lock_guard lock(mutex);
    notices.push_back(std::move(notice));
  }
  std::vector<Notice> TakeNotices() {
    const std::lock_guard lock(mutex);
    return std::exchange(notices, {});
  }

  std::mutex mutex;
  std::vector<Notice> notices;
  std::chrono::steady_clock::time_point last_used;
};

class Logins {
 public:
  /// The token for the cookie.
  std::string Open(int32_t user, const std::string& name);
  /// The login behind a cookie; null when there is none or it was idle for too long.
  std::shared_ptr<Login> Find(const std::string& token);
  void Close(const std::string& token);

  /// True when nobody may try now: too many failures for this name or from this address.
  bool IsBraked(const std::string& name, const std::string& address);
  void Failed(const std::string& name, const std::string& address);
  void Succeeded(const std::string& name);

 private:
  using Clock = std::chrono::steady_clock;
  struct Failures {
    int count = 0;
    Clock::time_point last;
  };
  bool TooMany(const std::string& key, int allowed);
  void Forget();

  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<Login>> logins_;
  std::map<std::string, Failures> failures_;
};

}  // namespace korvane::site
