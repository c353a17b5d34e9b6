// What For Each walks over.
#pragma once

#include <oaidl.h>

#include <vector>

#include "server.h"
#include "variant.h"

namespace korvane::com {

class Enumeration final : public IEnumVARIANT {
 public:
  explicit Enumeration(std::vector<Reference<IDispatch>> items, size_t next = 0)
      : items_(std::move(items)), next_(next) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE Next(ULONG count, VARIANT* items, ULONG* fetched) override;
  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override;
  HRESULT STDMETHODCALLTYPE Reset() override;
  HRESULT STDMETHODCALLTYPE Clone(IEnumVARIANT** copy) override;

 private:
  ~Enumeration() = default;

  const std::vector<Reference<IDispatch>> items_;
  size_t next_;
  LONG references_ = 1;
  const InUse in_use_;
};

}  // namespace korvane::com
