#include "recordset.h"

#include <algorithm>

#include "ado_errors.h"
#include "cell_value.h"
#include "fields.h"
#include "statement.h"

namespace korvane::test {

namespace {

enum : DISPID {
  kFields = DISPID_VALUE,
  kOpen = 1,
  kClose,
  kEof,
  kBof,
  kMoveNext,
  kMovePrevious,
  kMoveFirst,
  kMoveLast,
  kMove,
  kAddNew,
  kUpdate,
  kCancelUpdate,
  kState,
  kRecordCount,
  kEditMode,
  kSource,
  kActiveConnection,
  kCursorLocation,
  kCursorType,
  kLockType,
};

const LateBound::Member kMembers[] = {
    {L"Fields", kFields, {L"Index"}},
    {L"Open", kOpen, {L"Source", L"ActiveConnection", L"CursorType", L"LockType", L"Options"}},
    {L"Close", kClose, {}},
    {L"EOF", kEof, {}},
    {L"BOF", kBof, {}},
    {L"MoveNext", kMoveNext, {}},
    {L"MovePrevious", kMovePrevious, {}},
    {L"MoveFirst", kMoveFirst, {}},
    {L"MoveLast", kMoveLast, {}},
    {L"Move", kMove, {L"NumRecords", L"Start"}},
    {L"AddNew", kAddNew, {L"FieldList", L"Values"}},
    {L"Update", kUpdate, {L"Fields", L"Values"}},
    {L"CancelUpdate", kCancelUpdate, {}},
    {L"State", kState, {}},
    {L"RecordCount", kRecordCount, {}},
    {L"EditMode", kEditMode, {}},
    {L"Source", kSource, {}},
    {L"ActiveConnection", kActiveConnection, {}},
    {L"CursorLocation", kCursorLocation, {}},
    {L"CursorType", kCursorType, {}},
    {L"LockType", kLockType, {}},
};

constexpr LONG kReadOnly = 1;

}  // namespace

AdoRecordset::AdoRecordset() : LateBound(L"ADODB.Recordset", kMembers) {}

AdoRecordset::AdoRecordset(std::shared_ptr<OdbcSession> session, OdbcRows rows) : AdoRecordset() {
  session_ = std::move(session);
  rows_ = std::move(rows);
  open_ = !rows_.columns.empty();
  row_ = 0;
}

AdoRecordset::~AdoRecordset() {
  if (connection_) connection_->Release();
}

void AdoRecordset::NeedOpen() const {
  if (!open_) throw Fault{kObjectClosed, L"The recordset is closed."};
}

void AdoRecordset::NeedRow() const {
  NeedOpen();
  if (!HasRow() && !adding_) throw Fault{kNoCurrentRecord, L"BOF or EOF is true."};
}

void AdoRecordset::NeedClosed() const {
  if (open_) throw Fault{kObjectOpen, L"The recordset is open."};
}

void AdoRecordset::NeedChangeable() const {
  if (lock_type_ == kReadOnly || key_.empty()) {
    throw Fault{kNotChangeable, L"The rows can only be read."};
  }
}

size_t AdoRecordset::ColumnOf(const Variant& key) const {
  NeedOpen();
  if (key.vt == VT_BSTR) {
    const std::wstring name = key.ToText();
    for (size_t i = 0; i < columns(); ++i) {
      if (lstrcmpiW(rows_.columns[i].name.c_str(), name.c_str()) == 0) return i;
    }
  } else if (const LONG place = key.ToNumber();
             place >= 0 && static_cast<size_t>(place) < columns()) {
    return static_cast<size_t>(place);
  }
  throw Fault{kItemNotFound, L"There is no such field."};
}

Variant AdoRecordset::Value(size_t column) const {
  NeedRow();
  const short type = rows_.columns[column].type;
  if (const auto found = changes_.find(column); found != changes_.end()) {
    return ValueOf(found->second, type);
  }
  if (adding_) return Variant::Null();
  return ValueOf(rows_.cells[static_cast<size_t>(row_) * columns() + column], type);
}

void AdoRecordset::SetValue(size_t column, const Variant& value) {
  NeedRow();
  NeedChangeable();
  Variant plain = value;
  if (value.IsObject()) {
    // The default property of whatever was assigned: another field, as a rule.
    DISPPARAMS none = {};
    plain = Variant();
    const HRESULT status =
        value.pdispVal->Invoke(DISPID_VALUE, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET,
                               &none, &plain, nullptr, nullptr);
    if (FAILED(status)) throw Fault{kInvalidArgument, L"The object has no value."};
  }
  changes_[column] = CellOf(plain, rows_.columns[column].type, session_->dialect());
}

void AdoRecordset::Open(const Arguments& arguments) {
  NeedClosed();
  if (arguments.Given(0)) source_ = arguments.at(0).ToText();
  AdoConnection* connection = nullptr;
  if (arguments.Given(1)) {
    connection = AdoConnection::From(arguments.at(1));
  } else if (connection_) {
    connection_->AddRef();
    connection = AdoConnection::From(Variant::Object(connection_));
  }
  if (!connection) throw Fault{kInvalidConnection, L"There is no connection."};
  if (arguments.Given(2)) cursor_type_ = arguments.at(2).ToNumber();
  if (arguments.Given(3)) lock_type_ = arguments.at(3).ToNumber();
  session_ = connection->session();
  const OdbcStatement statement = Translated(source_, session_->dialect());
  rows_ = session_->Run(statement.text, statement.parameters);
  table_ = statement.table;
  key_ = table_.empty() ? L"" : session_->KeyOf(table_);
  const auto is_key = [&](const OdbcColumn& column) {
    return lstrcmpiW(column.name.c_str(), key_.c_str()) == 0;
  };
  if (std::none_of(rows_.columns.begin(), rows_.columns.end(), is_key)) key_.clear();
  open_ = !rows_.columns.empty();
  row_ = 0;
}

void AdoRecordset::Close() {
  NeedOpen();
  if (adding_ || !changes_.empty()) throw Fault{kIllegalOperation, L"A row is being changed."};
  open_ = false;
  rows_ = {};
}

void AdoRecordset::AddNew() {
  NeedOpen();
  NeedChangeable();
  if (adding_ || !changes_.empty()) Update();
  adding_ = true;
}

OdbcParameter AdoRecordset::Bound(size_t column, const WideCell& cell) const {
  // SQLite takes texts and lets the column decide; PostgreSQL wants to know.
  return {cell,
          session_->dialect() == Dialect::kPostgresql ? rows_.columns[column].type : short{0}};
}

void AdoRecordset::Insert() {
  std::wstring names;
  std::wstring marks;
  std::vector<OdbcParameter> parameters;
  for (const auto& [column, cell] : changes_) {
    names += (names.empty() ? L"" : L",") + Quoted(rows_.columns[column].name);
    marks += marks.empty() ? L"?" : L",?";
    parameters.push_back(Bound(column, cell));
  }
  session_->Run(L"INSERT INTO " + table_ + L" (" + names + L") VALUES (" + marks + L")",
                parameters);
  row_ = Count();
  rows_.cells.resize(rows_.cells.size() + columns());
}

void AdoRecordset::Change() {
  std::wstring sets;
  std::wstring conditions;
  std::vector<OdbcParameter> parameters;
  std::vector<OdbcParameter> compared;
  const auto compare = [&](size_t column, const WideCell& cell) {
    conditions += (conditions.empty() ? L"" : L" AND ") + Quoted(rows_.columns[column].name);
    conditions += cell ? L"=?" : L" IS NULL";
    if (cell) compared.push_back(Bound(column, *cell));
  };
  for (size_t column = 0; column < columns(); ++column) {
    if (lstrcmpiW(rows_.columns[column].name.c_str(), key_.c_str()) == 0) {
      compare(column, CellAt(column));
    }
  }
  for (const auto& [column, cell] : changes_) {
    sets += (sets.empty() ? L"" : L",") + Quoted(rows_.columns[column].name) + L"=?";
    parameters.push_back(Bound(column, cell));
    compare(column, CellAt(column));
  }
  parameters.insert(parameters.end(), compared.begin(), compared.end());
  const OdbcRows changed =
      session_->Run(L"UPDATE " + table_ + L" SET " + sets + L" WHERE " + conditions, parameters);
  if (changed.affected == 0) {
    throw Fault{kRowChanged, L"Somebody else changed the row since it was read."};
  }
}

void AdoRecordset::Update() {
  NeedRow();
  NeedChangeable();
  if (adding_) {
    Insert();
  } else if (!changes_.empty()) {
    Change();
  }
  for (const auto& [column, cell] : changes_) CellAt(column) = cell;
  changes_.clear();
  adding_ = false;
}

void AdoRecordset::CancelUpdate() {
  NeedOpen();
  changes_.clear();
  adding_ = false;
}

void AdoRecordset::Move(long long to) {
  NeedOpen();
  // Leaving a row stores its changes.
  if (adding_ || !changes_.empty()) Update();
  const bool leaves_an_end = (row_ < 0 && to < row_) || (row_ >= Count() && to > row_);
  if (leaves_an_end || Count() == 0) throw Fault{kNoCurrentRecord, L"BOF or EOF is true."};
  row_ = std::max(-1LL, std::min(to, Count()));
}

Variant AdoRecordset::Fields(Use use, const Arguments& arguments) {
  NeedOpen();
  if (use == Use::kPut) {
    SetValue(ColumnOf(arguments.at(0)), arguments.Assigned());
    return {};
  }
  if (arguments.count() > 0) return Variant::Object(new AdoField(this, ColumnOf(arguments.at(0))));
  return Variant::Object(new AdoFields(this));
}

Variant AdoRecordset::Do(DISPID member, Use use, const Arguments& arguments) {
  const auto number = [&](LONG& property) {
    if (use == Use::kPut) {
      NeedClosed();
      property = arguments.Assigned().ToNumber();
    }
    return Variant::Number(property);
  };
  switch (member) {
    case kFields:
      return Fields(use, arguments);
    case kOpen:
      Open(arguments);
      return {};
    case kClose:
      Close();
      return {};
    case kEof:
      NeedOpen();
      return Variant::Boolean(!adding_ && row_ >= Count());
    case kBof:
      NeedOpen();
      return Variant::Boolean(!adding_ && (row_ < 0 || Count() == 0));
    case kMoveNext:
      Move(row_ + 1);
      return {};
    case kMovePrevious:
      Move(row_ - 1);
      return {};
    case kMoveFirst:
      Move(0);
      return {};
    case kMoveLast:
      Move(Count() - 1);
      return {};
    case kMove:
      Move(row_ + arguments.at(0).ToNumber());
      return {};
    case kAddNew:
      AddNew();
      return {};
    case kUpdate:
      Update();
      return {};
    case kCancelUpdate:
      CancelUpdate();
      return {};
    case kState:
      return Variant::Number(open_ ? 1 : 0);
    case kRecordCount:
      NeedOpen();
      return Variant::Number(static_cast<LONG>(Count()));
    case kEditMode:
      return Variant::Number(adding_ ? 2 : changes_.empty() ? 0 : 1);
    case kSource:
      if (use == Use::kPut) source_ = arguments.Assigned().ToText();
      return Variant::Text(source_);
    case kActiveConnection:
      if (use == Use::kPut) {
        const Variant& given = arguments.Assigned();
        if (!AdoConnection::From(given)) throw Fault{kInvalidArgument, L"That is no connection."};
        given.pdispVal->AddRef();
        if (connection_) connection_->Release();
        connection_ = given.pdispVal;
        return {};
      }
      if (connection_) connection_->AddRef();
      return connection_ ? Variant::Object(connection_) : Variant();
    case kCursorLocation:
      return number(cursor_location_);
    case kCursorType:
      return number(cursor_type_);
    case kLockType:
      return number(lock_type_);
    default:
      throw Fault{DISP_E_MEMBERNOTFOUND, L""};
  }
}

}  // namespace korvane::test
