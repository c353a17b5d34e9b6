// What the whole server holds: how much of it is in use, and its type library.
#pragma once

#include <oaidl.h>

#include <string>

#include "frame/object_model.h"
#include "variant.h"

namespace korvane::com {

/// Keeps the server loaded: one for each object that is handed out, and for each lock.
class InUse {
 public:
  InUse();
  InUse(const InUse&) = delete;
  InUse& operator=(const InUse&) = delete;
  ~InUse();
  static long Count();
  static void Lock(bool locked);
};

/// Where the server's file is.
std::u16string ServerPath();

/// The type library in the server's own file.
HRESULT LoadOwnTypeLibrary(Reference<ITypeLib>& library);

/// The interface "_Class" and the class as the type library describes them.
HRESULT InterfaceInfo(const model::Class& of, Reference<ITypeInfo>& info);
HRESULT ClassInfo(const model::Class& of, Reference<ITypeInfo>& info);

/// Lets the type library go; it is loaded again when it is needed.
void ForgetTypeLibrary();

}  // namespace korvane::com
