#include "message/mail_messages.h"

#include <algorithm>
#include <limits>

#include "facade/mail_user.h"
#include "frame/debug_log.h"
#include "frame/error_numbers.h"

namespace korvane {

namespace {

std::string OrderClause(const MailMessages::ListRequest& request, bool reversed) {
  std::string_view column;
  switch (request.order) {
    case EMailOrder::ORDER_DATA:
      column = "Data";
      break;
    case EMailOrder::ORDER_NAME:
      column = "mittente";
      break;
    case EMailOrder::ORDER_OBJECT:
      column = "oggetto";
      break;
    case EMailOrder::ORDER_SIZE:
      column = "dimensione";
      break;
    case EMailOrder::ORDER_NAME_TO:
      column = "destinatario";
      break;
    default:
      column = "id_mail";
  }
  const auto direction = [reversed](EMailOrderDirection wanted) -> std::string_view {
    if (wanted == EMailOrderDirection::ORDER_ASC) return reversed ? " DESC" : " ASC";
    if (wanted == EMailOrderDirection::ORDER_DESC) return reversed ? " ASC" : " DESC";
    return {};
  };
  std::string clause(column);
  clause += direction(request.direction);
  if (column != "Data" && column != "id_mail") {
    const std::string_view second = direction(request.date_direction);
    if (!second.empty()) clause.append(", Data").append(second);
  }
  return clause;
}

}  // namespace

void MailMessages::Add(std::shared_ptr<MailMessage> oMessage, int32_t lKey) {
  ClearError();
  items_.Add(std::move(oMessage), lKey);
}

std::shared_ptr<MailMessage> MailMessages::ItemIndex(int32_t lIndex) {
  ClearError();
  auto item = items_.AtPosition(lIndex);
  if (!item) SetError(kNoSuchPosition);
  return item;
}

std::shared_ptr<MailMessage> MailMessages::Item(int32_t lKey) {
  ClearError();
  auto item = items_.WithKey(lKey);
  if (!item) SetError(kNoSuchKey);
  return item;
}

bool MailMessages::ListBox(const std::shared_ptr<MailUser>& account, Connection& connection,
                           const ListRequest& request, Any* tot_pages, Any* tot_mails) {
  ClearError();
  try {
    ReadPage(account, connection, request, tot_pages, tot_mails);
  } catch (const DatabaseError& fault) {
    SetError(error::DatabaseFault);
    WriteDebugLog(account->DebugMode(), account->PathLog(), "MailMessages.ListBox", fault.what());
  }
  return NoError();
}

void MailMessages::ReadPage(const std::shared_ptr<MailUser>& account, Connection& connection,
                            const ListRequest& request, Any* tot_pages, Any* tot_mails) {
  constexpr int64_t kMost = std::numeric_limits<int32_t>::max();
  const std::string user = std::to_string(account->UserId());
  const std::string box = std::to_string(account->BoxId());
  const bool whole_box = request.page == -1;

  int64_t first = 1;
  int64_t last = 0;
  bool reversed = false;
  if (!whole_box) {
    // The number runs into AND: so the statement has always been written.
    const auto counted =
        connection.Execute("SELECT COUNT(*) AS NumMail FROM mail WHERE id_utente=" + user +
                           " AND id_cartella=" + box + "AND Cancellata=0");
    const int64_t mails = counted->Field("NumMail").ToInt64().value_or(0);
    counted->Close();
    const int64_t size = account->MailListPageSize();
    const int64_t pages = size > 0 ? mails / size + (mails % size != 0 ? 1 : 0) : 0;
    if (tot_mails) *tot_mails = Any(std::min(mails, kMost));
    if (tot_pages) *tot_pages = Any(std::min(pages, kMost));
    if (size <= 0 || request.page < 1 || request.page > pages) {
      if (size <= 0 || request.page != 1 || mails != 0) SetError(error::PageOutOfRange);
      return;
    }
    first = (request.page - 1) * size + 1;
    last = std::min(first + size - 1, mails);
    // A page of the back half is read from the other end, backwards.
    reversed = first + last > mails;
    if (reversed) {
      const int64_t old_first = first;
      first = mails - last + 1;
      last = mails - old_first + 1;
    }
  }

  std::string statement = whole_box ? "SELECT" : "SELECT TOP " + std::to_string(last);
  statement += " * FROM mail WHERE id_utente=" + user + " AND id_cartella=" + box +
               " AND Cancellata=0 ORDER BY " + OrderClause(request, reversed);
  const auto rows = connection.Open(statement);
  const auto take = [&] {
    auto message = std::make_shared<MailMessage>();
    message->SetAccount(account);
    if (!message->FillFromRow(*rows)) SetError(error::RowNotRead);
    const int32_t id = message->Id();
    items_.Add(std::move(message), id);
  };
  if (!rows->Eof()) {
    if (reversed) {
      rows->MoveLast();
      for (int64_t left = last - first + 1; left > 0 && !rows->Eof(); --left) {
        take();
        if (left > 1) rows->MovePrevious();
      }
    } else {
      if (first > 1) rows->Move(first - 1);
      for (; !rows->Eof(); rows->MoveNext()) take();
    }
  }
  rows->Close();
  if (whole_box && tot_mails) *tot_mails = Any(Count());
}

}  // namespace korvane
