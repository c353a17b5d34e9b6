#include "windows/com/server_under_test.h"

#include <windows.h>

#include <deque>

#include "automation/com/guid.h"
#include "automation/com/identifiers.h"

namespace korvane::test {

namespace {

HMODULE Server() {
  static const HMODULE module =
      LoadLibraryW(reinterpret_cast<const wchar_t*>(ServerFile().c_str()));
  return module;
}

template <class F>
F Export(const char* name) {
  return reinterpret_cast<F>(reinterpret_cast<void (*)()>(GetProcAddress(Server(), name)));
}

}  // namespace

std::u16string ServerFile() {
  std::u16string path(u"Z:");
  for (const char c : std::string(KORVANE_BINARY_DIR "/bin/Korvane_beta1.dll")) {
    path += c == '/' ? u'\\' : static_cast<char16_t>(c);
  }
  return path;
}

HRESULT GetClassObject(REFCLSID id, REFIID iid, void** object) {
  return Export<HRESULT(STDMETHODCALLTYPE*)(REFCLSID, REFIID, void**)>("DllGetClassObject")(id, iid,
                                                                                            object);
}
HRESULT CanUnloadNow() { return Export<HRESULT(STDMETHODCALLTYPE*)()>("DllCanUnloadNow")(); }
HRESULT RegisterServer() { return Export<HRESULT(STDMETHODCALLTYPE*)()>("DllRegisterServer")(); }
HRESULT UnregisterServer() {
  return Export<HRESULT(STDMETHODCALLTYPE*)()>("DllUnregisterServer")();
}

CLSID ClassId(std::string_view class_name) {
  return com::ToGuid(com::FindIdentifiers(class_name)->class_id);
}
IID InterfaceId(std::string_view class_name) {
  return com::ToGuid(com::FindIdentifiers(class_name)->interface_id);
}

Reference<IDispatch> Create(std::string_view class_name) {
  Reference<IClassFactory> factory;
  Reference<IDispatch> object;
  if (SUCCEEDED(GetClassObject(ClassId(class_name), IID_IClassFactory, factory.OutVoid()))) {
    factory->CreateInstance(nullptr, IID_IDispatch, object.OutVoid());
  }
  return object;
}

std::string Outcome::Text() const { return value.vt == VT_BSTR ? com::TextOf(value.bstrVal) : ""; }
LONG Outcome::Number() const { return value.vt == VT_I4 ? value.lVal : -1; }
bool Outcome::Truth() const { return value.vt == VT_BOOL && value.boolVal == VARIANT_TRUE; }
Reference<IDispatch> Outcome::Object() const {
  return Reference<IDispatch>(value.vt == VT_DISPATCH ? value.pdispVal : nullptr);
}

DISPID IdOf(IDispatch* object, std::string_view name) {
  std::u16string text = ToUtf16(name);
  auto* wide = reinterpret_cast<OLECHAR*>(text.data());
  DISPID id = DISPID_UNKNOWN;
  object->GetIDsOfNames(IID_NULL, &wide, 1, LOCALE_USER_DEFAULT, &id);
  return id;
}

namespace {

Outcome Invoke(IDispatch* object, std::string_view name, std::vector<VARIANT> arguments, WORD how) {
  Outcome outcome;
  const bool put = (how & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) != 0;
  DISPID assigned = DISPID_PROPERTYPUT;
  const std::vector<VARIANT> reversed(arguments.rbegin(), arguments.rend());
  DISPPARAMS given = {};
  given.rgvarg = const_cast<VARIANT*>(reversed.data());
  given.cArgs = static_cast<UINT>(reversed.size());
  if (put) {
    given.cNamedArgs = 1;
    given.rgdispidNamedArgs = &assigned;
  }
  EXCEPINFO exception = {};
  outcome.status = object->Invoke(IdOf(object, name), IID_NULL, LOCALE_USER_DEFAULT, how, &given,
                                  put ? nullptr : &outcome.value, &exception, &outcome.wrong);
  outcome.number = exception.scode;
  outcome.source = com::TextOf(exception.bstrSource);
  outcome.description = com::TextOf(exception.bstrDescription);
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  return outcome;
}

VARIANT Of(VARTYPE type) {
  VARIANT value = {};
  value.vt = type;
  return value;
}

}  // namespace

Outcome Call(IDispatch* object, std::string_view name, std::vector<VARIANT> arguments, WORD how) {
  return Invoke(object, name, std::move(arguments), how);
}

Outcome Put(IDispatch* object, std::string_view name, VARIANT value, WORD how) {
  return Invoke(object, name, {value}, how);
}

VARIANT Int(LONG number) {
  VARIANT value = Of(VT_I4);
  value.lVal = number;
  return value;
}
VARIANT Short(SHORT number) {
  VARIANT value = Of(VT_I2);
  value.iVal = number;
  return value;
}
VARIANT Truth(bool truth) {
  VARIANT value = Of(VT_BOOL);
  value.boolVal = truth ? VARIANT_TRUE : VARIANT_FALSE;
  return value;
}
VARIANT Real(double number) {
  VARIANT value = Of(VT_R8);
  value.dblVal = number;
  return value;
}
VARIANT Object(IDispatch* object) {
  VARIANT value = Of(VT_DISPATCH);
  value.pdispVal = object;
  return value;
}
VARIANT Missing() {
  VARIANT value = Of(VT_ERROR);
  value.scode = DISP_E_PARAMNOTFOUND;
  return value;
}
VARIANT Null() { return Of(VT_NULL); }
VARIANT ByReference(VARIANT& variable) {
  VARIANT value = Of(VT_BYREF | VT_VARIANT);
  value.pvarVal = &variable;
  return value;
}
VARIANT Text(std::string_view utf8) {
  static std::deque<Variant> texts;
  texts.push_back(Variant::Text(utf8));
  return texts.back();
}

}  // namespace korvane::test
