#include "class_factory.h"

#include <exception>
#include <new>

#include "../bindings.h"
#include "held_object.h"
#include "variant.h"

namespace korvane::com {

STDMETHODIMP ClassFactory::QueryInterface(REFIID iid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  if (iid != IID_IUnknown && iid != IID_IClassFactory) return E_NOINTERFACE;
  AddRef();
  *object = static_cast<IClassFactory*>(this);
  return S_OK;
}

STDMETHODIMP_(ULONG) ClassFactory::AddRef() {
  return static_cast<ULONG>(InterlockedIncrement(&references_));
}

STDMETHODIMP_(ULONG) ClassFactory::Release() {
  const LONG left = InterlockedDecrement(&references_);
  if (left == 0) delete this;
  return static_cast<ULONG>(left);
}

STDMETHODIMP ClassFactory::CreateInstance(IUnknown* outer, REFIID iid, void** object) try {
  if (!object) return E_POINTER;
  *object = nullptr;
  if (outer) return CLASS_E_NOAGGREGATION;
  Reference<IDispatch> made;
  *made.Out() = HeldObject::Wrap(automation::Create(class_.name), class_);
  return made->QueryInterface(iid, object);
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
} catch (const std::exception&) {
  return E_FAIL;
}

STDMETHODIMP ClassFactory::LockServer(BOOL lock) {
  InUse::Lock(lock != FALSE);
  return S_OK;
}

}  // namespace korvane::com
