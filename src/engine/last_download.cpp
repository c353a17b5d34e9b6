#include "engine/last_download.h"

#include "facade/mail_user.h"
#include "frame/retried_transaction.h"
#include "frame/sql_text.h"
#include "mime/mail_date.h"
#include "pop3/received_time.h"

namespace korvane {
namespace {

std::shared_ptr<Recordset> OpenRow(Connection& connection, const MailUser& account) {
  return connection.Open(
      "SELECT * FROM ultimi_scaricamenti WHERE id_utente=" + std::to_string(account.UserId()) +
      " AND id_server=" + std::to_string(account.AccountId()));
}

void AddRow(Connection& connection, const MailUser& account, Recordset& row) {
  const int32_t id =
      NextIdentifier(connection, "SELECT MAX(Id_scaricamento) FROM ultimi_scaricamenti");
  row.AddNew();
  row.SetField("Id_scaricamento", id);
  row.SetField("id_server", account.AccountId());
  row.SetField("id_utente", account.UserId());
}

}  // namespace

LastDownload ReadLastDownload(Connection& connection, const MailUser& account,
                              bool first_download) {
  LastDownload state;
  // Allocating, also where the row is there: a run that died may have left a commit behind that its
  // server is still at work on, and the look-ups that follow have to see its rows.
  // Made twice, it finds its own mark and looks every message up: that costs time and nothing else.
  RetriedTransaction(
      connection, Transaction::Kind::kAllocating,
      [&] {
        const auto row = OpenRow(connection, account);
        if (row->Eof()) {
          state = {std::string(kFirstMoment), !first_download};
          AddRow(connection, account, *row);
          row->SetField("Data", ArrangeDateOrder(state.time, account.DayFirst()));
        } else {
          const Any time = row->Field("Data");
          state.time = time.ToText().empty()
                           ? std::string(kFirstMoment)
                           : PadDate(ArrangeDateOrder(time.ToText(), account.DayFirst()));
          state.look_up = row->Field("Error").ToBool().value_or(true);
        }
        row->SetField("Error", true);
        row->Update();
        row->Close();
      },
      MadeAgain);
  return state;
}

void WriteLastDownload(Connection& connection, const MailUser& account, const LastDownload& state) {
  RetriedTransaction(
      connection, Transaction::Kind::kAllocating,
      [&] {
        const auto row = OpenRow(connection, account);
        if (row->Eof()) AddRow(connection, account, *row);
        row->SetField("Data", ArrangeDateOrder(state.time, account.DayFirst()));
        row->SetField("Error", state.look_up);
        row->Update();
        row->Close();
      },
      MadeAgain);
}

}  // namespace korvane
