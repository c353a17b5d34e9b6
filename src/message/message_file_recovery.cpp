// Finishing or undoing an interrupted compaction. A compaction renames the message file to the
// backup and the new file to the message file, commits the new positions and removes the backup; so
// a backup means that it died on the way, and the rows tell on which side of the commit. On a
// connection without transactions the rows are changed behind the renames, by a plan that is on the
// disk until they are.
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "frame/database.h"
#include "message/message_file.h"
#include "message/renumbering_plan.h"

namespace korvane {

namespace {

struct Pointer {
  int64_t position;
  int32_t size;
};

// How well the rows fit a file: a point for each one that points at a well-formed record, another
// when that record is of a message as large as the row says. Positions of one layout may happen to
// hit a record in the other file, but not all of them, and not of their own message.
int64_t Fit(const std::string& path, const std::vector<Pointer>& pointers) {
  BinaryFile file;
  if (!file.Open(path, BinaryFile::Mode::kRead)) return -1;
  int64_t points = 0;
  for (const Pointer& pointer : pointers) {
    const auto outline = OutlineRecord(file, pointer.position);
    if (outline) points += outline->size == pointer.size ? 2 : 1;
  }
  return points;
}

void RenameOrThrow(const std::string& from, const std::string& to) {
  if (!RenameFile(from, to)) throw std::runtime_error("cannot rename " + from + " to " + to);
}

void RemoveOrThrow(const std::string& path) {
  if (!RemoveFile(path)) throw std::runtime_error("cannot remove " + path);
}

// A client of a file server may know the old file by both names for some seconds after another
// machine renamed it: judged by that, one of the two would be taken for the other.
void AwaitDifferentFiles(const std::string& current, const std::string& backup) {
  constexpr int kTries = 100;
  constexpr std::chrono::milliseconds kPause{100};
  std::error_code unknown;
  for (int i = 0; std::filesystem::equivalent(current, backup, unknown); ++i) {
    if (i == kTries) throw std::runtime_error(backup + " is the message file itself");
    std::this_thread::sleep_for(kPause);
    RefreshKnowledge(current);
  }
}

}  // namespace

bool RecoverMessageFile(Connection& connection, const std::string& path_messages, int32_t user_id) {
  const std::string backup = BackupFilePath(path_messages, user_id);
  if (path_messages.empty() || !FileExists(backup)) return false;
  const std::string current = MessageFilePath(path_messages, user_id);
  const std::string compacted = CompactedFilePath(path_messages, user_id);

  AwaitDifferentFiles(current, backup);
  // Died between the two renames: the rows cannot have been changed.
  bool restore = !FileExists(current);
  const auto plan = restore ? std::nullopt : ReadPlan(path_messages, user_id);
  if (plan) {
    ApplyPlan(connection, user_id, *plan);
  } else if (!restore) {
    // A holder that died may have left a commit behind that its server is still at work on. Its
    // transaction was of this kind: what the rows say is final once this one has begun.
    const Transaction wait(connection, Transaction::Kind::kAllocating);
    // The deleted rows count too: before the commit they are there and point behind the new file.
    const auto rows = connection.Execute(
        "SELECT body_scaricato, dimensione FROM mail WHERE id_utente=" + std::to_string(user_id) +
        " AND body_scaricato<>-1");
    std::vector<Pointer> pointers;
    for (; !rows->Eof(); rows->MoveNext()) {
      pointers.push_back({rows->Field("body_scaricato").ToInt64().value_or(-1),
                          rows->Field("dimensione").ToInt32().value_or(0)});
    }
    rows->Close();
    restore = Fit(backup, pointers) > Fit(current, pointers);
  }
  // The plan goes first: without a backup nobody would look at it, and a later compaction must not
  // find this one's.
  RemoveOrThrow(PlanFilePath(path_messages, user_id));
  if (restore) {
    RenameOrThrow(backup, current);
  } else {
    RemoveOrThrow(backup);
  }
  RemoveFile(compacted);
  SyncDirectory(path_messages);
  return true;
}

}  // namespace korvane
