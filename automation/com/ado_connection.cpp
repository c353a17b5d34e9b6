#include "ado_connection.h"

#include <windows.h>

#include <array>

#include "ado_recordset.h"

namespace korvane::com {

namespace {

constexpr LONG kCursorLocation = static_cast<LONG>(CursorLocation::kServer);
constexpr LONG kCursorType = static_cast<LONG>(CursorType::kDynamic);
constexpr LONG kLockType = static_cast<LONG>(LockType::kOptimistic);

bool SettingsSayMonthFirst() {
  wchar_t order[4] = {};
  GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_IDATE, order, 4);
  return order[0] == L'0';
}

}  // namespace

AdoConnection::AdoConnection(Reference<IDispatch> connection)
    : connection_(std::move(connection)), month_first_(SettingsSayMonthFirst()) {}

std::shared_ptr<Recordset> AdoConnection::Execute(const std::string& statement) {
  Variant text = Variant::Text(statement);
  const Variant rows = connection_.Get("Execute", text);
  if (rows.vt != VT_DISPATCH && rows.vt != VT_UNKNOWN) {
    return std::make_shared<AdoRecordset>(LateBound(), month_first_);
  }
  return std::make_shared<AdoRecordset>(ObjectOf(rows, "Execute"), month_first_);
}

std::shared_ptr<Recordset> AdoConnection::Open(const std::string& statement) {
  const LateBound rows = CreateLateBound("ADODB.Recordset");
  rows.Put("CursorLocation", Variant::Number(kCursorLocation));
  rows.Put("CursorType", Variant::Number(kCursorType));
  rows.Put("LockType", Variant::Number(kLockType));
  const Variant text = Variant::Text(statement);
  const Variant connection = Variant::Object(connection_.get());
  std::array<VARIANT, 2> arguments = {text, connection};
  rows.Get("Open", arguments);
  return std::make_shared<AdoRecordset>(rows, month_first_);
}

bool AdoConnection::HasTable(std::string_view name) {
  const auto known = tables_.find(std::string(name));
  if (known != tables_.end()) return known->second;
  bool there = true;
  try {
    Execute("SELECT * FROM " + std::string(name) + " WHERE 1=0");
  } catch (const DatabaseError& fault) {
    if (fault.kind() != DatabaseError::Kind::kOther) throw;
    there = false;
  }
  tables_.emplace(name, there);
  return there;
}

}  // namespace korvane::com
