// The class objects of the tests' ADO and their registration, under the names and identifiers that
// pages and programs know.
#include <windows.h>

#include <olectl.h>

#include <new>

#include "connection.h"
#include "recordset.h"

namespace korvane::test {

namespace {

constexpr GUID Class(unsigned long number) {
  return {number, 0, 0x10, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x6D, 0x2E, 0xA4}};
}
constexpr GUID kConnectionClass = Class(0x514);
constexpr GUID kRecordsetClass = Class(0x535);

HMODULE this_module = nullptr;
LONG locks = 0;

template <class Made>
class ClassObject : public IClassFactory {
 public:
  STDMETHOD(QueryInterface)(REFIID iid, void** object) override {
    if (iid != IID_IUnknown && iid != IID_IClassFactory) {
      *object = nullptr;
      return E_NOINTERFACE;
    }
    *object = this;
    return S_OK;
  }
  STDMETHOD_(ULONG, AddRef)() override { return 2; }
  STDMETHOD_(ULONG, Release)() override { return 1; }
  STDMETHOD(CreateInstance)(IUnknown* outer, REFIID iid, void** object) override {
    *object = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    Made* made = new (std::nothrow) Made;
    if (!made) return E_OUTOFMEMORY;
    const HRESULT status = made->QueryInterface(iid, object);
    made->Release();
    return status;
  }
  STDMETHOD(LockServer)(BOOL lock) override {
    lock ? InterlockedIncrement(&locks) : InterlockedDecrement(&locks);
    return S_OK;
  }
};

ClassObject<AdoConnection> connections;
ClassObject<AdoRecordset> recordsets;

bool SetKey(const std::wstring& key, const wchar_t* name, const std::wstring& value) {
  return RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), name, REG_SZ, value.c_str(),
                         static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
}

bool Register(const std::wstring& name, const GUID& id) {
  wchar_t text[40];
  wchar_t path[MAX_PATH];
  StringFromGUID2(id, text, 40);
  GetModuleFileNameW(this_module, path, MAX_PATH);
  const std::wstring key = std::wstring(L"CLSID\\") + text;
  return SetKey(name, nullptr, name) && SetKey(name + L"\\CLSID", nullptr, text) &&
         SetKey(key, nullptr, name) && SetKey(key + L"\\ProgID", nullptr, name) &&
         SetKey(key + L"\\InprocServer32", nullptr, path) &&
         SetKey(key + L"\\InprocServer32", L"ThreadingModel", L"Apartment");
}

}  // namespace

}  // namespace korvane::test

using namespace korvane::test;

STDAPI DllGetClassObject(REFCLSID id, REFIID iid, void** object) {
  *object = nullptr;
  if (id == kConnectionClass) return connections.QueryInterface(iid, object);
  if (id == kRecordsetClass) return recordsets.QueryInterface(iid, object);
  return CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllCanUnloadNow() { return LateBound::alive() == 0 && locks == 0 ? S_OK : S_FALSE; }

STDAPI DllRegisterServer() {
  return Register(L"ADODB.Connection", kConnectionClass) &&
                 Register(L"ADODB.Recordset", kRecordsetClass)
             ? S_OK
             : SELFREG_E_CLASS;
}

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, void*) {
  if (reason == DLL_PROCESS_ATTACH) this_module = module;
  return TRUE;
}
