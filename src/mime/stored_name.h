// The name under which an attachment's file lies in the published attachment directory. It comes
// from a mail, so it must neither leave the directory, nor be refused by the file system, nor be
// run by the web server that publishes it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace korvane {

/// User, message and part number before the name: unique for a part, the same at each opening. At
/// most 255 bytes, UTF-8.
///   separators and control characters        "_" each (on Windows also what it refuses)
///   an extension that a web server might run  "_" behind it, wherever in the name it stands
///   a name too long                           its middle gives way, the extension stays
std::string StoredFileName(int32_t user_id, int32_t message_id, int32_t number,
                           std::string_view name);

}  // namespace korvane
