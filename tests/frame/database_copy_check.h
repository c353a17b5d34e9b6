// A database copied to another engine, whole, in two goes, and with a fault in it.
#pragma once

#include <gmock/gmock.h>

#include "frame/database_copy.h"
#include "frame/recordset_contract.h"

namespace korvane::test {

/// Accounts, bookkeeping, and rows with every awkward text and a date of the year 1.
inline void FillForACopy(Connection& connection) {
  connection.Execute(
      "INSERT INTO account_email (Id_account_email, Nome_server, Porta_server, Time_out_server, "
      "Username_server, Password_server, caso) VALUES (31, 'pop.example.com', 110, 5000, 'ada', "
      "'it''s \\ secret', NULL)");
  connection.Execute(
      "INSERT INTO account_email_utenti (Id_account_email_utenti, id_utente, "
      "Id_account_email) VALUES (1, 7, 31)");
  connection.Execute("INSERT INTO utenti (id_utente, Account_default) VALUES (7, 1)");
  connection.Execute("INSERT INTO utenti (id_utente, Account_default) VALUES (8, NULL)");
  connection.Execute(
      "INSERT INTO Pulizia (id_pulizia, id_utente, dim_msg_canc_file) VALUES (4, 7, "
      "99)");
  const auto kept = connection.Open("ultimi_scaricamenti");
  kept->AddNew();
  kept->SetField("Id_scaricamento", 1);
  kept->SetField("id_utente", 7);
  kept->SetField("id_server", 31);
  kept->SetField("Data", "01/01/0001 00:00:00");
  kept->SetField("Error", true);
  kept->Update();
  Transaction transaction(connection);
  for (int32_t i = 1; i <= 1203; ++i) {
    Add(connection, {.id = i * 2,
                     .sender = i % 3 ? "l''ora \\ Citt\xC3\xA0" : "",
                     .recipient = std::string(static_cast<size_t>(i % 50) * 100, 'r'),
                     .date = i % 7 ? "5/3/2002 9:5:7" : "01/01/0001 00:00:00",
                     .subject = "\xF0\x9F\x93\xA7 " + std::to_string(i),
                     .deleted = i % 5 == 0,
                     .position = i * 100});
  }
  transaction.Commit();
}

/// Two empty databases of any engines.
inline void ACopyIsWholeAndGoesOnWhereItWasBrokenOff(Engine& from, Engine& to) {
  FillForACopy(*from.connection);
  struct Broken {};
  EXPECT_THROW(CopyDatabase(*from.connection, *to.connection,
                            [](const CopiedTable& table) {
                              if (table.name == "mail") throw Broken();
                            }),
               Broken);
  EXPECT_EQ(Number(FirstValue(*to.connection, "SELECT COUNT(*) FROM mail")), 500);
  EXPECT_EQ(FirstDifference(*from.connection, *to.connection),
            "mail, id_mail 1002: only in one of the two");

  const auto copied = CopyDatabase(*from.connection, *to.connection);
  const auto mail = std::ranges::find(copied, "mail", &CopiedTable::name);
  ASSERT_NE(mail, copied.end());
  EXPECT_EQ(mail->there, 500);
  EXPECT_EQ(mail->copied, 703);
  EXPECT_EQ(FirstDifference(*from.connection, *to.connection), "");
  EXPECT_EQ(Number(FirstValue(*to.connection,
                              "SELECT COUNT(*) AS NumMail FROM mail WHERE id_utente=7 AND "
                              "id_cartella=1AND Cancellata=0")),
            1203 - 240);

  to.connection->Execute("UPDATE mail SET oggetto='x' WHERE id_mail=1200");
  EXPECT_EQ(FirstDifference(*from.connection, *to.connection), "mail, id_mail 1200, oggetto");
  from.connection->Execute("UPDATE mail SET oggetto='x' WHERE id_mail=1200");
  to.connection->Execute("DELETE FROM Pulizia");
  EXPECT_EQ(FirstDifference(*from.connection, *to.connection),
            "Pulizia, id_pulizia 4: only in one of the two");
}

}  // namespace korvane::test
