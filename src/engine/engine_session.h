// A POP3 session and the account that an operation works with, both put back however the operation
// ends. Only the engine's own files include this.
#pragma once

#include "engine/mail_engine.h"
#include "engine/server_deletions.h"

namespace korvane {

/// Ends the session with its scope, or earlier with End.
class MailEngine::Session {
 public:
  explicit Session(MailEngine& engine) : engine_(engine) {}
  ~Session() { End(nullptr, true); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Connects and logs in; a failure is the engine's error.
  bool Open();
  bool IsOpen() const { return open_; }
  /// Ends the session: with QUIT when `committed` says that everything stored is committed, else
  /// without, so that nothing is deleted on the server. When the session does not come to its end,
  /// `deletions` are undone; an error is then left, but none that is set already is overwritten.
  /// False when QUIT was not answered.
  bool End(ServerDeletions* deletions, bool committed);

 private:
  MailEngine& engine_;
  bool open_ = false;
};

/// Remembers the loaded account and loads it again.
class MailEngine::Remembered {
 public:
  explicit Remembered(MailEngine& engine)
      : engine_(engine), state_(engine.account_->SaveAccount()) {}
  ~Remembered() {
    if (!done_) engine_.account_->RestoreAccount(std::move(state_));
  }
  Remembered(const Remembered&) = delete;
  Remembered& operator=(const Remembered&) = delete;

  /// False when the account could not be loaded; it is restored as it was all the same.
  bool LoadAgain();

 private:
  MailEngine& engine_;
  MailUser::AccountState state_;
  bool done_ = false;
};

}  // namespace korvane
