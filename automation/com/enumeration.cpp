#include "enumeration.h"

#include <algorithm>

namespace korvane::com {

STDMETHODIMP Enumeration::QueryInterface(REFIID iid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  if (iid != IID_IUnknown && iid != IID_IEnumVARIANT) return E_NOINTERFACE;
  AddRef();
  *object = static_cast<IEnumVARIANT*>(this);
  return S_OK;
}

STDMETHODIMP_(ULONG) Enumeration::AddRef() {
  return static_cast<ULONG>(InterlockedIncrement(&references_));
}

STDMETHODIMP_(ULONG) Enumeration::Release() {
  const LONG left = InterlockedDecrement(&references_);
  if (left == 0) delete this;
  return static_cast<ULONG>(left);
}

STDMETHODIMP Enumeration::Next(ULONG count, VARIANT* items, ULONG* fetched) {
  if (fetched) *fetched = 0;
  if (!items || (!fetched && count != 1)) return E_POINTER;
  ULONG given = 0;
  for (; given < count && next_ < items_.size(); ++given, ++next_) {
    Variant item = Variant::Object(items_[next_].get());
    item.MoveTo(&items[given]);
  }
  if (fetched) *fetched = given;
  return given == count ? S_OK : S_FALSE;
}

STDMETHODIMP Enumeration::Skip(ULONG count) {
  const size_t left = items_.size() - next_;
  next_ += std::min<size_t>(left, count);
  return count <= left ? S_OK : S_FALSE;
}

STDMETHODIMP Enumeration::Reset() {
  next_ = 0;
  return S_OK;
}

STDMETHODIMP Enumeration::Clone(IEnumVARIANT** copy) try {
  if (!copy) return E_POINTER;
  *copy = nullptr;
  *copy = new Enumeration(items_, next_);
  return S_OK;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

}  // namespace korvane::com
