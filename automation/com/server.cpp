#include "server.h"

#include <windows.h>

#include <oleauto.h>

#include <mutex>

#include "guid.h"
#include "identifiers.h"

namespace korvane::com {

namespace {

LONG in_use = 0;

struct OwnLibrary {
  std::mutex mutex;
  Reference<ITypeLib> library;
};

OwnLibrary& Own() {
  // Not given up with the process: the automation library may be gone by then.
  static auto* const own = new OwnLibrary;
  return *own;
}

HRESULT InfoOf(std::string_view id, Reference<ITypeInfo>& info) {
  OwnLibrary& own = Own();
  const std::lock_guard lock(own.mutex);
  if (!own.library) {
    const HRESULT status = LoadOwnTypeLibrary(own.library);
    if (FAILED(status)) return status;
  }
  return own.library->GetTypeInfoOfGuid(ToGuid(id), info.Out());
}

}  // namespace

InUse::InUse() { Lock(true); }
InUse::~InUse() { Lock(false); }
long InUse::Count() { return InterlockedCompareExchange(&in_use, 0, 0); }
void InUse::Lock(bool locked) {
  locked ? InterlockedIncrement(&in_use) : InterlockedDecrement(&in_use);
}

std::u16string ServerPath() {
  HMODULE module = nullptr;
  GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<const wchar_t*>(&Own), &module);
  std::u16string path(32768, u'\0');
  auto* place = reinterpret_cast<wchar_t*>(path.data());
  path.resize(GetModuleFileNameW(module, place, static_cast<DWORD>(path.size())));
  return path;
}

HRESULT LoadOwnTypeLibrary(Reference<ITypeLib>& library) {
  const std::u16string path = ServerPath();
  return LoadTypeLibEx(reinterpret_cast<const OLECHAR*>(path.c_str()), REGKIND_NONE, library.Out());
}

HRESULT InterfaceInfo(const model::Class& of, Reference<ITypeInfo>& info) {
  return InfoOf(FindIdentifiers(of.name)->interface_id, info);
}

HRESULT ClassInfo(const model::Class& of, Reference<ITypeInfo>& info) {
  return InfoOf(FindIdentifiers(of.name)->class_id, info);
}

void ForgetTypeLibrary() {
  OwnLibrary& own = Own();
  const std::lock_guard lock(own.mutex);
  own.library = Reference<ITypeLib>();
}

}  // namespace korvane::com
