// A settings file in a folder of its own, which the registry takes for the settings of this system
// until the end of the scope.
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

#include "temp_folder.h"

namespace korvane::test {

class SettingsFileInUse {
 public:
  explicit SettingsFileInUse(const std::string& bytes) : SettingsFileInUse() { Write(bytes); }
  /// Names a file that is not there.
  SettingsFileInUse() {
    if (const char* old = std::getenv(kVariable)) old_ = old;
    setenv(kVariable, path().c_str(), 1);
  }
  ~SettingsFileInUse() { old_.empty() ? unsetenv(kVariable) : setenv(kVariable, old_.c_str(), 1); }
  SettingsFileInUse(const SettingsFileInUse&) = delete;
  SettingsFileInUse& operator=(const SettingsFileInUse&) = delete;

  void Write(const std::string& bytes) { std::ofstream(path(), std::ios::binary) << bytes; }
  std::string Bytes() const {
    std::ifstream file(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::string path() const { return folder_ / "registry.reg"; }
  const TempFolder& folder() const { return folder_; }

 private:
  static constexpr const char* kVariable = "KORVANE_REGISTRY";
  TempFolder folder_;
  std::string old_;
};

}  // namespace korvane::test
