#include "ado_recordset.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "../arguments.h"
#include "frame/database_values.h"
#include "values.h"

namespace korvane::com {

namespace {

/// The columns of dates. Their texts cross as dates, which nobody reads month first.
constexpr std::string_view kDateColumns[] = {"data", "data1", "data3"};

bool IsDateColumn(std::string_view name) {
  return std::ranges::any_of(kDateColumns, [&](auto date) { return SameName(date, name); });
}

[[noreturn]] void Fail(const std::string& what) {
  throw DatabaseError(DatabaseError::Kind::kOther, what);
}

Any CellOf(const Variant& given, std::string_view name, bool month_first) {
  const VARIANT* value = Behind(given);
  const VARTYPE type = value ? value->vt & static_cast<VARTYPE>(~VT_BYREF) : VT_EMPTY;
  if (!value || type == VT_DISPATCH || type == VT_UNKNOWN) {
    Fail("column " + std::string(name) + ": the value is none");
  }
  if (type == VT_DATE && (value->vt & VT_BYREF) == 0) {
    auto date = DateText(value->date, month_first);
    if (!date) Fail("column " + std::string(name) + ": the value is no date");
    return *std::move(date);
  }
  try {
    Any cell = FromVariant(*value, model::Type::kAny);
    // A driver without a type for dates hands over what the table holds.
    if (cell.IsText() && IsDateColumn(name)) return korvane::DateText(cell.ToText(), month_first);
    return cell;
  } catch (const automation::ArgumentError& mistake) {
    Fail("column " + std::string(name) + ": " + mistake.what());
  }
}

Variant StoredValue(const Any& value, std::string_view name, bool month_first) {
  if (value.IsObject()) Fail("column " + std::string(name) + ": an object is no value");
  if (!value.IsText()) return ToVariant(value, nullptr);
  if (IsDateColumn(name)) {
    if (const auto date = DateOf(value.ToText(), month_first)) {
      Variant stored;
      stored.vt = VT_DATE;
      stored.date = *date;
      return stored;
    }
  }
  return Variant::Text(StorableText(value.ToText()));
}

}  // namespace

AdoRecordset::~AdoRecordset() {
  if (!open_) return;
  try {
    if (changing_) rows_.Get("CancelUpdate");
    if (rows_) rows_.Get("Close");
  } catch (const std::exception&) {
    // A statement without rows leaves a closed one; and with the last reference it is closed
    // anyway.
  }
}

void AdoRecordset::Do(std::string_view name) {
  if (!open_ || !rows_) Fail(std::string(name) + ": the recordset is closed");
  rows_.Get(name);
}

bool AdoRecordset::Eof() const {
  if (!open_ || !rows_) Fail("EOF: the recordset is closed");
  if (place_ && *place_ < 0) return true;
  Variant answer = rows_.Get("EOF");
  Variant truth;
  if (FAILED(VariantChangeTypeEx(&truth, &answer, LOCALE_INVARIANT, 0, VT_BOOL))) {
    Fail("EOF: the answer is neither true nor false");
  }
  return truth.boolVal != VARIANT_FALSE;
}

void AdoRecordset::MoveNext() {
  Do("MoveNext");
  if (place_) ++*place_;
}

void AdoRecordset::MovePrevious() {
  Do("MovePrevious");
  if (place_) --*place_;
}

void AdoRecordset::Move(int64_t rows) {
  if (!open_ || !rows_) Fail("Move: the recordset is closed");
  constexpr int64_t kFarthest = std::numeric_limits<LONG>::max();
  Variant count = Variant::Number(static_cast<LONG>(std::clamp(rows, -kFarthest, kFarthest)));
  rows_.Get("Move", count);
  if (place_) *place_ += rows;
}

void AdoRecordset::MoveLast() {
  Do("MoveLast");
  place_.reset();
}

LateBound AdoRecordset::Cell(VARIANT& key) const {
  if (!open_ || !rows_) Fail("Fields: the recordset is closed");
  return ObjectOf(rows_.Get("Fields", key), "Fields");
}

Any AdoRecordset::Field(std::string_view name) const {
  Variant key = Variant::Text(name);
  return CellOf(Cell(key).Get("Value"), name, month_first_);
}

Any AdoRecordset::FieldAt(size_t column) const {
  Variant key = Variant::Number(static_cast<LONG>(column));
  return CellOf(Cell(key).Get("Value"), std::to_string(column), month_first_);
}

void AdoRecordset::SetField(std::string_view name, const Any& value) {
  Variant key = Variant::Text(name);
  const LateBound cell = Cell(key);
  changing_ = true;
  cell.Put("Value", StoredValue(value, name, month_first_));
}

void AdoRecordset::AddNew() {
  Do("AddNew");
  changing_ = true;
}

void AdoRecordset::Update() {
  Do("Update");
  changing_ = false;
}

void AdoRecordset::CancelUpdate() {
  Do("CancelUpdate");
  changing_ = false;
}

void AdoRecordset::Close() {
  if (!open_) return;
  open_ = false;
  if (!rows_) return;
  if (changing_) rows_.Get("CancelUpdate");
  rows_.Get("Close");
}

}  // namespace korvane::com
