#include "message/renumbering_plan.h"

#include <charconv>
#include <stdexcept>
#include <string_view>
#include <unordered_map>

#include "frame/files.h"

namespace korvane {

namespace {

/// Takes a number and the character behind it from the front of a text.
template <class Number>
bool TakeNumber(std::string_view& text, char end, Number& number) {
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
  if (read.ec != std::errc()) return false;
  text.remove_prefix(static_cast<size_t>(read.ptr - text.data()));
  if (!text.starts_with(end)) return false;
  text.remove_prefix(1);
  return true;
}

}  // namespace

std::string PlanFilePath(const std::string& path_messages, int32_t user_id) {
  if (path_messages.empty()) return {};
  return JoinPath(path_messages, std::to_string(user_id) + "_Messaggi_pos.dat");
}

bool WritePlan(const std::string& path_messages, int32_t user_id, const RenumberingPlan& plan) {
  std::string text = std::to_string(plan.size()) + "\n";
  for (const Renumbering& row : plan) {
    text += std::to_string(row.id) + " " + std::to_string(row.from) + " " + std::to_string(row.to) +
            "\n";
  }
  return WriteWholeFile(PlanFilePath(path_messages, user_id), text, true) &&
         SyncDirectory(path_messages);
}

std::optional<RenumberingPlan> ReadPlan(const std::string& path_messages, int32_t user_id) {
  const std::string path = PlanFilePath(path_messages, user_id);
  if (!FileExists(path)) return std::nullopt;
  std::string bytes;
  bool ok = ReadWholeFile(path, bytes);
  std::string_view text = bytes;
  int32_t count = 0;
  ok = ok && TakeNumber(text, '\n', count);
  RenumberingPlan plan;
  while (ok && !text.empty()) {
    Renumbering row;
    ok = TakeNumber(text, ' ', row.id) && TakeNumber(text, ' ', row.from) &&
         TakeNumber(text, '\n', row.to);
    if (ok) plan.push_back(row);
  }
  if (!ok || count < 0 || plan.size() != static_cast<size_t>(count)) {
    throw std::runtime_error("cannot read " + path);
  }
  return plan;
}

void ApplyPlan(Connection& connection, int32_t user_id, const RenumberingPlan& plan) {
  const std::string user = std::to_string(user_id);
  std::unordered_map<int32_t, const Renumbering*> moved;
  for (const Renumbering& row : plan) {
    if (row.from == row.to) continue;
    moved.emplace(row.id, &row);
    connection.Execute("UPDATE mail SET body_scaricato=" + std::to_string(row.to) +
                       " WHERE id_mail=" + std::to_string(row.id) + " AND id_utente=" + user +
                       " AND body_scaricato=" + std::to_string(row.from));
  }
  const auto rows =
      connection.Execute("SELECT id_mail, body_scaricato FROM mail WHERE id_utente=" + user +
                         " AND body_scaricato<>-1");
  for (; !rows->Eof(); rows->MoveNext()) {
    const auto found = moved.find(rows->Field("id_mail").ToInt32().value_or(0));
    if (found == moved.end()) continue;
    if (rows->Field("body_scaricato").ToInt64() == found->second->from) {
      throw DatabaseError(DatabaseError::Kind::kOther, "a row's position was not changed");
    }
  }
  rows->Close();
}

}  // namespace korvane
