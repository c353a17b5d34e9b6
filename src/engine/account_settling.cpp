#include "engine/account_settling.h"

#include <string>

#include "engine/last_download.h"
#include "facade/mail_user.h"
#include "frame/retried_transaction.h"
#include "pop3/received_time.h"

namespace korvane {
namespace {

/// Messages deleted here and compacted away, as far as the server still holds them.
constexpr std::string_view kForgottenMessages = "messaggi_eliminati";

void MarkRows(Connection& connection, const MailUser& account, bool with_all_older) {
  const std::string condition = " WHERE id_utente=" + std::to_string(account.UserId()) +
                                " AND id_server=" + std::to_string(account.AccountId());
  const std::string mark = with_all_older ? "-1" : "0";
  const auto set = [&](std::string_view table) {
    connection.Execute("UPDATE " + std::string(table) + " SET DwnldCorrettoFAQ=" + mark +
                       condition + " AND DwnldCorrettoFAQ<>" + mark);
  };
  const bool has_forgotten = connection.HasTable(kForgottenMessages);
  RetriedTransaction(
      connection, Transaction::Kind::kPlain,
      [&] {
        set("mail");
        if (has_forgotten) set(kForgottenMessages);
      },
      MadeAgain);
}

}  // namespace

void SettleAccount(Connection& connection, const MailUser& account,
                   std::string_view newest_received) {
  MarkRows(connection, account, true);
  const ScanTime newest = MessageTime(newest_received);
  if (newest.readable) WriteLastDownload(connection, account, {newest.text, false});
}

void UnsettleAccount(Connection& connection, const MailUser& account) {
  // The flag first: whatever happens in between, the next run looks messages up.
  WriteLastDownload(connection, account, {std::string(kFirstMoment), true});
  MarkRows(connection, account, false);
}

}  // namespace korvane
