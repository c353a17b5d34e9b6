#include "late_bound.h"

#include <objbase.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

#include "frame/database.h"

namespace korvane::com {

namespace {

using Kind = DatabaseError::Kind;

/// What the numbers of OLE DB and of remote calls mean here.
Kind KindOf(HRESULT status) {
  switch (static_cast<uint32_t>(status)) {
    case 0x80040E2F:  // DB_E_INTEGRITYVIOLATION
      return Kind::kDuplicateKey;
    case 0x80040E38:  // DB_E_CONCURRENCYVIOLATION
      return Kind::kChanged;
    case 0x80040E31:  // DB_E_ABORTLIMITREACHED
      return Kind::kBusy;
    case 0x800A0E7D:  // the connection is closed or not valid
    case 0x800A0E78:  // the object is closed
    case 0x80010108:  // RPC_E_DISCONNECTED
    case 0x800706BA:  // RPC_S_SERVER_UNAVAILABLE
      return Kind::kConnectionLost;
    default:
      return Kind::kOther;
  }
}

std::string Hex(HRESULT status) {
  std::array<char, 16> text;
  std::snprintf(text.data(), text.size(), "0x%08X", static_cast<unsigned>(status));
  return text.data();
}

[[noreturn]] void Fail(std::string_view name, HRESULT status, const std::string& description = {}) {
  throw DatabaseError(KindOf(status),
                      std::string(name) + ": " + (description.empty() ? Hex(status) : description));
}

/// Clears what an object says about its fault.
struct Exception : EXCEPINFO {
  Exception() : EXCEPINFO{} {}
  Exception(const Exception&) = delete;
  Exception& operator=(const Exception&) = delete;
  ~Exception() {
    SysFreeString(bstrSource);
    SysFreeString(bstrDescription);
    SysFreeString(bstrHelpFile);
  }
};

}  // namespace

DISPID LateBound::Find(std::string_view name) const {
  if (!object_) return DISPID_UNKNOWN;
  for (const auto& [known, number] : found_) {
    if (known == name) return number;
  }
  std::u16string text = ToUtf16(name);
  auto* wide = reinterpret_cast<OLECHAR*>(text.data());
  DISPID found = DISPID_UNKNOWN;
  const HRESULT status = object_->GetIDsOfNames(IID_NULL, &wide, 1, LOCALE_USER_DEFAULT, &found);
  if (FAILED(status)) return DISPID_UNKNOWN;
  found_.emplace_back(name, found);
  return found;
}

bool LateBound::DefaultValue(Variant& value) const {
  DISPPARAMS none = {};
  return object_ &&
         SUCCEEDED(object_->Invoke(DISPID_VALUE, IID_NULL, LOCALE_USER_DEFAULT,
                                   DISPATCH_PROPERTYGET, &none, &value, nullptr, nullptr));
}

Variant LateBound::Get(std::string_view name, std::span<VARIANT> arguments) const {
  return Invoke(DISPATCH_METHOD | DISPATCH_PROPERTYGET, arguments, name);
}

void LateBound::Put(std::string_view name, VARIANT value) const {
  Invoke(DISPATCH_PROPERTYPUT, {&value, 1}, name);
}

Variant LateBound::Invoke(WORD how, std::span<VARIANT> arguments, std::string_view name) const {
  const DISPID member = Find(name);
  if (!object_ || member == DISPID_UNKNOWN) Fail(name, DISP_E_UNKNOWNNAME);
  // The last one comes first. They stay the caller's.
  std::vector<VARIANT> reversed(arguments.rbegin(), arguments.rend());
  DISPID assigned = DISPID_PROPERTYPUT;
  DISPPARAMS parameters = {};
  parameters.rgvarg = reversed.data();
  parameters.cArgs = static_cast<UINT>(reversed.size());
  if (how == DISPATCH_PROPERTYPUT) {
    parameters.rgdispidNamedArgs = &assigned;
    parameters.cNamedArgs = 1;
  }
  Variant result;
  Exception exception;
  UINT wrong = 0;
  const HRESULT status =
      object_->Invoke(member, IID_NULL, LOCALE_USER_DEFAULT, how, &parameters,
                      how == DISPATCH_PROPERTYPUT ? nullptr : &result, &exception, &wrong);
  if (SUCCEEDED(status)) return result;
  if (status != DISP_E_EXCEPTION) Fail(name, status);
  if (exception.pfnDeferredFillIn) exception.pfnDeferredFillIn(&exception);
  const HRESULT number =
      exception.scode != 0 ? exception.scode : static_cast<HRESULT>(exception.wCode);
  Fail(name, number, TextOf(exception.bstrDescription));
}

LateBound CreateLateBound(std::string_view name) {
  const std::u16string text = ToUtf16(name);
  CLSID id;
  HRESULT status = CLSIDFromProgID(reinterpret_cast<const OLECHAR*>(text.c_str()), &id);
  Reference<IDispatch> object;
  if (SUCCEEDED(status)) {
    status = CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, object.OutVoid());
  }
  if (FAILED(status)) Fail(name, status);
  return LateBound(std::move(object));
}

LateBound ObjectOf(const Variant& value, std::string_view what) {
  Reference<IDispatch> object;
  if (value.vt == VT_DISPATCH && value.pdispVal) {
    object = Reference<IDispatch>(value.pdispVal);
  } else if (value.vt == VT_UNKNOWN && value.punkVal) {
    value.punkVal->QueryInterface(IID_IDispatch, object.OutVoid());
  }
  if (!object) Fail(what, DISP_E_TYPEMISMATCH, "no object came back");
  return LateBound(std::move(object));
}

}  // namespace korvane::com
