#include "held_object.h"

#include <oleauto.h>

#include <cstring>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "../arguments.h"
#include "../bindings.h"
#include "dispatch_ids.h"
#include "enumeration.h"
#include "facade/automation_exception.h"
#include "guid.h"
#include "identifiers.h"
#include "values.h"

namespace korvane::com {

namespace {

using automation::ArgumentError;
using model::Kind;
using model::Type;

constexpr GUID kHeldObject = ToGuid(kHeldObjectId);

/// The faces of the objects that are handed out.
struct Faces {
  std::mutex mutex;
  std::unordered_map<const Object*, HeldObject*> by_object;
};

Faces& AllFaces() {
  static auto* const faces = new Faces;
  return *faces;
}

HRESULT StatusOf(ArgumentError::Kind kind) {
  switch (kind) {
    case ArgumentError::Kind::kRange:
      return DISP_E_OVERFLOW;
    case ArgumentError::Kind::kCount:
      return DISP_E_BADPARAMCOUNT;
    case ArgumentError::Kind::kName:
      return DISP_E_PARAMNOTFOUND;
    case ArgumentError::Kind::kMissing:
      return DISP_E_PARAMNOTOPTIONAL;
    case ArgumentError::Kind::kType:
      break;
  }
  return DISP_E_TYPEMISMATCH;
}

/// An error number as automation carries it: scripts see the number itself.
HRESULT Raised(int32_t number) {
  if (number < 0 || number > 0xFFFF) return number;
  return static_cast<HRESULT>(MAKE_HRESULT(SEVERITY_ERROR, FACILITY_CONTROL, number));
}

VARTYPE ReferenceTo(Type type) {
  switch (type) {
    case Type::kInt32:
    case Type::kEnum:
      return VT_BYREF | VT_I4;
    case Type::kBool:
      return VT_BYREF | VT_BOOL;
    case Type::kText:
      return VT_BYREF | VT_BSTR;
    case Type::kObject:
      return VT_BYREF | VT_DISPATCH;
    default:
      return VT_BYREF | VT_VARIANT;
  }
}

/// What the result of a call through the dual interface takes up.
size_t BytesOfResult(Type type) {
  switch (type) {
    case Type::kNothing:
      break;
    case Type::kInt32:
    case Type::kEnum:
      return sizeof(LONG);
    case Type::kBool:
      return sizeof(VARIANT_BOOL);
    case Type::kText:
      return sizeof(BSTR);
    case Type::kObject:
      return sizeof(IDispatch*);
    case Type::kAny:
      return sizeof(VARIANT);
  }
  return 0;
}

/// Makes a result what it is before the call: zero, false, nothing or an empty value, all of which
/// are zeros.
void ClearPlace(Type type, void* place) { std::memset(place, 0, BytesOfResult(type)); }

void MoveToPlace(Type type, Variant& result, void* place) {
  const size_t bytes = BytesOfResult(type);
  if (bytes == 0) return;
  if (type == Type::kAny) return result.MoveTo(static_cast<VARIANT*>(place));
  // Every kind of value lies at the same place of the variant.
  std::memcpy(place, &result.llVal, bytes);
  VariantInit(&result);
}

void Announce(const CallFault& fault, REFIID iid) {
  Reference<ICreateErrorInfo> made;
  Reference<IErrorInfo> info;
  if (FAILED(CreateErrorInfo(made.Out()))) return;
  std::u16string source = ToUtf16(fault.source);
  std::u16string description = ToUtf16(fault.description);
  made->SetGUID(iid);
  made->SetSource(reinterpret_cast<OLECHAR*>(source.data()));
  made->SetDescription(reinterpret_cast<OLECHAR*>(description.data()));
  if (SUCCEEDED(made->QueryInterface(IID_IErrorInfo, info.OutVoid()))) SetErrorInfo(0, info.get());
}

}  // namespace

HeldObject::HeldObject(std::shared_ptr<Object> object, const model::Class& of)
    : face_{DualTable(of), this}, object_(std::move(object)), class_(of) {}

HeldObject::~HeldObject() = default;

IDispatch* HeldObject::Wrap(std::shared_ptr<Object> object, const model::Class& of) {
  Faces& faces = AllFaces();
  const std::lock_guard lock(faces.mutex);
  HeldObject*& face = faces.by_object[object.get()];
  if (!face || !face->AddRefIfAlive()) face = new HeldObject(std::move(object), of);
  return face->face();
}

std::shared_ptr<Object> HeldObject::Unwrap(IUnknown* object) {
  void* found = nullptr;
  if (FAILED(object->QueryInterface(kHeldObject, &found)) || !found) return nullptr;
  auto* held = static_cast<HeldObject*>(found);
  auto own = held->object_;
  held->Release();
  return own;
}

STDMETHODIMP HeldObject::QueryInterface(REFIID iid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  if (iid == IID_IUnknown || iid == IID_IDispatch ||
      iid == ToGuid(FindIdentifiers(class_.name)->interface_id)) {
    *object = face();
  } else if (iid == IID_ISupportErrorInfo) {
    *object = static_cast<ISupportErrorInfo*>(this);
  } else if (iid == IID_IProvideClassInfo) {
    *object = static_cast<IProvideClassInfo*>(this);
  } else if (iid == kHeldObject) {
    *object = this;
  } else {
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

STDMETHODIMP_(ULONG) HeldObject::AddRef() {
  return static_cast<ULONG>(InterlockedIncrement(&references_));
}

bool HeldObject::AddRefIfAlive() {
  for (LONG count = references_; count > 0;) {
    const LONG seen = InterlockedCompareExchange(&references_, count + 1, count);
    if (seen == count) return true;
    count = seen;
  }
  return false;
}

STDMETHODIMP_(ULONG) HeldObject::Release() {
  const LONG left = InterlockedDecrement(&references_);
  if (left != 0) return static_cast<ULONG>(left);
  {
    Faces& faces = AllFaces();
    const std::lock_guard lock(faces.mutex);
    const auto found = faces.by_object.find(object_.get());
    if (found != faces.by_object.end() && found->second == this) faces.by_object.erase(found);
  }
  delete this;
  return 0;
}

STDMETHODIMP HeldObject::InterfaceSupportsErrorInfo(REFIID iid) {
  return iid == ToGuid(FindIdentifiers(class_.name)->interface_id) ? S_OK : S_FALSE;
}

STDMETHODIMP HeldObject::GetClassInfo(ITypeInfo** info) {
  if (!info) return E_POINTER;
  *info = nullptr;
  Reference<ITypeInfo> found;
  const HRESULT status = ClassInfo(class_, found);
  *info = found.Detach();
  return status;
}

HRESULT HeldObject::GetTypeInfo(UINT index, ITypeInfo** info) const {
  if (!info) return E_POINTER;
  *info = nullptr;
  if (index != 0) return DISP_E_BADINDEX;
  Reference<ITypeInfo> found;
  const HRESULT status = InterfaceInfo(class_, found);
  *info = found.Detach();
  return status;
}

HRESULT HeldObject::GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, DISPID* ids) const try {
  if (iid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
  if (count == 0) return S_OK;
  if (!names || !ids) return E_POINTER;
  const auto text = [&](UINT i) {
    return names[i] ? FromUtf16(TextOf(names[i], std::char_traits<OLECHAR>::length(names[i])))
                    : std::string();
  };
  ids[0] = FindDispatchId(class_, text(0));
  HRESULT status = ids[0] == DISPID_UNKNOWN ? DISP_E_UNKNOWNNAME : S_OK;
  // The names behind the first one are of parameters; those of a property are those of reading it.
  const model::Member* member = nullptr;
  for (const Kind kind : {Kind::kCall, Kind::kGet, Kind::kLet}) {
    if (!member) member = FindByDispatchId(class_, ids[0], kind);
  }
  for (UINT i = 1; i < count; ++i) {
    ids[i] = member ? FindParameter(member->parameters, text(i)) : DISPID_UNKNOWN;
    if (ids[i] == DISPID_UNKNOWN) status = DISP_E_UNKNOWNNAME;
  }
  return status;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

HRESULT HeldObject::NewEnumeration(VARIANT* result) {
  if (!result) return E_POINTER;
  const model::Member* item = model::FindMember(class_, "ItemIndex", Kind::kGet);
  const model::Member* count = model::FindMember(class_, "Count", Kind::kGet);
  const auto total = automation::FindBinding(class_, *count)(*object_, {}).ToInt32().value_or(0);
  const model::Class* of = model::FindClass(item->result_of);
  std::vector<Reference<IDispatch>> items;
  for (int32_t i = 1; i <= total; ++i) {
    Any position(i);
    Variant one = ToVariant(automation::FindBinding(class_, *item)(*object_, {&position, 1}), of);
    items.emplace_back(one.pdispVal);
  }
  result->punkVal = new Enumeration(std::move(items));
  result->vt = VT_UNKNOWN;
  return S_OK;
}

HRESULT HeldObject::Invoke(DISPID id, REFIID iid, WORD flags, const DISPPARAMS* given,
                           VARIANT* result, EXCEPINFO* exception, UINT* wrong) try {
  if (result) VariantInit(result);
  if (iid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
  if (!given || given->cNamedArgs > given->cArgs || (given->cArgs > 0 && !given->rgvarg) ||
      (given->cNamedArgs > 0 && !given->rgdispidNamedArgs)) {
    return E_INVALIDARG;
  }
  if (id == kNewEnumeration && IsCollection(class_)) return NewEnumeration(result);

  // Readers that know no type library ask for a property and for a call at once.
  const bool put = (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) != 0;
  const model::Member* member = nullptr;
  if (put) {
    member = FindByDispatchId(class_, id, Kind::kLet);
  } else {
    if (flags & DISPATCH_METHOD) member = FindByDispatchId(class_, id, Kind::kCall);
    if (!member) member = FindByDispatchId(class_, id, Kind::kGet);
  }
  if (!member) return DISP_E_MEMBERNOTFOUND;

  // The last argument comes first; the named ones come before all others.
  std::vector<Passed> passed;
  std::vector<UINT> places;
  passed.reserve(given->cArgs);
  places.reserve(given->cArgs);
  for (UINT i = given->cArgs; i-- > given->cNamedArgs;) {
    passed.push_back({&given->rgvarg[i], {}});
    places.push_back(i);
  }
  for (UINT i = 0; i < given->cNamedArgs; ++i) {
    const DISPID named = given->rgdispidNamedArgs[i];
    std::string_view name;
    if (!(put && named == kPropertyPut)) {
      if (named < 0 || static_cast<size_t>(named) >= member->parameters.size()) {
        if (wrong) *wrong = i;
        return DISP_E_PARAMNOTFOUND;
      }
      name = member->parameters[static_cast<size_t>(named)].name;
    }
    passed.push_back({&given->rgvarg[i], name});
    places.push_back(i);
  }

  Variant returned;
  CallFault fault;
  if (Call(*member, passed, returned, fault)) {
    if (result) returned.MoveTo(result);
    return S_OK;
  }
  if (wrong && fault.argument >= 0) *wrong = places[static_cast<size_t>(fault.argument)];
  if (fault.status == DISP_E_EXCEPTION && exception) {
    *exception = EXCEPINFO{};
    exception->scode = fault.number;
    exception->bstrSource = NewText(fault.source);
    exception->bstrDescription = NewText(fault.description);
  }
  return fault.status;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
} catch (const std::exception&) {
  return E_FAIL;
}

HRESULT HeldObject::CallSlot(size_t slot, std::span<void* const> places) try {
  const model::Member& member = class_.members[slot];
  for (void* const place : places) {
    if (!place) return E_POINTER;
  }
  SetErrorInfo(0, nullptr);
  std::vector<VARIANT> references(member.parameters.size());
  std::vector<Passed> passed;
  passed.reserve(references.size());
  for (size_t i = 0; i < references.size(); ++i) {
    VariantInit(&references[i]);
    references[i].vt = ReferenceTo(member.parameters[i].type);
    references[i].byref = places[i];
    passed.push_back({&references[i], {}});
  }
  const bool has_result = member.result != Type::kNothing;
  if (has_result) ClearPlace(member.result, places.back());
  Variant returned;
  CallFault fault;
  if (Call(member, passed, returned, fault)) {
    if (has_result) MoveToPlace(member.result, returned, places.back());
    return S_OK;
  }
  Announce(fault, ToGuid(FindIdentifiers(class_.name)->interface_id));
  return fault.status == DISP_E_EXCEPTION ? fault.number : fault.status;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
} catch (const std::exception&) {
  return E_FAIL;
}

bool HeldObject::Call(const model::Member& member, std::span<const Passed> passed, Variant& result,
                      CallFault& fault) {
  // A script may drop its last reference in the middle of a call.
  const Reference<ISupportErrorInfo> kept(this);
  fault.source = class_.name;
  if (busy_) {
    fault.status = DISP_E_EXCEPTION;
    fault.number = E_UNEXPECTED;
    fault.description = "the object is in the middle of a call";
    return false;
  }
  busy_ = true;
  const bool done = CallGuarded(member, passed, result, fault);
  busy_ = false;
  return done;
}

bool HeldObject::CallGuarded(const model::Member& member, std::span<const Passed> passed,
                             Variant& result, CallFault& fault) try {
  std::vector<automation::Argument> arguments(passed.size());
  for (size_t i = 0; i < passed.size(); ++i) {
    automation::Argument& argument = arguments[i];
    argument.name = passed[i].name;
    argument.missing = IsMissing(*passed[i].value);
    if (argument.missing) continue;
    const auto& parameters = member.parameters;
    const int32_t place =
        argument.name.empty() ? static_cast<int32_t>(i) : FindParameter(parameters, argument.name);
    const bool known = place >= 0 && static_cast<size_t>(place) < parameters.size();
    fault.argument = static_cast<int32_t>(i);
    argument.value = FromVariant(*passed[i].value,
                                 known ? parameters[static_cast<size_t>(place)].type : Type::kAny);
  }
  fault.argument = -1;
  automation::MatchedArguments matched = automation::Match(member, arguments);
  const Any returned = automation::FindBinding(class_, member)(*object_, matched.values);
  for (size_t i = 0; i < matched.values.size(); ++i) {
    const int32_t from = matched.passed_from[i];
    if (from < 0 || !member.parameters[i].receives_result) continue;
    const HRESULT status = PutBack(*passed[static_cast<size_t>(from)].value, matched.values[i]);
    if (FAILED(status)) {
      fault.status = status;
      fault.argument = from;
      fault.description = std::string(member.parameters[i].name) + ": the variable cannot take it";
      return false;
    }
  }
  if (member.result == Type::kObject) {
    const model::Class* of = model::FindClass(member.result_of);
    result = ToVariant(returned, of);
    if (returned.IsEmpty() || returned.IsNull()) result = Variant::Object(nullptr);
  } else {
    result = ToVariant(returned, nullptr);
  }
  return true;
} catch (const ArgumentError& mistake) {
  fault.status = StatusOf(mistake.kind());
  fault.description = mistake.what();
  if (mistake.argument() >= 0) fault.argument = mistake.argument();
  return false;
} catch (const AutomationException& raised) {
  fault.status = DISP_E_EXCEPTION;
  fault.number = Raised(raised.number());
  fault.source = raised.source();
  fault.description = raised.what();
  return false;
} catch (const std::bad_alloc&) {
  fault.status = E_OUTOFMEMORY;
  return false;
} catch (const std::exception& error) {
  fault.status = DISP_E_EXCEPTION;
  fault.number = E_FAIL;
  fault.description = error.what();
  return false;
}

}  // namespace korvane::com
