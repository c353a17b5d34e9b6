#include "engine/downloaded_store.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "engine/store_files.h"
#include "facade/mail_user.h"
#include "frame/debug_log.h"
#include "frame/error_numbers.h"
#include "frame/files.h"
#include "frame/retried_transaction.h"
#include "frame/sql_text.h"
#include "message/message_file.h"
#include "pop3/mail_server.h"
#include "pop3/received_time.h"

namespace korvane {
namespace {

/// A fault that has no object of its own to carry it.
class Fault : public ErrorState {
 public:
  explicit Fault(int32_t number) { SetError(number); }
};

/// The message file or the files of attachments could not be put on the disk.
struct FilesNotWritten : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace

/// Consecutive messages of a collection, the newest at `first`, and what storing them led to.
struct DownloadedStore::Batch {
  const Items& items;
  size_t first;  ///< the newest
  size_t last;   ///< the oldest, where the walk starts
  bool whole;
  bool with_records;  ///< false when the file did not take them: rows alone
  LastDownload state;
  std::shared_ptr<MailMessage> failed;  ///< the last message whose row could not be made
  std::vector<std::shared_ptr<MailMessage>> recorded;  ///< stored with their records
  std::optional<int32_t> row;                          ///< the identifier of a row of this attempt
};

bool DownloadedStore::StoreMessages(MailMessages& messages, bool delete_on_server,
                                    LastDownload& state) {
  return Store(messages, true, delete_on_server, state);
}

bool DownloadedStore::StoreHeaders(MailMessages& messages, LastDownload& state) {
  return Store(messages, false, false, state);
}

/// The first position, from `last` down, of a batch that ends there.
size_t DownloadedStore::BatchEnd(const Items& items, size_t last) const {
  size_t first = last;
  int64_t bytes = items[last]->Size();
  while (first > 0 && last - first + 1 < kBatchMessages &&
         bytes + items[first - 1]->Size() <= kBatchBytes) {
    bytes += items[--first]->Size();
  }
  return first;
}

bool DownloadedStore::Store(MailMessages& messages, bool whole, bool delete_on_server,
                            LastDownload& state) {
  messages.ResetError();
  const Items& items = messages.Items();
  size_t left = items.size();
  // Without transactions nothing that a failed batch had stored could be taken back.
  size_t one_by_one = connection_.HasTransactions() ? 0 : left;
  while (left > 0) {
    const size_t last = left - 1;
    size_t first = last;
    if (one_by_one > 0) {
      --one_by_one;
    } else {
      first = BatchEnd(items, last);
    }
    Batch batch{items, first, last, whole, whole, state, nullptr, {}, {}};
    Outcome outcome = StoreBatch(batch, "MailEngine.StoreDownloaded");
    if (outcome == Outcome::kFailed && first != last) {
      one_by_one = last - first + 1;
      continue;
    }
    if (outcome == Outcome::kStored) {
      state = batch.state;
      if (batch.failed) messages.TakeErrorOf(*batch.failed);
      if (delete_on_server) DeleteOnServer(batch);
    } else {
      committed_ = false;
      state.look_up = true;
      messages.TakeErrorOf(Fault(error::DatabaseFault));
      if (outcome == Outcome::kHopeless) break;
    }
    left = first;
    if (progress_) {
      progress_(static_cast<int32_t>(items.size() - left), static_cast<int32_t>(items.size()));
    }
  }
  return messages.GetLastError() == 0;
}

DownloadedStore::Outcome DownloadedStore::StoreBatch(Batch& batch, const char* place) try {
  const LastDownload before = batch.state;
  const std::string path = MessageFilePath(*account_);
  const MessageFileLock lock(connection_, *account_);
  BinaryFile file;
  const bool opened = batch.with_records && file.Open(path, BinaryFile::Mode::kReadWrite);
  const int64_t length = opened ? file.Length() : -1;
  std::vector<std::string> files;
  const auto forget = [&] {
    batch.state = before;
    batch.failed = nullptr;
    batch.recorded.clear();
    batch.row.reset();
  };
  const auto take_back = [&] {
    forget();
    if (length >= 0) file.Truncate(length);
    RemoveFiles(files);
  };
  const auto store_in = [&](BinaryFile& target) {
    RetriedTransaction(
        connection_, Transaction::Kind::kAllocating,
        [&] {
          take_back();
          WriteBatch(batch, target, files);
        },
        [&] { return !batch.row || HasMessageOf(connection_, account_->UserId(), *batch.row); });
  };
  try {
    store_in(file);
  } catch (const FilesNotWritten& fault) {
    take_back();
    WriteDebugLog(account_->DebugMode(), account_->PathLog(), place, fault.what());
    if (batch.first != batch.last) return Outcome::kFailed;
    // The last word on this message: its row, without a record.
    batch.with_records = false;
    BinaryFile none;
    store_in(none);
  } catch (const CommitInDoubt&) {
    // The rows may be there: then their records and files have to be there too.
    forget();
    throw;
  } catch (...) {
    take_back();
    throw;
  }
  return Outcome::kStored;
} catch (const DatabaseError& fault) {
  WriteDebugLog(account_->DebugMode(), account_->PathLog(), place, fault.what());
  return fault.kind() == DatabaseError::Kind::kConnectionLost ? Outcome::kHopeless
                                                              : Outcome::kFailed;
} catch (const MessageFileBusy& fault) {
  // Each further batch would wait as long.
  WriteDebugLog(account_->DebugMode(), account_->PathLog(), place, fault.what());
  return Outcome::kHopeless;
} catch (const std::exception& fault) {
  // An interrupted compaction that could not be settled: the positions are in doubt.
  WriteDebugLog(account_->DebugMode(), account_->PathLog(), place, fault.what());
  return Outcome::kFailed;
}

/// Inside the transaction: records, attachment files and rows, and the files on the disk.
void DownloadedStore::WriteBatch(Batch& batch, BinaryFile& file, std::vector<std::string>& files) {
  const auto row = connection_.Open("mail");
  const auto sync = [&] {
    if (batch.recorded.empty()) return;
    // The first record may have made the message file.
    if (!file.Sync() || !SyncFiles(files) || !SyncDirectory(account_->PathMessages())) {
      throw FilesNotWritten("a store file was not written");
    }
  };
  MailMessage::StoreOptions options;
  options.record = batch.with_records;
  options.sync = false;
  for (size_t at = batch.last + 1; at-- > batch.first;) {
    const auto& message = batch.items[at];
    message->SetId(NextIdentifier(connection_, "SELECT MAX(id_mail) FROM mail"));
    row->AddNew();
    row->SetField("Letto", false);
    if (!message->StoreRecordAndRow(*row, file, options, &files)) {
      row->CancelUpdate();
      batch.state.look_up = true;
      batch.failed = message;
      continue;
    }
    if (row->Field("body_scaricato").ToInt32().value_or(-1) != -1) {
      batch.recorded.push_back(message);
    }
    if (!batch.state.look_up) {
      const ScanTime time = MessageTime(message->Received());
      if (time.readable) {
        batch.state.time = time.text;
      } else if (at == 0) {
        batch.state.look_up = true;
      }
      row->SetField("DwnldCorrettoFAQ", true);
    } else {
      row->SetField("DwnldCorrettoFAQ", false);
    }
    if (!connection_.HasTransactions()) sync();
    row->Update();
    batch.row = message->Id();
  }
  row->Close();
  sync();
}

/// DELE for what is committed, then the rows say so. A message that the server did not delete keeps
/// its number.
void DownloadedStore::DeleteOnServer(const Batch& batch) {
  std::vector<ServerDeletions::Row> rows;
  std::vector<std::shared_ptr<MailMessage>> messages;
  for (const auto& message : batch.recorded) {
    if (!server_.DeleteServerMessage(message->IdOnServer())) continue;
    rows.push_back({message->Id(), message->IdOnServer()});
    messages.push_back(message);
  }
  try {
    deletions_.Mark(connection_, rows);
    for (const auto& message : messages) message->SetIdOnServer(kDeletedOnServer);
  } catch (const DatabaseError& fault) {
    committed_ = false;
    WriteDebugLog(account_->DebugMode(), account_->PathLog(), "MailEngine.DeleteOnServer",
                  fault.what());
  }
}

}  // namespace korvane
