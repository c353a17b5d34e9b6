// One open key of the settings registry. On Windows the registry itself; elsewhere a settings file
// in the registry editor's text format, at $KORVANE_REGISTRY or /etc/korvane/registry.reg.
//
// The class keeps no error state: every operation returns the system's status code. Names are
// compared in any case, as the registry does.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace korvane {

class Registry {
 public:
  static constexpr uint32_t kLocalMachine = 0x80000002;  ///< HKEY_LOCAL_MACHINE
  static constexpr int32_t kQueryValue = 1;              ///< access mask for reading
  static constexpr int32_t kSetValue = 2;
  static constexpr int32_t kCreateSubKey = 4;

  /// Status codes, the operating system's numbers.
  enum Status : int32_t {
    kSuccess = 0,
    kNotFound = 2,
    kAccessDenied = 5,
    kInvalidHandle = 6,
    kMoreData = 234,
  };

  /// The settings file that stands for the registry where the system has none.
  static std::string FilePath();

  Registry();
  ~Registry();
  Registry(const Registry&) = delete;
  Registry& operator=(const Registry&) = delete;

  int32_t OpenKey(uint32_t root, std::string_view path, int32_t access);
  int32_t CloseKey();
  /// An empty value reads as "" with status 0; one of 1,024 characters or more fails with
  /// kMoreData.
  int32_t GetStringValue(std::string_view name, std::string& value);
  int32_t SetStringValue(std::string_view name, std::string_view value);
  int32_t GetLongValue(std::string_view name, int32_t& value);
  int32_t SetLongValue(std::string_view name, int32_t value);
  int32_t DelValue(std::string_view name);
  int32_t CreateKey(std::string_view path);
  int32_t DelKey(std::string_view path);

 private:
  struct Key;
  std::unique_ptr<Key> key_;
};

}  // namespace korvane
