// What the system asks of an in-process server.
#include <windows.h>

#include <olectl.h>

#include <exception>
#include <new>

#include "class_factory.h"
#include "guid.h"
#include "identifiers.h"
#include "registration.h"
#include "server.h"

namespace com = korvane::com;
namespace model = korvane::model;

namespace {

template <class Work>
HRESULT Guarded(Work work) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (const std::exception&) {
    return E_FAIL;
  }
}

}  // namespace

STDAPI DllGetClassObject(REFCLSID id, REFIID iid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  return Guarded([&]() -> HRESULT {
    for (const model::Class& one : model::Classes()) {
      if (!one.creatable || id != com::ToGuid(com::FindIdentifiers(one.name)->class_id)) continue;
      auto* factory = new com::ClassFactory(one);
      const HRESULT status = factory->QueryInterface(iid, object);
      factory->Release();
      return status;
    }
    return CLASS_E_CLASSNOTAVAILABLE;
  });
}

STDAPI DllCanUnloadNow() {
  if (com::InUse::Count() != 0) return S_FALSE;
  com::ForgetTypeLibrary();
  return S_OK;
}

STDAPI DllRegisterServer() { return Guarded(com::Register); }

STDAPI DllUnregisterServer() { return Guarded(com::Unregister); }
