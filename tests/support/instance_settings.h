// The settings of one installation, as its administrator writes them.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace korvane::test {

/// A settings file of installation `number` without the value `left_out`.
inline std::string InstanceSettings(int number, const std::string& left_out = "") {
  const std::vector<std::pair<std::string, std::string>> values = {
      {"PathAtcmts", "\"/a\""},
      {"PathAtcmtsInvio", "\"/i\""},
      {"URLAtcmts", "\"http://u\""},
      {"PathMessages", "\"/m\""},
      {"PathLog", "\"/l\""},
      {"PathBackgrDownloader", "\"/b\""},
      {"DbConnectionString", "\"sqlite:////d\""},
      {"ServerTimeout", "dword:00001388"},
      {"DebugMode", "dword:00000002"}};
  std::string text =
      "Windows Registry Editor Version 5.00\r\n\r\n"
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel_IS_App\\KorvaneMulti\\Korvane" +
      std::to_string(number) + "\\KorvaneDll]\r\n";
  for (const auto& [name, value] : values) {
    if (name != left_out) text += "\"" + name + "\"=" + value + "\r\n";
  }
  return text;
}

}  // namespace korvane::test
