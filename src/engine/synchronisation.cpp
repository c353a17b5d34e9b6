// Bringing the store up to date with the accounts.
#include <optional>
#include <string>

#include "engine/account_settling.h"
#include "engine/downloaded_store.h"
#include "engine/engine_session.h"
#include "engine/last_download.h"
#include "frame/debug_log.h"
#include "frame/error_numbers.h"
#include "frame/files.h"

namespace korvane {
namespace {

constexpr int32_t kAllAccounts = MailUser::kDefaultAccount;
constexpr int32_t kCurrentAccount = MailUser::kNoAccount;
constexpr int32_t kNoSynchronisation = -1;

/// Empty without a folder for message files: nothing is locked then.
std::string SyncLockPath(const MailUser& account) {
  if (account.PathMessages().empty()) return "";
  return JoinPath(account.PathMessages(), std::to_string(account.UserId()) + "_" +
                                              std::to_string(account.AccountId()) + "_sync.lock");
}

}  // namespace

void MailEngine::Synchronise(const SyncRequest& sync) {
  if (sync.server_id == kNoSynchronisation) return;
  if (sync.server_id == kCurrentAccount) return SyncAccount(sync);

  Remembered remembered(*this);
  if (sync.server_id == kAllAccounts) {
    if (!account_->OpenUserAccounts()) {
      CopyError(*account_);
      account_->CloseUserAccounts();
      return;
    }
    do {
      SyncAccount(sync);
    } while (account_->NextAccount());
    if (account_->GetLastError() != error::LastAccountReached) CopyError(*account_);
    account_->CloseUserAccounts();
    if (!remembered.LoadAgain()) CopyError(*account_);
    return;
  }
  if (!account_->LoadAccount(sync.server_id)) {
    CopyError(*account_);
    return;
  }
  SyncAccount(sync);
  if (!remembered.LoadAgain() && NoError()) CopyError(*account_);
}

/// The loaded account. Two runs over it at once would store everything twice: whoever comes second
/// lists what is there.
void MailEngine::SyncAccount(const SyncRequest& sync) {
  const FileLock lock(SyncLockPath(*account_));
  if (lock.state() == FileLock::State::kTaken) return;
  Session session(*this);
  if (!session.Open()) return;
  SyncOpenAccount(sync, session);
}

void MailEngine::SyncOpenAccount(const SyncRequest& sync, Session& session) {
  LastDownload state;
  try {
    if (options_.deep) UnsettleAccount(*connection_, *account_);
    state = ReadLastDownload(*connection_, *account_, sync.first_download);
  } catch (const DatabaseError& fault) {
    TakeFault("MailEngine.ReadLastDownload", fault);
    SetError(error::LastDownloadNotRead);
    return;
  }
  const LastDownload before = state;

  DownloadedStore store(account_, *connection_, *server_);
  store.OnProgress(on_stored_);
  const auto messages =
      sync.header_only
          ? server_->GetNewHeaders(*connection_, state.time, state.look_up)
          : server_->GetNewMessages(*connection_, state.time, state.look_up, sync.separator);
  bool clean = messages && server_->GetLastError() == 0;
  if (!clean) {
    CopyError(*server_);
    // A session that the server refused with its greeting has no number.
    if (NoError()) SetError(error::ReceiveFailed);
  }
  if (messages) {
    // A selection that stopped left older messages behind: nothing that is stored now may count as
    // known together with them.
    if (!clean) state.look_up = true;
    if (!store.Store(*messages, sync.delete_on_server, state)) {
      CopyError(store);
      clean = false;
    }
  } else {
    state = before;
  }
  try {
    WriteLastDownload(*connection_, *account_, state);
  } catch (const DatabaseError& fault) {
    TakeFault("MailEngine.WriteLastDownload", fault);
    SetError(error::LastDownloadNotWritten);
    clean = false;
  }
  if (!session.End(&store.Deletions(), store.Committed())) clean = false;

  const auto& newest = server_->NewestReceived();
  if (!before.look_up || !options_.settle || !clean || !newest) return;
  try {
    SettleAccount(*connection_, *account_, *newest);
  } catch (const DatabaseError& fault) {
    TakeFault("MailEngine.SettleAccount", fault);
  }
}

}  // namespace korvane
