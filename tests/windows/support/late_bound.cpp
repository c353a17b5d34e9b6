#include "support/late_bound.h"

#include <new>

namespace korvane::test {

namespace {

LONG objects_alive = 0;

}  // namespace

Arguments::Arguments(const DISPPARAMS& given) {
  const auto place = [&](size_t at, VARIANT& value) {
    if (at >= values_.size()) {
      Variant missing;
      missing.vt = VT_ERROR;
      missing.scode = DISP_E_PARAMNOTFOUND;
      values_.resize(at + 1, missing);
      passed_.resize(at + 1, nullptr);
    }
    values_[at] = Variant::Of(value);
    passed_[at] = &value;
  };
  const size_t named = given.cNamedArgs;
  const size_t positional = given.cArgs - named;
  for (size_t i = 0; i < positional; ++i) place(i, given.rgvarg[given.cArgs - 1 - i]);
  for (size_t i = 0; i < named; ++i) {
    const DISPID id = given.rgdispidNamedArgs[i];
    place(id == DISPID_PROPERTYPUT ? positional : static_cast<size_t>(id), given.rgvarg[i]);
  }
}

const Variant& Arguments::at(size_t place) const {
  if (!Given(place)) throw Fault{DISP_E_PARAMNOTOPTIONAL, L"An argument is missing."};
  return values_[place];
}

const Variant& Arguments::Assigned() const {
  if (values_.empty()) throw Fault{DISP_E_BADPARAMCOUNT, L"Nothing to assign."};
  return values_.back();
}

void Arguments::PutBack(size_t place, const Variant& value) const {
  if (place >= passed_.size() || !passed_[place]) return;
  VARIANT* target = passed_[place];
  if (target->vt == (VT_BYREF | VT_VARIANT))
    VariantCopy(target->pvarVal, const_cast<Variant*>(&value));
}

LateBound::LateBound(const wchar_t* source, std::span<const Member> members)
    : source_(source), members_(members) {
  InterlockedIncrement(&objects_alive);
}

LateBound::~LateBound() { InterlockedDecrement(&objects_alive); }

LONG LateBound::alive() { return objects_alive; }

void LateBound::Asked(const wchar_t*) {}

STDMETHODIMP LateBound::QueryInterface(REFIID iid, void** object) {
  if (iid != IID_IUnknown && iid != IID_IDispatch) {
    *object = nullptr;
    return E_NOINTERFACE;
  }
  AddRef();
  *object = static_cast<IDispatch*>(this);
  return S_OK;
}

STDMETHODIMP_(ULONG) LateBound::AddRef() {
  return static_cast<ULONG>(InterlockedIncrement(&references_));
}

STDMETHODIMP_(ULONG) LateBound::Release() {
  const LONG left = InterlockedDecrement(&references_);
  if (left == 0) delete this;
  return static_cast<ULONG>(left);
}

STDMETHODIMP LateBound::GetTypeInfoCount(UINT* count) {
  *count = 0;
  return S_OK;
}

STDMETHODIMP LateBound::GetTypeInfo(UINT, LCID, ITypeInfo**) { return E_NOTIMPL; }

STDMETHODIMP LateBound::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
  if (count == 0) return E_INVALIDARG;
  for (UINT i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
  Asked(names[0]);
  for (const Member& member : members_) {
    if (lstrcmpiW(member.name, names[0]) != 0) continue;
    ids[0] = member.id;
    bool all = true;
    for (UINT i = 1; i < count; ++i) {
      for (size_t place = 0; place < member.parameters.size(); ++place) {
        if (lstrcmpiW(member.parameters[place], names[i]) == 0) ids[i] = static_cast<DISPID>(place);
      }
      all = all && ids[i] != DISPID_UNKNOWN;
    }
    return all ? S_OK : DISP_E_UNKNOWNNAME;
  }
  return DISP_E_UNKNOWNNAME;
}

STDMETHODIMP LateBound::Invoke(DISPID member, REFIID, LCID, WORD flags, DISPPARAMS* parameters,
                               VARIANT* result, EXCEPINFO* exception, UINT*) {
  const auto fail = [&](HRESULT number, const std::wstring& description) {
    if (!exception) return number;
    *exception = {};
    exception->scode = number;
    exception->bstrSource = SysAllocString(source_);
    exception->bstrDescription = SysAllocString(description.c_str());
    return HRESULT(DISP_E_EXCEPTION);
  };
  const Use use = flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF) ? Use::kPut
                  : flags & DISPATCH_METHOD                                ? Use::kCall
                                                                           : Use::kGet;
  try {
    Variant value = Do(member, use, Arguments(*parameters));
    if (result) {
      *result = value;
      VariantInit(&value);
    }
    return S_OK;
  } catch (const Fault& fault) {
    if (fault.number == DISP_E_MEMBERNOTFOUND) return fault.number;
    return fail(fault.number, fault.description);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace korvane::test
