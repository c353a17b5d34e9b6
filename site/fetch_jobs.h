// "Get mail" in the background: one run a user at a time, with progress that any page can ask for,
// so it survives a reload.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "facade/account_directory.h"
#include "mail_access.h"
#include "pop3/selection_progress.h"

namespace korvane::site {

struct FetchRequest {
  int32_t account = -10;  ///< -100 all accounts, -10 the default one, or one by its number
  bool header_only = true;
  bool delete_on_server = false;
  std::map<int32_t, std::string> passwords;  ///< of accounts that keep none, for this run only
};

/// The user's accounts that a request means.
std::vector<AccountEntry> AccountsOf(Connection& database, int32_t user, int32_t account);

class FetchJobs {
 public:
  explicit FetchJobs(MailAccess& mail) : mail_(mail) {}
  ~FetchJobs();

  struct Progress {
    bool running = false;
    bool just_ended = false;  ///< told once
    SelectionProgress selection;
    std::optional<double> seconds_left;
    int64_t stored = 0;   ///< new messages, counted when an account is done
    std::string account;  ///< the one that is looked at, where there are several
    std::string fault;    ///< "" when all went well
  };

  /// False when one is running already.
  bool Start(int32_t user, const FetchRequest& request);
  Progress Look(int32_t user) const;
  /// The same; an end is told to this caller and to no later one.
  Progress TakeEnd(int32_t user);

 private:
  struct Job;
  void FetchOne(Job& job, Mail& mail, int32_t user, const AccountEntry& account,
                const FetchRequest& request);
  void Run(const std::shared_ptr<Job>& job, int32_t user, const FetchRequest& request);

  MailAccess& mail_;
  mutable std::mutex mutex_;
  std::map<int32_t, std::shared_ptr<Job>> jobs_;
};

}  // namespace korvane::site
