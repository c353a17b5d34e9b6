// Deleting messages here, on the server or both.
#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engine/engine_session.h"
#include "engine/message_ids.h"
#include "frame/debug_log.h"
#include "frame/error_numbers.h"
#include "frame/files.h"
#include "frame/retried_transaction.h"
#include "maintenance/cleaner.h"
#include "message/message_file.h"
#include "pop3/message_traits.h"

namespace korvane {
namespace {

/// An engine takes no expression of any depth; a longer list is asked for in several statements.
constexpr size_t kIdsPerStatement = 200;
/// What a message without a known size is taken to occupy.
constexpr int64_t kEstimatedSize = 15360;

bool DeletesOnServer(EDelType type) {
  return type == EDelType::DEL_TYPE_SERVER || type == EDelType::DEL_TYPE_LOCALE_SERVER;
}

bool DeletesHere(EDelType type) {
  return type == EDelType::DEL_TYPE_LOCALE || type == EDelType::DEL_TYPE_LOCALE_SERVER;
}

}  // namespace

/// A row that is to be deleted, and how far that went.
struct MailEngine::Doomed {
  int32_t id_mail;
  int32_t account;
  int32_t number;
  int32_t box;
  std::string received;
  std::string message_id;
  MessageTraits traits;
  bool server_done = false;    ///< nothing (more) is to be done on the server
  bool deleted_there = false;  ///< this session deleted it there
  std::optional<bool> was_deleted_here = {};
  int64_t dead_bytes = 0;

  bool NeedsServer() const {
    return account != -1 && number != kDeletedOnServer && number != kNeverOnServer;
  }
};

bool MailEngine::DeleteMessage(const Any& ids, EDelType type) {
  if (!Ready()) return false;
  const auto numbers = ReadMessageIds(ids);
  if (!numbers) {
    SetError(error::NoMessageGiven);
    return false;
  }
  int64_t dead_bytes = 0;
  Remembered remembered(*this);
  bool loaded = false;
  try {
    std::vector<Doomed> rows = ReadDoomed(*numbers);
    for (size_t first = 0; first < rows.size();) {
      size_t end = first + 1;
      while (end < rows.size() && rows[end].account == rows[first].account) ++end;
      std::vector<Doomed> group(
          std::make_move_iterator(rows.begin() + static_cast<ptrdiff_t>(first)),
          std::make_move_iterator(rows.begin() + static_cast<ptrdiff_t>(end)));
      dead_bytes += DeleteOfAccount(group, type, loaded);
      first = end;
    }
  } catch (const std::exception& fault) {
    TakeFault("MailEngine.DeleteMessage", fault);
  }
  if (loaded && !remembered.LoadAgain() && NoError()) CopyError(*account_);
  if (dead_bytes > 0) {
    try {
      const auto added = static_cast<int32_t>(std::min<int64_t>(dead_bytes, INT32_MAX));
      RecordDeletedSize(*connection_, account_->UserId(), added);
    } catch (const std::exception& fault) {
      TakeFault("MailEngine.RecordDeletedSize", fault);
    }
  }
  return NoError();
}

/// The user's rows among these, those of one account together.
std::vector<MailEngine::Doomed> MailEngine::ReadDoomed(const std::vector<int32_t>& ids) {
  std::vector<int32_t> unique = ids;
  std::sort(unique.begin(), unique.end());
  unique.erase(std::unique(unique.begin(), unique.end()), unique.end());
  // A list that one statement holds goes into it as it is.
  const std::vector<int32_t>& asked = ids.size() <= kIdsPerStatement ? ids : unique;
  std::vector<Doomed> rows;
  for (size_t first = 0; first < asked.size(); first += kIdsPerStatement) {
    const size_t end = std::min(first + kIdsPerStatement, asked.size());
    std::string statement = "SELECT * FROM mail WHERE id_mail = " + std::to_string(asked[first]);
    for (size_t i = first + 1; i < end; ++i) {
      statement += " OR id_mail = " + std::to_string(asked[i]);
    }
    const auto row = connection_->Open(statement + " ORDER BY id_server");
    for (; !row->Eof(); row->MoveNext()) {
      if (row->Field("id_utente").ToInt32() != account_->UserId()) continue;
      rows.push_back({row->Field("id_mail").ToInt32().value_or(0),
                      row->Field("id_server").ToInt32().value_or(-1),
                      row->Field("IdSulServer").ToInt32().value_or(kNeverOnServer),
                      row->Field("id_cartella").ToInt32().value_or(0),
                      row->Field("campo_received").ToText(), row->Field("campo_MessageId").ToText(),
                      MessageTraits::OfRow(*row, *account_)});
    }
    row->Close();
  }
  std::stable_sort(rows.begin(), rows.end(),
                   [](const Doomed& a, const Doomed& b) { return a.account < b.account; });
  return rows;
}

/// The rows of one account, over at most one session; how many bytes died. `loaded` becomes true
/// when another account was loaded for it.
int64_t MailEngine::DeleteOfAccount(std::vector<Doomed>& rows, EDelType type, bool& loaded) {
  Session session(*this);
  bool refused = false;  // one try: a second one after a wrong password could lock the account
  for (Doomed& row : rows) {
    account_->BoxId(row.box);
    if (type == EDelType::DEL_TYPE_LOCALE || (DeletesOnServer(type) && !row.NeedsServer())) {
      row.server_done = true;
    } else if (DeletesOnServer(type) && !refused) {
      loaded = true;
      DeleteOnServer(row, session, refused);
    }
  }
  if (session.IsOpen() && !server_->IsIdle()) {
    // The session died: what it deleted is still on the server.
    for (Doomed& row : rows) row.server_done = row.server_done && !row.deleted_there;
    if (NoError()) SetError(error::ReceiveFailed);
  }
  std::erase_if(rows, [](const Doomed& row) { return !row.server_done; });
  ServerDeletions deletions;
  int64_t dead_bytes = 0;
  try {
    dead_bytes = MarkDeleted(rows, type, deletions);
  } catch (const std::exception& fault) {
    TakeFault("MailEngine.DeleteMessage", fault);
    session.End(nullptr, false);
    return 0;
  }
  if (!session.End(&deletions, true)) {
    for (const Doomed& row : rows) {
      if (row.deleted_there && !row.was_deleted_here.value_or(false)) dead_bytes -= row.dead_bytes;
    }
  }
  return dead_bytes;
}

void MailEngine::DeleteOnServer(Doomed& row, Session& session, bool& refused) {
  if (!session.IsOpen()) {
    if (!account_->LoadAccount(row.account)) {
      CopyError(*account_);
      refused = true;
      return;
    }
    if (!session.Open()) {
      refused = true;
      return;
    }
  }
  if (server_->FindAndDeleteMessage(row.number, row.received, row.message_id, &row.traits)) {
    row.server_done = row.deleted_there = true;
    return;
  }
  CopyError(*server_);
  if (NoError()) SetError(error::ReceiveFailed);
}

/// The changes of all rows in one transaction.
int64_t MailEngine::MarkDeleted(std::vector<Doomed>& rows, EDelType type,
                                ServerDeletions& deletions) {
  if (rows.empty()) return 0;
  const MessageFileLock lock(*connection_, *account_);
  RetriedTransaction(
      *connection_, Transaction::Kind::kPlain,
      [&] {
        for (Doomed& doomed : rows) {
          doomed.dead_bytes = 0;
          const auto row = OpenRow(doomed.id_mail);
          if (row->Eof()) continue;  // compacted away in the meantime
          if (!doomed.was_deleted_here) {
            doomed.was_deleted_here = row->Field("Cancellata").ToBool().value_or(false);
          }
          if (doomed.deleted_there) row->SetField("IdSulServer", kDeletedOnServer);
          if (DeletesHere(type)) row->SetField("Cancellata", true);
          row->Update();
          if (row->Field("Cancellata").ToBool().value_or(false) &&
              row->Field("body_scaricato").ToInt64().value_or(-1) != -1) {
            const int64_t size = row->Field("dimensione").ToInt64().value_or(0);
            doomed.dead_bytes = size > 0 ? size : kEstimatedSize;
          }
          row->Close();
        }
      },
      MadeAgain);
  int64_t dead_bytes = 0;
  std::vector<ServerDeletions::Row> marked;
  for (const Doomed& doomed : rows) {
    dead_bytes += doomed.dead_bytes;
    if (doomed.deleted_there) {
      marked.push_back({doomed.id_mail, doomed.number,
                        DeletesHere(type) && !doomed.was_deleted_here.value_or(false)});
    }
  }
  deletions.Remember(marked);
  return dead_bytes;
}

}  // namespace korvane
