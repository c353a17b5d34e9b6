// Transactions that are done again when another process was in the way.
#pragma once

#include <chrono>
#include <thread>

#include "../frame/database.h"

namespace korvane {

/// How often a transaction that gave way to others is begun again.
inline constexpr int kTransactionAttempts = 8;

/// Runs `work` in a transaction and commits; from its beginning again, after a pause, when that may
/// help. `work` must be fit to run several times. On a connection without transactions nothing is
/// done twice, because what was done stays. Throws DatabaseError.
template <class Work>
void RetriedTransaction(Connection& connection, Transaction::Kind kind, Work&& work) {
  for (int attempt = 1;; ++attempt) {
    try {
      Transaction transaction(connection, kind);
      work();
      transaction.Commit();
      return;
    } catch (const DatabaseError& fault) {
      if (!fault.Retryable() || !connection.HasTransactions() || attempt >= kTransactionAttempts) {
        throw;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5 << attempt));
  }
}

}  // namespace korvane
