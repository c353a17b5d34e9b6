// The site of a script engine: it knows one object, "Test", and makes a line of an error that the
// script did not catch.
#pragma once

#include <windows.h>

#include <activscp.h>

#include "test_object.h"

namespace korvane::test {

class ScriptSite : public IActiveScriptSite {
 public:
  explicit ScriptSite(TestObject& test) : test_(test) {}

  STDMETHOD(QueryInterface)(REFIID iid, void** object) override;
  STDMETHOD_(ULONG, AddRef)() override { return 2; }
  STDMETHOD_(ULONG, Release)() override { return 1; }
  STDMETHOD(GetLCID)(LCID* locale) override;
  STDMETHOD(GetItemInfo)(LPCOLESTR name, DWORD mask, IUnknown** item, ITypeInfo**) override;
  STDMETHOD(GetDocVersionString)(BSTR*) override { return E_NOTIMPL; }
  STDMETHOD(OnScriptTerminate)(const VARIANT*, const EXCEPINFO*) override { return S_OK; }
  STDMETHOD(OnStateChange)(SCRIPTSTATE) override { return S_OK; }
  STDMETHOD(OnScriptError)(IActiveScriptError* error) override;
  STDMETHOD(OnEnterScript)() override { return S_OK; }
  STDMETHOD(OnLeaveScript)() override { return S_OK; }

 private:
  TestObject& test_;
};

}  // namespace korvane::test
