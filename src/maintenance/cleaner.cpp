// Order of a compaction, so that a stop at any point loses nothing: the live records are copied and
// read back, the new file is synced; in one transaction the rows get their new positions, deleted
// rows go, and the files are renamed before the commit; then the backup is removed. Until the
// commit the rows point into the old file, which is the message file or its backup.
//
// A connection without transactions cannot change all rows at once. There the plan of the new
// positions is put on the disk before the files are renamed, and the rows are changed behind that,
// one by one; until the plan is removed, whoever takes the user's lock next does what is left of
// it.
#include "maintenance/cleaner.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <stdexcept>
#include <unordered_map>
#include <vector>

#include "frame/files.h"
#include "frame/retried_transaction.h"
#include "frame/sql_text.h"
#include "maintenance/compaction_steps.h"
#include "message/message_file.h"
#include "message/renumbering_plan.h"

namespace korvane {

namespace {

constexpr int kAttempts = 10;

[[noreturn]] void Fail(const std::string& what) { throw std::runtime_error("compaction: " + what); }

void Require(bool ok, const std::string& what) {
  if (!ok) Fail(what);
}

int32_t Clamped(int64_t value) {
  return static_cast<int32_t>(std::clamp<int64_t>(value, std::numeric_limits<int32_t>::min(),
                                                  std::numeric_limits<int32_t>::max()));
}

struct Row {
  int32_t id = 0;
  int64_t position = 0;
  bool deleted = false;
  int64_t new_position = 0;
  int64_t length = 0;  ///< bytes copied
  std::optional<RecordOutline> outline;
  bool operator==(const Row& other) const {
    return id == other.id && position == other.position && deleted == other.deleted;
  }
};

std::string RowsStatement(int32_t user_id) {
  return "SELECT id_mail, body_scaricato, Cancellata FROM mail WHERE id_utente=" +
         std::to_string(user_id) + " AND body_scaricato<>-1 ORDER BY body_scaricato ASC";
}

Row ReadRow(const Recordset& rows) {
  Row row;
  row.id = rows.Field("id_mail").ToInt32().value_or(0);
  row.position = rows.Field("body_scaricato").ToInt64().value_or(0);
  row.deleted = rows.Field("Cancellata").ToBool().value_or(false);
  return row;
}

// The rows with a record as they are now, in the order of the records.
std::vector<Row> ReadRows(Connection& connection, int32_t user_id) {
  const auto rows = connection.Execute(RowsStatement(user_id));
  std::vector<Row> all;
  for (; !rows->Eof(); rows->MoveNext()) all.push_back(ReadRow(*rows));
  rows->Close();
  return all;
}

// How many bytes belong to the record at rows[i]: up to the next row's record, deleted or not, or
// to the end of the file; more when the record itself says so.
int64_t RecordLength(BinaryFile& source, std::vector<Row>& rows, size_t i, int64_t file_length) {
  Row& row = rows[i];
  Require(row.position >= 1 && row.position <= file_length,
          "the row of message " + std::to_string(row.id) + " points outside the message file");
  size_t next = i + 1;
  while (next < rows.size() && rows[next].position == row.position) ++next;
  const int64_t end = next < rows.size() ? rows[next].position : file_length + 1;
  row.outline = OutlineRecord(source, row.position, file_length);
  const int64_t length = std::max(end - row.position, row.outline ? row.outline->length : 0);
  Require(row.position + length <= file_length + 1,
          "the row of message " + std::to_string(row.id) + " points outside the message file");
  return length;
}

// Writes the live records one behind the other and notes where each one begins.
void CopyLiveRecords(BinaryFile& source, BinaryFile& target, std::vector<Row>& rows) {
  const int64_t file_length = source.Length();
  Require(file_length >= 0, "the message file cannot be read");
  // Records that follow each other are copied in one go.
  int64_t run_start = 0;
  int64_t run_length = 0;
  const auto copy_run = [&] {
    if (run_length == 0) return;
    Require(target.CopyFrom(source, run_start, run_length), "the records cannot be copied");
  };
  int64_t next_position = 1;
  for (size_t i = 0; i < rows.size(); ++i) {
    Row& row = rows[i];
    if (row.deleted) continue;
    row.length = RecordLength(source, rows, i, file_length);
    row.new_position = next_position;
    next_position += row.length;
    if (run_start + run_length == row.position) {
      run_length += row.length;
    } else {
      copy_run();
      run_start = row.position;
      run_length = row.length;
    }
  }
  copy_run();
  Require(target.Flush(), "the new file cannot be written");
}

// Each record in the new file has to be what it was in the old one.
void ReadBack(BinaryFile& target, const std::vector<Row>& rows) {
  const int64_t file_length = target.Length();
  int64_t end = 1;
  for (const Row& row : rows) {
    if (row.deleted) continue;
    const auto outline = OutlineRecord(target, row.new_position, file_length);
    const bool same = outline.has_value() == row.outline.has_value() &&
                      (!outline || (outline->length == row.outline->length &&
                                    outline->size == row.outline->size));
    Require(same && row.new_position == end,
            "the record of message " + std::to_string(row.id) + " was not copied whole");
    end += row.length;
  }
  Require(file_length + 1 == end, "the new file has a wrong length");
}

// Deleted messages that still lie on their server stay known, so that they are not downloaded
// again.
void RememberDeleted(Connection& connection, int32_t user_id) {
  if (!connection.HasTable("messaggi_eliminati")) return;
  const auto rows =
      connection.Execute("SELECT * FROM mail WHERE id_utente=" + std::to_string(user_id) +
                         " AND Cancellata=-1 AND IdSulServer>=0");
  std::shared_ptr<Recordset> known;
  int32_t id = 0;
  for (; !rows->Eof(); rows->MoveNext()) {
    if (rows->Field("id_server").ToInt32().value_or(-1) == -1) continue;
    if (!known) {
      id = NextIdentifier(connection, "SELECT MAX(id_eliminato) FROM messaggi_eliminati");
      known = connection.Open("messaggi_eliminati");
    }
    known->AddNew();
    known->SetField("id_eliminato", Any(id++));
    for (const char* column : {"id_utente", "id_server", "campo_received", "campo_MessageId",
                               "mittente", "oggetto", "data", "dimensione", "DwnldCorrettoFAQ"}) {
      known->SetField(column, rows->Field(column));
    }
    known->Update();
  }
  rows->Close();
  if (known) known->Close();
}

void DeleteRows(Connection& connection, int32_t user_id) {
  connection.Execute("DELETE FROM mail WHERE id_utente=" + std::to_string(user_id) +
                     " AND Cancellata=" + "-1");
}

// The rows' part. False when the rows are no longer those that the copy was made of.
bool RenumberRows(Connection& connection, int32_t user_id, const std::vector<Row>& rows) {
  std::unordered_map<int32_t, const Row*> copied;
  for (const Row& row : rows) copied.emplace(row.id, &row);
  const auto current = connection.Open(RowsStatement(user_id));
  size_t count = 0;
  for (; !current->Eof(); current->MoveNext(), ++count) {
    const Row now = ReadRow(*current);
    const auto found = copied.find(now.id);
    if (found == copied.end() || !(now == *found->second)) return false;
    const Row& row = *found->second;
    if (row.deleted || row.new_position == row.position) continue;
    current->SetField("body_scaricato", Any(static_cast<int32_t>(row.new_position)));
    current->Update();
  }
  current->Close();
  if (count != rows.size()) return false;
  RememberDeleted(connection, user_id);
  DeleteRows(connection, user_id);
  return true;
}

void RenameFiles(const std::string& path_messages, int32_t user_id, const CompactionSteps& steps) {
  const std::string current = MessageFilePath(path_messages, user_id);
  Require(RenameFile(current, BackupFilePath(path_messages, user_id)),
          "the message file cannot be renamed");
  steps("backup made");
  Require(RenameFile(CompactedFilePath(path_messages, user_id), current),
          "the new file cannot be renamed");
  Require(SyncDirectory(path_messages), "the new names cannot be put on the disk");
  steps("renamed");
}

// Rows and files in one transaction. False when the rows are no longer those of the copy.
bool ChangeAtOnce(Connection& connection, const std::string& path_messages, int32_t user_id,
                  const std::vector<Row>& rows, const CompactionSteps& steps) {
  Transaction transaction(connection, Transaction::Kind::kAllocating);
  if (!RenumberRows(connection, user_id, rows)) return false;
  steps("rows changed");
  RenameFiles(path_messages, user_id, steps);
  transaction.Commit();
  steps("committed");
  return true;
}

// Rows and files by a plan. False when the rows are no longer those of the copy.
bool ChangeByPlan(Connection& connection, const std::string& path_messages, int32_t user_id,
                  const std::vector<Row>& rows, const CompactionSteps& steps) {
  if (ReadRows(connection, user_id) != rows) return false;
  RenumberingPlan plan;
  plan.reserve(rows.size());
  for (const Row& row : rows) {
    plan.push_back({row.id, row.position, row.deleted ? -1 : row.new_position});
  }
  // To remember them twice, when this is interrupted, does no harm.
  RememberDeleted(connection, user_id);
  Require(WritePlan(path_messages, user_id, plan), "the plan cannot be written");
  steps("plan written");
  RenameFiles(path_messages, user_id, steps);
  DeleteRows(connection, user_id);
  steps("rows deleted");
  ApplyPlan(connection, user_id, plan);
  steps("rows changed");
  Require(RemoveFile(PlanFilePath(path_messages, user_id)), "the plan cannot be removed");
  return true;
}

// One try; false when the rows changed meanwhile.
bool CompactOnce(Connection& connection, const std::string& path_messages, int32_t user_id,
                 const CompactionSteps& steps) {
  const std::string current = MessageFilePath(path_messages, user_id);
  const std::string compacted = CompactedFilePath(path_messages, user_id);
  const std::string backup = BackupFilePath(path_messages, user_id);

  Require(RemoveFile(PlanFilePath(path_messages, user_id)), "an old plan cannot be removed");
  std::vector<Row> rows = ReadRows(connection, user_id);
  BinaryFile source;
  Require(source.Open(current, BinaryFile::Mode::kRead), "the message file cannot be opened");
  BinaryFile target;
  // Not overwritten: a client of a file server may know the message file itself by this name, from
  // before another machine renamed it.
  Require(RemoveFile(compacted), "an old new file cannot be removed");
  Require(target.Open(compacted, BinaryFile::Mode::kReadWrite) && target.Truncate(0),
          "the new file cannot be opened");
  CopyLiveRecords(source, target, rows);
  steps("copied");
  ReadBack(target, rows);
  steps("read back");
  Require(target.Sync(), "the new file cannot be written");
  source.Close();
  target.Close();
  steps("synced");

  const auto change = connection.HasTransactions() ? ChangeAtOnce : ChangeByPlan;
  if (!change(connection, path_messages, user_id, rows, steps)) {
    RemoveFile(compacted);
    return false;
  }
  Require(RemoveFile(backup), "the backup cannot be removed");
  SyncDirectory(path_messages);
  return true;
}

}  // namespace

bool RecordDeletedSize(Connection& connection, int32_t user_id, int32_t added) {
  const std::string user = std::to_string(user_id);
  // Counted twice, the bytes only bring the next compaction nearer.
  RetriedTransaction(
      connection, Transaction::Kind::kAllocating,
      [&] {
        const auto row = connection.Open("SELECT * FROM Pulizia WHERE id_utente=" + user);
        if (!row->Eof()) {
          const int64_t dead = row->Field("dim_msg_canc_file").ToInt64().value_or(0);
          row->SetField("dim_msg_canc_file", Any(Clamped(dead + added)));
        } else {
          // The rows just marked as deleted are among these.
          const Any sum =
              FirstValue(connection, "SELECT SUM(dimensione) FROM mail WHERE id_utente=" + user +
                                         " AND Cancellata=" + "-1" + " AND body_scaricato<>-1");
          const int32_t id = NextIdentifier(connection, "SELECT MAX(id_pulizia) FROM Pulizia");
          row->AddNew();
          row->SetField("id_pulizia", Any(id));
          row->SetField("id_utente", Any(user_id));
          row->SetField("dim_msg_canc_file", Any(Clamped(sum.ToInt64().value_or(0))));
        }
        row->Update();
        row->Close();
      },
      MadeAgain);
  return true;
}

int32_t CompactMessageFile(Connection& connection, const std::string& path_messages,
                           int32_t user_id) {
  return CompactMessageFile(connection, path_messages, user_id, [](const char*) {});
}

int32_t CompactMessageFile(Connection& connection, const std::string& path_messages,
                           int32_t user_id, const CompactionSteps& steps) {
  const Any dead = FirstValue(connection, "SELECT dim_msg_canc_file FROM Pulizia WHERE id_utente=" +
                                              std::to_string(user_id));
  if (dead.ToInt64().value_or(0) <= kCompactionThreshold) return 0;

  const MessageFileLock lock(connection, path_messages, user_id);
  Require(lock.Held(), "the user's lock cannot be taken");
  // The fault is the caller's to hear of, unless it was somebody else's doing; the files go back to
  // where the rows point, now if the database can say where that is, else by whoever takes the lock
  // next.
  const auto go_back = [&] {
    try {
      RecoverMessageFile(connection, path_messages, user_id);
      if (!FileExists(BackupFilePath(path_messages, user_id))) {
        RemoveFile(CompactedFilePath(path_messages, user_id));
        RemoveFile(PlanFilePath(path_messages, user_id));
      }
      return true;
    } catch (const std::exception&) {
      return false;
    }
  };
  Attempts attempts(kTransactionPatience, kAttempts);
  while (true) {
    try {
      if (CompactOnce(connection, path_messages, user_id, steps)) return 0;
      Require(attempts.Next(), "the user's rows keep changing");
    } catch (const DatabaseError& fault) {
      const bool lost = fault.kind() == DatabaseError::Kind::kConnectionLost;
      const bool helps = lost ? connection.Reopens() : fault.Retryable();
      const bool back = go_back();
      if (!back || !helps || !attempts.Next(fault.Waited())) throw;
    } catch (...) {
      go_back();
      throw;
    }
  }
}

bool RecoverCompaction(Connection& connection, const std::string& path_messages, int32_t user_id) {
  return RecoverMessageFile(connection, path_messages, user_id);
}

}  // namespace korvane
