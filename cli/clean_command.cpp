// korvane clean: compacts the message file when enough of it is dead, and sweeps the folder of the
// attachments.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <memory>
#include <unordered_set>

#include "cli/failure.h"
#include "cli/json.h"
#include "cli/program.h"
#include "cli/stored_messages.h"
#include "facade/mail_user.h"
#include "frame/files.h"
#include "frame/sql_text.h"
#include "maintenance/cleaner.h"
#include "message/message_file.h"

namespace korvane::cli {
namespace {

namespace fs = std::filesystem;

constexpr std::time_t kYoungest = 24 * 60 * 60;  // seconds

struct CleanOptions {
  bool sweep = false;
};

struct Bytes {
  int64_t file = 0;
  int64_t dead = 0;
};

// What the rows say: the count of dead bytes is never set back, so it alone would start a
// compaction at every call. An interrupted compaction is finished before anything is counted.
Bytes Count(const StoredMessages& stored) {
  const MailUser& account = *stored.account();
  const MessageFileLock lock(stored.database(), account);
  if (!lock.Held()) {
    throw Failure(Exit::kFiles, "the lock beside " + MessageFilePath(account) + " cannot be taken");
  }
  Bytes bytes;
  BinaryFile file;
  if (!FileExists(MessageFilePath(account))) return bytes;
  if (!file.Open(MessageFilePath(account), BinaryFile::Mode::kRead)) {
    throw Failure(Exit::kFiles,
                  "the message file " + MessageFilePath(account) + " cannot be opened");
  }
  bytes.file = file.Length();
  for (const MailRow& row : stored.Rows(" AND Cancellata=-1 AND body_scaricato<>-1")) {
    const auto outline = OutlineRecord(file, row.position);
    if (outline) bytes.dead += outline->length;
  }
  return bytes;
}

void Compact(const StoredMessages& stored, int64_t dead) {
  const MailUser& account = *stored.account();
  Connection& database = stored.database();
  const int64_t counted =
      FirstValue(database, "SELECT dim_msg_canc_file FROM Pulizia WHERE id_utente=" +
                               std::to_string(account.UserId()))
          .ToInt64()
          .value_or(0);
  if (counted <= kCompactionThreshold) {
    const int64_t missing = std::min<int64_t>(dead - counted, INT32_MAX);
    RecordDeletedSize(database, account.UserId(), static_cast<int32_t>(missing));
  }
  try {
    CompactMessageFile(database, account.PathMessages(), account.UserId());
  } catch (const DatabaseError&) {
    throw;
  } catch (const std::exception& fault) {
    throw Failure(Exit::kFiles, fault.what());
  }
}

// The message's number in the name of an attachment file of this user ("user_message_part_name").
int32_t MessageOf(const std::string& name, int32_t user) {
  int32_t owner = 0;
  int32_t message = 0;
  int32_t part = 0;
  int length = 0;
  if (std::sscanf(name.c_str(), "%9d_%9d_%9d_%n", &owner, &message, &part, &length) != 3 ||
      length == 0 || owner != user) {
    return -1;
  }
  return message;
}

struct Swept {
  int64_t files = 0;
  int64_t bytes = 0;
};

// Under the lock nobody is between writing a file and its row; a day's age keeps what a page is
// still putting in place.
Swept Sweep(const StoredMessages& stored) {
  const MailUser& account = *stored.account();
  Swept swept;
  if (account.PathAtcmts().empty()) return swept;
  const MessageFileLock lock(stored.database(), account);
  if (!lock.Held()) {
    throw Failure(Exit::kFiles, "the lock beside " + MessageFilePath(account) + " cannot be taken");
  }
  std::unordered_set<int32_t> messages;
  for (const MailRow& row : stored.Rows()) messages.insert(row.id);
  const std::time_t now = std::time(nullptr);
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(account.PathAtcmts(), error)) {
    const std::string name = entry.path().filename().string();
    const int32_t message = MessageOf(name, account.UserId());
    const bool left_behind = message != -1 && !messages.contains(message);
    if (!left_behind && !IsTemporaryName(name)) continue;
    struct stat status {};
    if (::lstat(entry.path().c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    if (now - status.st_mtime < kYoungest) continue;
    if (!RemoveFile(entry.path().string())) {
      throw Failure(Exit::kFiles, entry.path().string() + ": cannot be removed");
    }
    ++swept.files;
    swept.bytes += status.st_size;
  }
  if (error) throw Failure(Exit::kFiles, account.PathAtcmts() + ": " + error.message());
  return swept;
}

Exit Clean(const Options& options, const CleanOptions& wanted) {
  const Installation installation = OpenInstallation(options);
  const auto web = OpenFacade(installation, options);
  const StoredMessages stored(installation, *web);
  const Bytes before = Count(stored);
  const bool worth_it = before.dead > kCompactionThreshold;
  if (worth_it) Compact(stored, before.dead);
  const Bytes after = worth_it ? Count(stored) : before;
  Swept swept;
  if (wanted.sweep) swept = Sweep(stored);
  if (options.json) {
    JsonObject json;
    json.Flag("compacted", worth_it)
        .Number("bytes", after.file)
        .Number("dead", after.dead)
        .Number("freed", before.file - after.file);
    if (wanted.sweep) json.Number("swept", swept.files).Number("swept_bytes", swept.bytes);
    std::cout << json.Str() << "\n";
    return Exit::kSuccess;
  }
  if (worth_it) {
    std::cout << "Compacted: " << before.file - after.file << " bytes freed, " << after.file
              << " left\n";
  } else {
    std::cout << "Nothing to compact: " << before.dead << " of " << before.file
              << " bytes are dead, more than " << kCompactionThreshold << " have to be\n";
  }
  if (wanted.sweep) {
    std::cout << "Swept: " << swept.files << " files without a message, " << swept.bytes
              << " bytes\n";
  }
  return Exit::kSuccess;
}

}  // namespace

void AddCleanCommand(Program& program) {
  auto wanted = std::make_shared<CleanOptions>();
  CLI::App* command = program.AddCommand(
      program.app, "clean", "give back the space of deleted messages, where it is worth while",
      [&program, wanted] { return Clean(program.options, *wanted); });
  command->add_flag("--sweep", wanted->sweep,
                    "also remove attachment files older than a day whose message is gone");
}

}  // namespace korvane::cli
