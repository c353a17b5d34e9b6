// The rows of messages that one session deleted on the server. POP3 makes deletions final at QUIT
// only, so until then every row here can still become wrong.
#pragma once

#include <cstdint>
#include <vector>

#include "../frame/database.h"

namespace korvane {

/// What `IdSulServer` says once the message was deleted on the server.
inline constexpr int32_t kDeletedOnServer = -100;
/// What it says of a message that never had a number there.
inline constexpr int32_t kNeverOnServer = -10;

class ServerDeletions {
 public:
  struct Row {
    int32_t id_mail;
    int32_t number;                 ///< on the server, to put back
    bool deleted_here_too = false;  ///< the row was marked as deleted in the same step
  };

  /// Marks the rows in one transaction and remembers them. Throws DatabaseError; then no row is
  /// marked.
  void Mark(Connection& connection, const std::vector<Row>& rows);
  /// Takes note of rows that were marked by somebody else.
  void Remember(const std::vector<Row>& rows);
  /// The session died before QUIT: the messages are still on the server, and the rows say so again;
  /// a deletion here that went with it is undone. Throws DatabaseError.
  void Undo(Connection& connection);

  bool empty() const { return rows_.empty(); }
  const std::vector<Row>& rows() const { return rows_; }

 private:
  std::vector<Row> rows_;
};

}  // namespace korvane
