// Settings in the registry of Windows until the end of the scope, written as a settings file of the
// simple kind: key heads, texts, 32-bit numbers. They lie in a key of this process's own that
// stands for HKEY_LOCAL_MACHINE, so that programs can run side by side.
#pragma once

#include <windows.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

namespace korvane::test {

class SettingsInUse {
 public:
  SettingsInUse() {
    name_ = "Software\\KorvaneTest\\" + std::to_string(GetCurrentProcessId()) + "_" +
            std::to_string(++count_);
    if (RegCreateKeyA(HKEY_CURRENT_USER, name_.c_str(), &machine_) != ERROR_SUCCESS ||
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, machine_) != ERROR_SUCCESS) {
      throw std::runtime_error("no key for settings");
    }
  }
  explicit SettingsInUse(std::string_view text) : SettingsInUse() {
    while (!text.empty()) {
      const size_t end = std::min(text.find("\r\n"), text.size());
      Line(text.substr(0, end));
      text.remove_prefix(std::min(end + 2, text.size()));
    }
  }
  ~SettingsInUse() {
    if (key_) RegCloseKey(key_);
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegCloseKey(machine_);
    RegDeleteTreeA(HKEY_CURRENT_USER, name_.c_str());
  }
  SettingsInUse(const SettingsInUse&) = delete;
  SettingsInUse& operator=(const SettingsInUse&) = delete;

 private:
  void Line(std::string_view line) {
    constexpr std::string_view kRoot = "[HKEY_LOCAL_MACHINE\\";
    if (line.starts_with(kRoot) && line.ends_with(']')) {
      const std::string path(line.substr(kRoot.size(), line.size() - kRoot.size() - 1));
      if (key_) RegCloseKey(key_);
      RegCreateKeyA(machine_, path.c_str(), &key_);
    } else if (const size_t equals = line.find("\"="); equals != line.npos) {
      Set(std::string(line.substr(1, equals - 1)), line.substr(equals + 2));
    }
  }

  void Set(const std::string& name, std::string_view value) {
    constexpr std::string_view kNumber = "dword:";
    if (value.starts_with(kNumber)) {
      const std::string digits(value.substr(kNumber.size()));
      const DWORD number = std::strtoul(digits.c_str(), nullptr, 16);
      RegSetValueExA(key_, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                     sizeof number);
      return;
    }
    std::string text;
    for (size_t i = 1; i + 1 < value.size(); ++i) {
      if (value[i] == '\\' && i + 2 < value.size()) ++i;
      text += value[i];
    }
    RegSetValueExA(key_, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                   static_cast<DWORD>(text.size() + 1));
  }

  static inline int count_ = 0;
  std::string name_;
  HKEY machine_ = nullptr;
  HKEY key_ = nullptr;
};

}  // namespace korvane::test
