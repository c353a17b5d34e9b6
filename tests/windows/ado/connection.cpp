#include "connection.h"

#include "ado_errors.h"
#include "recordset.h"
#include "statement.h"

namespace korvane::test {

namespace {

enum : DISPID {
  kOpen = 1,
  kClose,
  kExecute,
  kState,
  kConnectionString,
  kCursorLocation,
  kAskedFor
};

const LateBound::Member kMembers[] = {
    {L"Open", kOpen, {L"ConnectionString", L"UserID", L"Password", L"Options"}},
    {L"Close", kClose, {}},
    {L"Execute", kExecute, {L"CommandText", L"RecordsAffected", L"Options"}},
    {L"State", kState, {}},
    {L"ConnectionString", kConnectionString, {}},
    {L"CursorLocation", kCursorLocation, {}},
    // The tests' own: the names that callers looked up, which assigning "" forgets.
    {L"AskedFor", kAskedFor, {}},
};

/// By which a recordset finds out that an object is one of these.
constexpr GUID kThisClass = {
    0x5b1c7a44, 0x2f0e, 0x4d6f, {0x9d, 0x31, 0x0c, 0x52, 0x77, 0x1e, 0x84, 0xa3}};

}  // namespace

AdoConnection::AdoConnection() : LateBound(L"ADODB.Connection", kMembers) {}

STDMETHODIMP AdoConnection::QueryInterface(REFIID iid, void** object) {
  if (iid != kThisClass) return LateBound::QueryInterface(iid, object);
  AddRef();
  *object = this;
  return S_OK;
}

AdoConnection* AdoConnection::From(const Variant& value) {
  void* found = nullptr;
  if (!value.IsObject() || FAILED(value.pdispVal->QueryInterface(kThisClass, &found))) {
    return nullptr;
  }
  auto* connection = static_cast<AdoConnection*>(found);
  connection->Release();
  return connection;
}

std::shared_ptr<OdbcSession> AdoConnection::session() const {
  if (!session_) throw Fault{kObjectClosed, L"The connection is closed."};
  return session_;
}

void AdoConnection::Asked(const wchar_t* name) {
  if (lstrcmpiW(name, L"AskedFor") != 0) asked_ += std::wstring(asked_.empty() ? L"" : L" ") + name;
}

Variant AdoConnection::Execute(const Arguments& arguments) {
  const OdbcStatement statement = Translated(arguments.at(0).ToText(), session()->dialect());
  OdbcRows rows = session_->Run(statement.text, statement.parameters);
  arguments.PutBack(1, Variant::Number(static_cast<LONG>(rows.affected)));
  return Variant::Object(new AdoRecordset(session_, std::move(rows)));
}

Variant AdoConnection::Do(DISPID member, Use use, const Arguments& arguments) {
  switch (member) {
    case kOpen:
      if (session_) throw Fault{kObjectOpen, L"The connection is open."};
      if (arguments.Given(0)) connection_string_ = arguments.at(0).ToText();
      session_ = std::make_shared<OdbcSession>(connection_string_);
      return {};
    case kClose:
      session();
      session_.reset();
      return {};
    case kExecute:
      return Execute(arguments);
    case kState:
      return Variant::Number(session_ ? 1 : 0);
    case kConnectionString:
      if (use == Use::kPut) connection_string_ = arguments.Assigned().ToText();
      return Variant::Text(connection_string_);
    case kCursorLocation:
      if (use == Use::kPut) cursor_location_ = arguments.Assigned().ToNumber();
      return Variant::Number(cursor_location_);
    case kAskedFor:
      if (use == Use::kPut) asked_ = arguments.Assigned().ToText();
      return Variant::Text(asked_);
    default:
      throw Fault{DISP_E_MEMBERNOTFOUND, L""};
  }
}

}  // namespace korvane::test
