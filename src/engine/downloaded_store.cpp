#include "engine/downloaded_store.h"

#include <future>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>

#include "engine/store_files.h"
#include "facade/mail_user.h"
#include "frame/debug_log.h"
#include "frame/error_numbers.h"
#include "frame/files.h"
#include "frame/retried_transaction.h"
#include "frame/sql_text.h"
#include "message/mail_message.h"
#include "message/message_file.h"
#include "pop3/mail_server.h"
#include "pop3/new_messages.h"
#include "pop3/received_time.h"

namespace korvane {
namespace {

/// The message file or the files of attachments could not be put on the disk.
struct FilesNotWritten : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace

/// Consecutive messages, the oldest first, and what storing them led to.
struct DownloadedStore::Batch {
  std::span<const Item> messages;
  bool ends_with_newest;  ///< of all that are to be stored
  bool with_records;      ///< false when the file did not take them: rows alone
  LastDownload state;
  Item failed;                 ///< the last message whose row could not be made
  Items recorded;              ///< stored with their records
  std::optional<int32_t> row;  ///< the identifier of a row of this attempt
};

/// The next messages that are stored together; none when the oldest cannot be read.
DownloadedStore::Items DownloadedStore::TakeBatch(NewMessages& messages) {
  Items items;
  int64_t bytes = 0;
  while (messages.Count() > 0 && items.size() < kBatchMessages) {
    const int64_t next = messages.OldestBytes();
    if (next < 0 || (!items.empty() && bytes + next > kBatchBytes)) break;
    auto message = messages.TakeOldest();
    if (!message) break;
    bytes += next;
    items.push_back(std::move(message));
  }
  return items;
}

bool DownloadedStore::Store(NewMessages& messages, bool delete_on_server, LastDownload& state) {
  ClearError();
  const int32_t total = messages.Count();
  int32_t left = total;
  // True when this is settled, for better or worse: else the messages are stored one by one.
  const auto store = [&](std::span<const Item> together, bool ends_with_newest) {
    Batch batch{together, ends_with_newest, messages.Whole(), state, nullptr, {}, {}};
    const Outcome outcome = StoreBatch(batch);
    if (outcome == Outcome::kFailed && together.size() > 1) return false;
    if (outcome == Outcome::kStored) {
      state = batch.state;
      if (batch.failed) CopyError(*batch.failed);
      if (delete_on_server) DeleteOnServer(batch);
    } else {
      committed_ = false;
      state.look_up = true;
      SetError(error::DatabaseFault);
      hopeless_ = outcome == Outcome::kHopeless;
    }
    left -= static_cast<int32_t>(together.size());
    if (progress_) progress_(total - left, total);
    return true;
  };
  for (Items items = TakeBatch(messages); !items.empty();) {
    const bool newest = messages.Count() == 0;
    // What comes next is read and parsed while this is written; a large message waits, so that
    // there is never more than it in memory.
    std::future<Items> next;
    if (!newest && messages.OldestBytes() <= kBatchBytes) {
      next = std::async([&messages] { return TakeBatch(messages); });
    }
    // Without transactions nothing that a failed batch had stored could be taken back.
    const bool together = connection_.HasTransactions() || items.size() == 1;
    if (!together || !store(items, newest)) {
      for (size_t at = 0; at < items.size() && !hopeless_; ++at) {
        store(std::span(items).subspan(at, 1), newest && at + 1 == items.size());
      }
    }
    if (hopeless_) break;
    items.clear();
    items = next.valid() ? next.get() : TakeBatch(messages);
  }
  if (left > 0 && !hopeless_) {
    state.look_up = true;
    SetError(error::SelectMessageFailed);
  }
  return NoError();
}

DownloadedStore::Outcome DownloadedStore::StoreBatch(Batch& batch) try {
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
    LogFault(fault);
    if (batch.messages.size() > 1) return Outcome::kFailed;
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
  LogFault(fault);
  return fault.kind() == DatabaseError::Kind::kConnectionLost ? Outcome::kHopeless
                                                              : Outcome::kFailed;
} catch (const MessageFileBusy& fault) {
  // Each further batch would wait as long.
  LogFault(fault);
  return Outcome::kHopeless;
} catch (const std::exception& fault) {
  // An interrupted compaction that could not be settled: the positions are in doubt.
  LogFault(fault);
  return Outcome::kFailed;
}

void DownloadedStore::LogFault(const std::exception& fault) const {
  WriteDebugLog(account_->DebugMode(), account_->PathLog(), "MailEngine.StoreDownloaded",
                fault.what());
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
  for (const Item& message : batch.messages) {
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
      } else if (batch.ends_with_newest && message == batch.messages.back()) {
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
  Items messages;
  for (const Item& message : batch.recorded) {
    if (!server_.DeleteServerMessage(message->IdOnServer())) continue;
    rows.push_back({message->Id(), message->IdOnServer()});
    messages.push_back(message);
  }
  try {
    deletions_.Mark(connection_, rows);
    for (const Item& message : messages) message->SetIdOnServer(kDeletedOnServer);
  } catch (const DatabaseError& fault) {
    committed_ = false;
    WriteDebugLog(account_->DebugMode(), account_->PathLog(), "MailEngine.DeleteOnServer",
                  fault.what());
  }
}

}  // namespace korvane
