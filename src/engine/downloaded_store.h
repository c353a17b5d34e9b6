// Storing what a selection brought: a record in the user's message file and a row of "mail" for
// each message, oldest first, in batches.
//
// A batch is written under the user's lock and in one transaction: records and attachment files
// first, on the disk before the commit. What fails leaves neither bytes in the message file nor
// attachment files. A batch that fails is stored again message by message, so that one message does
// not take others with it. Nothing is lost by the batches: until QUIT every message is still on the
// server. DELE is sent for committed rows only, and outside lock and transaction.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <vector>

#include "../frame/database.h"
#include "../frame/error_state.h"
#include "last_download.h"
#include "server_deletions.h"

namespace korvane {

class BinaryFile;
class MailMessage;
class MailServer;
class MailUser;
class NewMessages;

class DownloadedStore : public ErrorState {
 public:
  /// One pair of syncs and one commit for this many messages or bytes.
  static constexpr size_t kBatchMessages = 100;
  static constexpr int64_t kBatchBytes = 8 * 1024 * 1024;

  DownloadedStore(std::shared_ptr<MailUser> account, Connection& connection, MailServer& server)
      : account_(std::move(account)), connection_(connection), server_(server) {}

  /// Takes the messages out of the collection and stores them; with `delete_on_server` those whose
  /// record was written are deleted there. `state` advances as they are stored. False when there is
  /// an error: of a message, 1008, or 1070 where one could not be taken.
  bool Store(NewMessages& messages, bool delete_on_server, LastDownload& state);

  /// Called while the storing goes on: messages done, messages altogether.
  using Progress = std::function<void(int32_t stored, int32_t total)>;
  void OnProgress(Progress progress) { progress_ = std::move(progress); }

  /// What the session deleted on the server so far.
  ServerDeletions& Deletions() { return deletions_; }
  /// True when everything that was to be committed was: the session may end with QUIT.
  bool Committed() const { return committed_; }

 private:
  using Item = std::shared_ptr<MailMessage>;
  using Items = std::vector<Item>;
  struct Batch;
  enum class Outcome { kStored, kFailed, kHopeless };

  static Items TakeBatch(NewMessages& messages);
  Outcome StoreBatch(Batch& batch);
  void LogFault(const std::exception& fault) const;
  void WriteBatch(Batch& batch, BinaryFile& file, std::vector<std::string>& files);
  void DeleteOnServer(const Batch& batch);

  std::shared_ptr<MailUser> account_;
  Connection& connection_;
  MailServer& server_;
  ServerDeletions deletions_;
  bool committed_ = true;
  bool hopeless_ = false;  ///< nothing more can be stored in this session
  Progress progress_;
};

}  // namespace korvane
