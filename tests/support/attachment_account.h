// A user whose attachments go to a folder of the test's choice: the settings come from a settings
// file, as they do in an installation.
#pragma once

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "facade/mail_user.h"
#include "frame/boss_object.h"
#include "support/temp_folder.h"

namespace korvane::test {

/// `attachments` may be "", for an installation without a place for them.
inline std::shared_ptr<MailUser> AccountWithAttachmentsIn(const std::string& attachments,
                                                          int32_t user_id) {
  const TempFolder folder;
  const std::string file = folder / "registry.reg";
  std::ofstream settings(file, std::ios::binary);
  settings << "Windows Registry Editor Version 5.00\r\n\r\n"
              "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel_IS_App\\KorvaneMulti\\Korvane1\\KorvaneDll]"
              "\r\n\"PathAtcmts\"=\""
           << attachments
           << "\"\r\n\"URLAtcmts\"=\"/files\"\r\n\"ServerTimeout\"=dword:00001b58\r\n";
  for (const char* name : {"PathMessages", "PathAtcmtsInvio", "PathLog", "PathBackgrDownloader",
                           "DbConnectionString"}) {
    settings << '"' << name << "\"=\"\"\r\n";
  }
  settings.close();
  const char* const before = std::getenv("KORVANE_REGISTRY");
  const std::string kept = before ? before : "";
  setenv("KORVANE_REGISTRY", file.c_str(), 1);
  BossObject boss;
  boss.Init(1);
  if (before) {
    setenv("KORVANE_REGISTRY", kept.c_str(), 1);
  } else {
    unsetenv("KORVANE_REGISTRY");
  }
  auto account = std::make_shared<MailUser>();
  account->InitFromConfig(boss, nullptr, user_id, MailUser::kNoAccount);
  return account;
}

}  // namespace korvane::test
