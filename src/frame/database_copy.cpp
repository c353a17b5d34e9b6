#include "frame/database_copy.h"

#include <algorithm>
#include <span>
#include <string_view>

#include "frame/sql_text.h"

namespace korvane {

namespace {

constexpr int kBatchRows = 500;

struct Table {
  std::string_view name;
  std::string_view key;
  std::vector<std::string_view> columns;  ///< beside the key
};

/// What a row refers to comes before it. The counts of the boxes follow from "mail" by themselves,
/// and the prepared row of "testdata" is part of the schema.
std::span<const Table> Tables() {
  static const std::vector<Table> kTables = {
      {"account_email",
       "Id_account_email",
       {"Nome_server", "Porta_server", "Time_out_server", "Username_server", "Password_server",
        "caso"}},
      {"account_email_utenti", "Id_account_email_utenti", {"id_utente", "Id_account_email"}},
      {"utenti", "id_utente", {"Account_default"}},
      {"mail",
       "id_mail",
       {"id_utente", "id_server", "id_cartella", "Letto", "mittente", "destinatario", "data",
        "oggetto", "dimensione", "campo_received", "campo_MessageId", "allegati", "body_scaricato",
        "IdSulServer", "DataDownload", "Cancellata", "DwnldCorrettoFAQ"}},
      {"messaggi_eliminati",
       "id_eliminato",
       {"id_utente", "id_server", "campo_received", "campo_MessageId", "mittente", "oggetto",
        "data", "dimensione", "DwnldCorrettoFAQ"}},
      {"ultimi_scaricamenti", "Id_scaricamento", {"id_utente", "id_server", "Data", "Error"}},
      {"Pulizia", "id_pulizia", {"id_utente", "dim_msg_canc_file"}},
  };
  return kTables;
}

std::string Text(std::string_view text) { return std::string(text); }

/// The rows behind an identifier, as many as a batch takes; all of them from the beginning.
std::shared_ptr<Recordset> Batch(Connection& connection, const Table& table, const Any& behind) {
  std::string statement =
      "SELECT TOP " + std::to_string(kBatchRows) + " * FROM " + Text(table.name);
  if (!behind.IsNull()) statement += " WHERE " + Text(table.key) + ">" + behind.ToText();
  return connection.Execute(statement + " ORDER BY " + Text(table.key));
}

int64_t CountOf(Connection& connection, const Table& table) {
  return FirstValue(connection, "SELECT COUNT(*) FROM " + Text(table.name)).ToInt64().value_or(0);
}

std::string DifferenceIn(const Table& table, Connection& from, Connection& to) {
  Any behind = nullptr;
  while (true) {
    const auto left = Batch(from, table, behind);
    const auto right = Batch(to, table, behind);
    if (left->Eof() && right->Eof()) return "";
    for (; !left->Eof() && !right->Eof(); left->MoveNext(), right->MoveNext()) {
      behind = left->Field(table.key);
      const std::string row = Text(table.name) + ", " + Text(table.key) + " " + behind.ToText();
      if (right->Field(table.key).ToText() != behind.ToText()) {
        return row + " or " + right->Field(table.key).ToText() + ": only in one of the two";
      }
      for (const std::string_view column : table.columns) {
        if (!(left->Field(column) == right->Field(column))) return row + ", " + Text(column);
      }
    }
    if (left->Eof() != right->Eof()) {
      const auto& longer = left->Eof() ? right : left;
      return Text(table.name) + ", " + Text(table.key) + " " + longer->Field(table.key).ToText() +
             ": only in one of the two";
    }
  }
}

}  // namespace

std::vector<CopiedTable> CopyDatabase(Connection& from, Connection& to,
                                      const CopyProgress& progress) {
  std::vector<CopiedTable> copied;
  for (const Table& table : Tables()) {
    CopiedTable state{Text(table.name), CountOf(to, table), 0};
    const std::string greatest = "SELECT MAX(" + Text(table.key) + ") FROM " + Text(table.name);
    Any behind = FirstValue(to, greatest);
    while (true) {
      const auto source = Batch(from, table, behind);
      if (source->Eof()) break;
      Transaction transaction(to);
      const auto target = to.Open(Text(table.name));
      int64_t rows = 0;
      for (; !source->Eof(); source->MoveNext(), ++rows) {
        behind = source->Field(table.key);
        target->AddNew();
        target->SetField(table.key, behind);
        for (const std::string_view column : table.columns) {
          target->SetField(column, source->Field(column));
        }
        target->Update();
      }
      target->Close();
      transaction.Commit();
      state.copied += rows;
      if (progress) progress(state);
    }
    copied.push_back(std::move(state));
  }
  return copied;
}

std::string FirstDifference(Connection& from, Connection& to) {
  for (const Table& table : Tables()) {
    std::string difference = DifferenceIn(table, from, to);
    if (!difference.empty()) return difference;
  }
  return "";
}

}  // namespace korvane
