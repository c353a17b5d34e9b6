// What the Windows forms of sockets and resolver share.
#pragma once

#include <string>

namespace korvane::sockets {

/// Starts the system's socket layer at the first call, once for the process. The library then stays
/// loaded until the process ends, because a resolver's thread may outlive the call that began it.
bool StartWinsock();

/// A name of a host, UTF-8, as the system takes it.
std::wstring Utf16(const std::string& name);

}  // namespace korvane::sockets
