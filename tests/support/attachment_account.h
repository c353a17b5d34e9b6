// A user whose attachments go to a folder of the test's choice: the settings come from where an
// installation has them.
#pragma once

#include <memory>
#include <string>

#include "facade/mail_user.h"
#include "frame/boss_object.h"
#include "settings_in_use.h"

namespace korvane::test {

/// `attachments` may be "", for an installation without a place for them.
inline std::shared_ptr<MailUser> AccountWithAttachmentsIn(const std::string& attachments,
                                                          int32_t user_id) {
  std::string text =
      "Windows Registry Editor Version 5.00\r\n\r\n"
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel_IS_App\\KorvaneMulti\\Korvane1\\KorvaneDll]\r\n"
      "\"PathAtcmts\"=\"";
  for (const char c : attachments) {
    if (c == '\\') text += c;
    text += c;
  }
  text += "\"\r\n\"URLAtcmts\"=\"/files\"\r\n\"ServerTimeout\"=dword:00001b58\r\n";
  for (const char* name : {"PathMessages", "PathAtcmtsInvio", "PathLog", "PathBackgrDownloader",
                           "DbConnectionString"}) {
    text.append("\"").append(name).append("\"=\"\"\r\n");
  }
  const SettingsInUse settings(text);
  BossObject boss;
  boss.Init(1);
  auto account = std::make_shared<MailUser>();
  account->InitFromConfig(boss, nullptr, user_id, MailUser::kNoAccount);
  return account;
}

}  // namespace korvane::test
