// The user's message file: its name and the lock over it. The record layout is docs/message_file.md.
#pragma once

#include <cstdint>
#include <string>

#include "../facade/mail_user.h"

namespace korvane {

/// PathMessages, separator, user id, "_Messaggi.dat".
std::string MessageFilePath(const std::string& path_messages, int32_t user_id);
std::string MessageFilePath(const MailUser& account);

/// The version that new records carry.
inline constexpr int32_t kRecordVersion = 3;

}  // namespace korvane
