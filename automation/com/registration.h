// The server's entries in the registry: its creatable classes by identifier and by name, and its
// type library with the interfaces.
#pragma once

#include <wtypes.h>

namespace korvane::com {

/// What is written stays only if all of it could be written.
HRESULT Register();
/// Entries that are not there are no fault.
HRESULT Unregister();

}  // namespace korvane::com
