#include "engine/engine_session.h"

#include <utility>

#include "frame/error_numbers.h"

namespace korvane {

bool MailEngine::Session::Open() {
  if (!engine_.server_->Connect()) {
    engine_.CopyError(*engine_.server_);
    if (engine_.NoError()) engine_.SetError(error::ReceiveFailed);
    return false;
  }
  open_ = true;
  return true;
}

bool MailEngine::Session::End(ServerDeletions* deletions, bool committed) {
  if (!std::exchange(open_, false)) return true;
  MailServer& server = *engine_.server_;
  bool ended = false;
  if (committed) {
    ended = server.Disconnect();
  } else {
    server.CloseConnection();
  }
  if (ended || !deletions || deletions->empty()) return ended;
  if (engine_.NoError()) engine_.CopyError(server);
  if (engine_.NoError()) engine_.SetError(error::ReceiveFailed);
  try {
    deletions->Undo(*engine_.connection_);
  } catch (const DatabaseError& fault) {
    engine_.TakeFault("MailEngine.Disconnect", fault);
  }
  return false;
}

bool MailEngine::Remembered::LoadAgain() {
  done_ = true;
  MailUser& account = *engine_.account_;
  // What the page set itself is in no row.
  const bool loaded =
      state_.account_id == MailUser::kNoAccount || account.LoadAccount(state_.account_id);
  if (!loaded || state_.account_id == MailUser::kNoAccount)
    account.RestoreAccount(std::move(state_));
  return loaded;
}

}  // namespace korvane
