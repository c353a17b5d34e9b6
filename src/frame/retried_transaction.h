// Transactions that are done again when another process was in the way, or the server went away
// before they were committed.
#pragma once

#include <chrono>
#include <optional>
#include <type_traits>

#include "database.h"

namespace korvane {

/// How often a transaction that gave way to others is begun again, and for how long: an engine has
/// waited for others itself before it says that it is busy. Where several nodes of a cluster make
/// identifiers, it takes many quick attempts.
inline constexpr int kTransactionAttempts = 40;
inline constexpr std::chrono::seconds kTransactionPatience{10};

/// Pauses between attempts, short at first and of random length, so that two that were in each
/// other's way do not meet again.
///
/// The patience begins with the first fault: a server can be silent for longer than that before its
/// connection counts as lost, and the next one is to be asked all the same. Behind a fault that was
/// waited for already it begins with the first attempt.
class Attempts {
 public:
  Attempts(std::chrono::milliseconds patience, int most) : patience_(patience), left_(most) {}
  /// Pauses; false, without a pause, when there is to be no further attempt.
  bool Next(bool waited = false);

 private:
  using Clock = std::chrono::steady_clock;

  std::chrono::milliseconds patience_;
  Clock::time_point begin_ = Clock::now();
  std::optional<Clock::time_point> first_fault_;
  int left_;
  int done_ = 0;
};

/// For a transaction that may as well be made twice.
inline bool MadeAgain() { return false; }
/// For RetriedTransaction: nobody can tell whether the transaction was made.
struct DoubtIsReported {};

/// Runs `work` in a transaction and commits; from its beginning again, after a pause, when that may
/// help. `work` must be fit to run several times, and over what an earlier attempt left on a
/// connection without transactions.
///
/// Behind a commit that failed, `made` is asked, inside the next attempt's transaction, whether the
/// last one was made after all; true ends it there. Throws DatabaseError, and CommitInDoubt when
/// the connection was lost during a commit and nobody can say what became of it.
template <class Work, class Made = DoubtIsReported>
void RetriedTransaction(Connection& connection, Transaction::Kind kind, Work&& work,
                        [[maybe_unused]] Made made = {}) {
  constexpr bool kKnows = !std::is_same_v<Made, DoubtIsReported>;
  Attempts attempts(kTransactionPatience, kTransactionAttempts);
  bool in_doubt = false;
  bool ask = false;
  while (true) {
    bool committing = false;
    try {
      Transaction transaction(connection, kind);
      if constexpr (kKnows) {
        if (ask && made()) return;
      }
      work();
      committing = true;
      transaction.Commit();
      return;
    } catch (const CommitInDoubt&) {
      in_doubt = ask = true;
      if (!kKnows || !connection.Reopens() || !attempts.Next()) throw;
    } catch (const DatabaseError& fault) {
      // A node that loses its cluster may call a deadlock what the others have committed.
      ask = ask || committing;
      const bool lost = fault.kind() == DatabaseError::Kind::kConnectionLost;
      const bool helps = lost ? connection.Reopens() : fault.Retryable();
      if (!helps || !attempts.Next(fault.Waited())) {
        if (in_doubt) throw CommitInDoubt(fault.what());
        throw;
      }
    }
  }
}

}  // namespace korvane
