// Makes objects of a creatable class for automation.
#pragma once

#include <unknwn.h>

#include "frame/object_model.h"
#include "server.h"

namespace korvane::com {

class ClassFactory final : public IClassFactory {
 public:
  explicit ClassFactory(const model::Class& of) : class_(of) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override;
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;

 private:
  ~ClassFactory() = default;

  const model::Class& class_;
  LONG references_ = 1;
  const InUse in_use_;
};

}  // namespace korvane::com
