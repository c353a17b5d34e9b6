#include "windows/com/fake_ado.h"

#include <windows.h>

#include <objbase.h>

#include <algorithm>

#include "support/late_bound.h"

namespace korvane::test {

namespace {

enum : DISPID {
  kExecute = 1,
  kOpen,
  kEof,
  kMoveNext,
  kMovePrevious,
  kMove,
  kMoveLast,
  kFields,
  kAddNew,
  kUpdate,
  kCancelUpdate,
  kClose,
  kCursorLocation,
  kCursorType,
  kLockType,
  kValue,
};

const LateBound::Member kConnectionMembers[] = {{L"Execute", kExecute, {}}};
const LateBound::Member kRecordsetMembers[] = {
    {L"Open", kOpen, {}},
    {L"EOF", kEof, {}},
    {L"MoveNext", kMoveNext, {}},
    {L"MovePrevious", kMovePrevious, {}},
    {L"Move", kMove, {}},
    {L"MoveLast", kMoveLast, {}},
    {L"Fields", kFields, {}},
    {L"AddNew", kAddNew, {}},
    {L"Update", kUpdate, {}},
    {L"CancelUpdate", kCancelUpdate, {}},
    {L"Close", kClose, {}},
    {L"CursorLocation", kCursorLocation, {}},
    {L"CursorType", kCursorType, {}},
    {L"LockType", kLockType, {}},
};
const LateBound::Member kFieldMembers[] = {{L"Value", kValue, {}}};

void Note(FakeDatabase& database, const std::string& call) {
  database.log.push_back(call);
  if (database.at) database.at(call);
  if (!database.fails_at.empty() && call.starts_with(database.fails_at)) {
    throw Fault{database.fails_with, ToWide(database.fails_saying)};
  }
}

Variant Copy(VARIANT value) {
  Variant copy;
  VariantCopy(&copy, &value);
  return copy;
}

class FakeField final : public LateBound {
 public:
  FakeField(FakeDatabase& database, std::string name)
      : LateBound(L"Fake", kFieldMembers), database_(database), name_(std::move(name)) {}

 private:
  Variant Do(DISPID, Use use, const Arguments& arguments) override {
    Note(database_, (use == Use::kPut ? "Value= " : "Value ") + name_);
    if (use == Use::kPut) {
      static std::vector<Variant> kept;
      kept.push_back(arguments.Assigned());
      database_.written[name_] = kept.back();
      database_.row[name_] = kept.back();
      return {};
    }
    const auto found = database_.row.find(name_);
    if (found == database_.row.end()) throw Fault{static_cast<HRESULT>(0x800A0CC1), L"no field"};
    return Copy(found->second);
  }

  FakeDatabase& database_;
  std::string name_;
};

class FakeRecordset final : public LateBound {
 public:
  explicit FakeRecordset(FakeDatabase& database)
      : LateBound(L"Fake", kRecordsetMembers), database_(database) {}

 private:
  Variant Do(DISPID member, Use use, const Arguments& arguments) override {
    const auto* found =
        std::ranges::find(kRecordsetMembers, member, [](const Member& one) { return one.id; });
    std::string call = ToUtf8(found->name);
    for (size_t i = 0; i < arguments.count(); ++i) {
      const Variant& argument = arguments.at(i);
      call += argument.vt == VT_DISPATCH ? " object" : " " + ToUtf8(argument.ToText());
    }
    Note(database_, call);
    switch (member) {
      case kEof:
        if (database_.row.contains("EOF")) return Copy(database_.row["EOF"]);
        return Variant::Boolean(place_ >= database_.rows);
      case kMoveNext:
        ++place_;
        return {};
      case kMovePrevious:
        --place_;
        return {};
      case kMove:
        place_ += arguments.at(0).ToNumber();
        return {};
      case kMoveLast:
        place_ = database_.rows - 1;
        return {};
      case kFields:
        if (database_.row.contains("Fields")) return Copy(database_.row["Fields"]);
        return Variant::Object(new FakeField(database_, ToUtf8(arguments.at(0).ToText())));
      default:
        (void)use;
        return {};
    }
  }

  FakeDatabase& database_;
  LONG place_ = 0;
};

class FakeConnection final : public LateBound {
 public:
  explicit FakeConnection(FakeDatabase& database)
      : LateBound(L"Fake", kConnectionMembers), database_(database) {}

 private:
  Variant Do(DISPID, Use, const Arguments& arguments) override {
    Note(database_, "Execute " + ToUtf8(arguments.at(0).ToText()));
    if (database_.row.contains("Execute")) return Copy(database_.row["Execute"]);
    return Variant::Object(new FakeRecordset(database_));
  }

  FakeDatabase& database_;
};

constexpr CLSID kFakeRecordset = {
    0x9b4a6c1e, 0x51d7, 0x4a0f, {0x86, 0x2b, 0x5d, 0x1e, 0x77, 0x30, 0xc9, 0x04}};
constexpr wchar_t kName[] = L"ADODB.Recordset\\CLSID";

void SetRecordsetClass(const std::wstring& id) {
  RegSetKeyValueW(HKEY_CLASSES_ROOT, kName, nullptr, REG_SZ, id.c_str(),
                  static_cast<DWORD>((id.size() + 1) * sizeof(wchar_t)));
}

class Factory final : public IClassFactory {
 public:
  explicit Factory(FakeDatabase& database) : database_(database) {}
  STDMETHOD(QueryInterface)(REFIID iid, void** object) override {
    *object = nullptr;
    if (iid != IID_IUnknown && iid != IID_IClassFactory) return E_NOINTERFACE;
    *object = this;
    AddRef();
    return S_OK;
  }
  STDMETHOD_(ULONG, AddRef)() override {
    return static_cast<ULONG>(InterlockedIncrement(&references_));
  }
  STDMETHOD_(ULONG, Release)() override {
    const LONG left = InterlockedDecrement(&references_);
    if (left == 0) delete this;
    return static_cast<ULONG>(left);
  }
  STDMETHOD(CreateInstance)(IUnknown*, REFIID iid, void** object) override {
    auto* made = new FakeRecordset(database_);
    const HRESULT status = made->QueryInterface(iid, object);
    made->Release();
    return status;
  }
  STDMETHOD(LockServer)(BOOL) override { return S_OK; }

 private:
  ~Factory() = default;

  FakeDatabase& database_;
  LONG references_ = 1;
};

}  // namespace

bool FakeDatabase::Was(const std::string& call) const {
  return std::ranges::find(log, call) != log.end();
}

IDispatch* NewFakeConnection(FakeDatabase& database) { return new FakeConnection(database); }

long FakesAlive() { return LateBound::alive(); }

FakeRecordsets::FakeRecordsets(FakeDatabase& database) {
  wchar_t id[64] = {};
  DWORD size = sizeof id;
  RegGetValueW(HKEY_CLASSES_ROOT, kName, nullptr, RRF_RT_REG_SZ, nullptr, id, &size);
  before_ = id;
  StringFromGUID2(kFakeRecordset, id, 64);
  SetRecordsetClass(id);
  auto* factory = new Factory(database);
  CoRegisterClassObject(kFakeRecordset, factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE,
                        &registered_);
  factory->Release();
}

FakeRecordsets::~FakeRecordsets() {
  CoRevokeClassObject(registered_);
  SetRecordsetClass(before_);
}

}  // namespace korvane::test
