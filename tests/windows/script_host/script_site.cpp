#include "script_site.h"

namespace korvane::test {

namespace {

std::wstring TextOf(BSTR text) { return text ? std::wstring(text, SysStringLen(text)) : L""; }

}  // namespace

STDMETHODIMP ScriptSite::QueryInterface(REFIID iid, void** object) {
  if (iid != IID_IUnknown && iid != IID_IActiveScriptSite) {
    *object = nullptr;
    return E_NOINTERFACE;
  }
  *object = static_cast<IActiveScriptSite*>(this);
  return S_OK;
}

STDMETHODIMP ScriptSite::GetLCID(LCID* locale) {
  *locale = GetUserDefaultLCID();
  return S_OK;
}

STDMETHODIMP ScriptSite::GetItemInfo(LPCOLESTR name, DWORD mask, IUnknown** item, ITypeInfo**) {
  if (lstrcmpiW(name, L"Test") != 0 || !(mask & SCRIPTINFO_IUNKNOWN)) {
    return TYPE_E_ELEMENTNOTFOUND;
  }
  test_.AddRef();
  *item = &test_;
  return S_OK;
}

STDMETHODIMP ScriptSite::OnScriptError(IActiveScriptError* error) {
  EXCEPINFO exception = {};
  DWORD context = 0;
  ULONG line = 0;
  LONG column = 0;
  error->GetExceptionInfo(&exception);
  error->GetSourcePosition(&context, &line, &column);
  if (exception.pfnDeferredFillIn) exception.pfnDeferredFillIn(&exception);
  wchar_t number[16];
  std::swprintf(number, 16, L"%08lX", static_cast<unsigned long>(exception.scode));
  test_.Fail(std::wstring(context ? L"included line " : L"line ") + std::to_wstring(line + 1) +
             L": error " + number + L" (" + std::to_wstring(exception.scode & 0xFFFF) + L") from " +
             TextOf(exception.bstrSource) + L": " + TextOf(exception.bstrDescription));
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  SysFreeString(exception.bstrHelpFile);
  return S_OK;
}

}  // namespace korvane::test
