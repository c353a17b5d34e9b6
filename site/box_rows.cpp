#include "box_rows.h"

#include <algorithm>

namespace korvane::site {

namespace {

int64_t Number(Connection& database, const std::string& statement) {
  const auto rows = database.Execute(statement);
  return rows->Eof() ? 0 : rows->Field("n").ToInt64().value_or(0);
}

std::string OfUser(int32_t user) { return " WHERE id_utente=" + std::to_string(user); }

}  // namespace

int64_t CountAccountRows(Connection& database, int32_t user, int32_t account) {
  return Number(database, "SELECT COUNT(*) AS n FROM mail" + OfUser(user) +
                              " AND id_server=" + std::to_string(account));
}

std::vector<BoxCount> CountBoxes(Connection& database, int32_t user) {
  std::vector<BoxCount> boxes = {{kInbox, 0, 0}, {kDrafts, 0, 0}};
  const auto place = [&](int32_t box) -> BoxCount& {
    const auto found = std::ranges::find(boxes, box, &BoxCount::box);
    if (found != boxes.end()) return *found;
    return boxes.emplace_back(BoxCount{box, 0, 0});
  };
  // The counts that the schema keeps by triggers, where it does: counting a large box takes longer
  // than the rest of a page.
  const bool keeps_messages = database.HasTable("conteggi_cartelle");
  const bool keeps_unread = database.HasTable("conteggi_non_letti");
  if (keeps_messages && keeps_unread) {
    for (auto rows = database.Execute(
             "SELECT tutti.id_cartella, tutti.numero, nuovi.numero FROM conteggi_cartelle tutti"
             " LEFT JOIN conteggi_non_letti nuovi ON nuovi.id_utente=tutti.id_utente"
             " AND nuovi.id_cartella=tutti.id_cartella WHERE tutti.id_utente=" +
             std::to_string(user) + " AND tutti.Cancellata=0");
         !rows->Eof(); rows->MoveNext()) {
      const int64_t messages = rows->FieldAt(1).ToInt64().value_or(0);
      if (messages <= 0) continue;
      BoxCount& box = place(rows->FieldAt(0).ToInt32().value_or(0));
      box.messages = messages;
      box.unread = rows->FieldAt(2).ToInt64().value_or(0);
    }
    std::ranges::sort(boxes, {}, &BoxCount::box);
    return boxes;
  }
  const std::string where = OfUser(user) + " AND Cancellata=0";
  const auto each = [&](const std::string& statement, int64_t BoxCount::*count) {
    for (auto rows = database.Execute(statement); !rows->Eof(); rows->MoveNext()) {
      const int64_t number = rows->Field("n").ToInt64().value_or(0);
      if (number > 0) place(rows->Field("id_cartella").ToInt32().value_or(0)).*count = number;
    }
  };
  each(keeps_messages
           ? "SELECT id_cartella, numero AS n FROM conteggi_cartelle" + where
           : "SELECT id_cartella, COUNT(*) AS n FROM mail" + where + " GROUP BY id_cartella",
       &BoxCount::messages);
  if (keeps_unread) {
    each("SELECT id_cartella, numero AS n FROM conteggi_non_letti" + OfUser(user),
         &BoxCount::unread);
  } else {
    for (BoxCount& box : boxes) {
      // Only as far as it is shown: "99+".
      for (auto rows = database.Execute("SELECT TOP " + std::to_string(kMostUnreadShown + 1) +
                                        " id_mail FROM mail" + OfUser(user) + " AND id_cartella=" +
                                        std::to_string(box.box) + " AND Cancellata=0 AND Letto=0");
           !rows->Eof(); rows->MoveNext()) {
        ++box.unread;
      }
    }
  }
  std::ranges::sort(boxes, {}, &BoxCount::box);
  return boxes;
}

int32_t UndoDeletion(Connection& database, int32_t user, const std::vector<int32_t>& ids) {
  int32_t undone = 0;
  for (const int32_t id : ids) {
    const auto row = database.Open("SELECT * FROM mail WHERE id_mail=" + std::to_string(id) +
                                   " AND id_utente=" + std::to_string(user));
    if (row->Eof() || !row->Field("Cancellata").ToBool().value_or(false)) continue;
    row->SetField("Cancellata", false);
    row->Update();
    row->Close();
    ++undone;
  }
  return undone;
}

std::vector<int32_t> HeadersOnly(Connection& database, int32_t user,
                                 const std::vector<int32_t>& ids) {
  std::vector<int32_t> found;
  for (const int32_t id : ids) {
    const auto row = database.Execute("SELECT body_scaricato FROM mail" + OfUser(user) +
                                      " AND id_mail=" + std::to_string(id));
    if (!row->Eof() && row->Field("body_scaricato").ToInt64().value_or(0) == -1)
      found.push_back(id);
  }
  return found;
}

int32_t AccountOfMessage(Connection& database, int32_t user, int32_t id) {
  const auto row = database.Execute("SELECT id_server FROM mail" + OfUser(user) +
                                    " AND id_mail=" + std::to_string(id));
  return row->Eof() ? 0 : row->Field("id_server").ToInt32().value_or(0);
}

DeadBytes CountDeadBytes(Connection& database, int32_t user) {
  DeadBytes bytes;
  bytes.counted = Number(database, "SELECT dim_msg_canc_file AS n FROM Pulizia" + OfUser(user));
  const std::string sum =
      "SELECT SUM(dimensione) AS n FROM mail" + OfUser(user) + " AND Cancellata=";
  bytes.dead = Number(database, sum + "-1 AND body_scaricato<>-1");
  bytes.live = Number(database, sum + "0 AND body_scaricato<>-1");
  return bytes;
}

}  // namespace korvane::site
