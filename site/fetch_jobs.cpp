#include "fetch_jobs.h"

#include <chrono>
#include <exception>
#include <iostream>
#include <utility>
#include <vector>

#include "box_rows.h"
#include "engine/mail_engine.h"
#include "pop3/mail_server.h"

namespace korvane::site {

std::vector<AccountEntry> AccountsOf(Connection& database, int32_t user, int32_t account) {
  std::vector<AccountEntry> accounts = AccountDirectory(database).List(user);
  std::erase_if(accounts, [&](const AccountEntry& one) {
    if (account == -100) return false;
    return account == -10 ? !one.is_default : one.id != account;
  });
  return accounts;
}

struct FetchJobs::Job {
  std::mutex mutex;
  Progress progress;
  std::thread thread;

  template <class Change>
  void With(Change change) {
    const std::lock_guard lock(mutex);
    change(progress);
  }
};

FetchJobs::~FetchJobs() {
  for (auto& [user, job] : jobs_) {
    if (job->thread.joinable()) job->thread.join();
  }
}

bool FetchJobs::Start(int32_t user, const FetchRequest& request) {
  const std::lock_guard lock(mutex_);
  auto& place = jobs_[user];
  if (place) {
    bool running = false;
    place->With([&](Progress& progress) { running = progress.running; });
    if (running) return false;
    place->thread.join();
  }
  place = std::make_shared<Job>();
  place->progress.running = true;
  place->thread = std::thread([this, job = place, user, request] { Run(job, user, request); });
  return true;
}

void FetchJobs::FetchOne(Job& job, Mail& mail, int32_t user, const AccountEntry& account,
                         const FetchRequest& request) {
  const int64_t before = CountAccountRows(*mail.database, user, account.id);
  // Nothing of this account is stored: there is nothing to look up.
  const bool first = before == 0;
  if (!account.keeps_password) {
    const auto given = request.passwords.find(account.id);
    mail.web.Password(given == request.passwords.end() ? "" : given->second);
  }
  mail.web.GetListMessagesInBox(kInbox, account.id, request.header_only, request.delete_on_server,
                                "", first, EMailOrder::ORDER_DATA, EMailOrderDirection::ORDER_DESC,
                                1);
  const int32_t number = mail.web.GetLastError();
  const std::string text = mail.web.GetLastErrorDesc();
  const int64_t fresh = CountAccountRows(*mail.database, user, account.id) - before;
  job.With([&](Progress& progress) {
    progress.stored += fresh;
    if (number == 0) return;
    if (!progress.fault.empty()) progress.fault += ' ';
    progress.fault += account.username + " at " + account.server + ": " + FaultText(number, text);
  });
}

// Without the lock of the user's requests: the component locks the store itself while it writes,
// and the pages stay readable while a slow server answers.
void FetchJobs::Run(const std::shared_ptr<Job>& job, int32_t user, const FetchRequest& request) {
  std::string fault;
  try {
    const auto mail = mail_.Open(user);
    const auto accounts = AccountsOf(*mail->database, user, request.account);
    if (accounts.empty()) fault = "There is no such account.";
    mail->web.Engine()->SetOptions({.settle = true});
    auto begin = std::chrono::steady_clock::now();
    mail->web.Server()->OnProgress([&](const SelectionProgress& now) {
      const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
      job->With([&](Progress& progress) {
        progress.selection = now;
        progress.seconds_left = now.SecondsLeft(elapsed.count());
      });
    });
    // A page size of 1: the listing that comes with it is not shown.
    mail->web.MailListPageSize(1);
    for (const AccountEntry& account : accounts) {
      job->With([&](Progress& progress) {
        progress.account = account.username;
        progress.selection = {};
        progress.seconds_left.reset();
      });
      begin = std::chrono::steady_clock::now();
      FetchOne(*job, *mail, user, account, request);
    }
  } catch (const std::exception& error) {
    std::cerr << "fetch: " << error.what() << std::endl;
    fault = "The database or the message file cannot be used right now.";
  }
  job->With([&](Progress& progress) {
    if (!fault.empty()) progress.fault = std::move(fault);
    progress.running = false;
    progress.just_ended = true;
  });
}

FetchJobs::Progress FetchJobs::Look(int32_t user) const {
  const std::lock_guard lock(mutex_);
  const auto found = jobs_.find(user);
  if (found == jobs_.end()) return {};
  Progress seen;
  found->second->With([&](Progress& progress) { seen = progress; });
  return seen;
}

FetchJobs::Progress FetchJobs::TakeEnd(int32_t user) {
  const std::lock_guard lock(mutex_);
  const auto found = jobs_.find(user);
  if (found == jobs_.end()) return {};
  Progress seen;
  found->second->With([&](Progress& progress) {
    seen = progress;
    progress.just_ended = false;
  });
  return seen;
}

}  // namespace korvane::site
