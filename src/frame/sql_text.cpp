#include "frame/sql_text.h"

#include <algorithm>

namespace korvane {

std::string DoubleQuotes(std::string_view text) {
  std::string doubled;
  doubled.reserve(text.size() + static_cast<size_t>(std::ranges::count(text, '\'')));
  for (const char c : text) {
    doubled += c;
    if (c == '\'') doubled += c;
  }
  return doubled;
}

Any FirstValue(Connection& connection, const std::string& statement) {
  const auto rows = connection.Execute(statement);
  return rows->Eof() ? Any(nullptr) : rows->FieldAt(0);
}

int32_t NextIdentifier(Connection& connection, const std::string& statement) {
  const Any greatest = FirstValue(connection, statement);
  if (greatest.IsNull()) return 1;
  const auto number = greatest.ToInt64();
  if (!number || *number < 0 || *number >= INT32_MAX) {
    throw DatabaseError(DatabaseError::Kind::kOther, "no identifier is left");
  }
  return static_cast<int32_t>(*number + 1);
}

bool HasMessageOf(Connection& connection, int32_t user_id, int32_t id_mail) {
  const auto row =
      connection.Execute("SELECT id_utente FROM mail WHERE id_mail=" + std::to_string(id_mail));
  return !row->Eof() && row->Field("id_utente").ToInt32() == user_id;
}

}  // namespace korvane
