#include "fetch_jobs.h"

#include <exception>
#include <utility>

#include "box_rows.h"
#include "pop3/mail_server.h"

namespace korvane::site {

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

void FetchJobs::Run(const std::shared_ptr<Job>& job, int32_t user, FetchRequest request) {
  std::string fault;
  try {
    const auto mail = mail_.Open(user);
    job->With([&](Progress& progress) {
      progress.stored_before = progress.stored = CountRows(*mail->database, user, kInbox);
    });
    mail->web.Server()->OnProgress([&](int32_t looked_at, int32_t total, int32_t taken) {
      job->With([&](Progress& progress) {
        progress.looked_at = looked_at;
        progress.total = total;
        progress.taken = taken;
      });
    });
    // A page size of 1: the listing that comes with it is not shown.
    mail->web.MailListPageSize(1);
    Any pages;
    Any mails;
    // Nothing of this account is stored: there is nothing to look up.
    const bool first =
        request.account > 0 && CountAccountRows(*mail->database, user, request.account) == 0;
    mail->web.GetListMessagesInBox(kInbox, request.account, request.header_only,
                                   request.delete_on_server, "", first, EMailOrder::ORDER_DATA,
                                   EMailOrderDirection::ORDER_DESC, 1, &pages, &mails);
    if (mail->web.GetLastError() != 0) {
      fault = FaultText(mail->web.GetLastError(), mail->web.GetLastErrorDesc());
    }
    job->With([&](Progress& progress) {
      progress.stored = static_cast<int32_t>(mails.ToInt32().value_or(0));
    });
  } catch (const std::exception& error) {
    fault = error.what();
  }
  job->With([&](Progress& progress) {
    progress.fault = std::move(fault);
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
