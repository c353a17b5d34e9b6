// Transactions that are done again when another process was in the way.
#pragma once

#include <chrono>
#include <thread>

#include "../frame/database.h"

namespace korvane {

/// How often a transaction that gave way to others is begun again, and for how long: an engine has
/// waited for others itself before it says that it is busy.
inline constexpr int kTransactionAttempts = 8;
inline constexpr std::chrono::seconds kTransactionPatience{5};

/// Runs `work` in a transaction and commits; from its beginning again, after a pause, when that may
/// help. `work` must be fit to run several times, and over what an earlier attempt left on a
/// connection without transactions. Throws DatabaseError.
template <class Work>
void RetriedTransaction(Connection& connection, Transaction::Kind kind, Work&& work) {
  const auto end = std::chrono::steady_clock::now() + kTransactionPatience;
  for (int attempt = 1;; ++attempt) {
    try {
      Transaction transaction(connection, kind);
      work();
      transaction.Commit();
      return;
    } catch (const DatabaseError& fault) {
      if (!fault.Retryable() || attempt >= kTransactionAttempts ||
          std::chrono::steady_clock::now() > end) {
        throw;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5 << attempt));
  }
}

}  // namespace korvane
