#include "engine/server_deletions.h"

#include <string>

#include "frame/retried_transaction.h"

namespace korvane {

void ServerDeletions::Mark(Connection& connection, const std::vector<Row>& rows) {
  if (rows.empty()) return;
  // Before the transaction: on a connection without transactions some rows may be marked although
  // a later one failed, and undoing a row that is not marked changes nothing.
  Remember(rows);
  RetriedTransaction(
      connection, Transaction::Kind::kPlain,
      [&] {
        for (const Row& row : rows) {
          connection.Execute("UPDATE mail SET IdSulServer=" + std::to_string(kDeletedOnServer) +
                             " WHERE id_mail=" + std::to_string(row.id_mail));
        }
      },
      MadeAgain);
}

void ServerDeletions::Remember(const std::vector<Row>& rows) {
  rows_.insert(rows_.end(), rows.begin(), rows.end());
}

void ServerDeletions::Undo(Connection& connection) {
  if (rows_.empty()) return;
  RetriedTransaction(
      connection, Transaction::Kind::kPlain,
      [&] {
        for (const Row& row : rows_) {
          connection.Execute("UPDATE mail SET IdSulServer=" + std::to_string(row.number) +
                             (row.deleted_here_too ? ", Cancellata=0" : "") +
                             " WHERE id_mail=" + std::to_string(row.id_mail) +
                             " AND IdSulServer=" + std::to_string(kDeletedOnServer));
        }
      },
      MadeAgain);
  rows_.clear();
}

}  // namespace korvane
