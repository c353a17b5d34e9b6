// The registry over a settings file. Each change reads the file again under a lock and replaces it
// by a rename, so readers see the file before or after it and two writers lose nothing.
#include "frame/registry.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>

#include "frame/code_page.h"
#include "frame/files.h"
#include "frame/settings_file.h"

namespace korvane {

namespace {

constexpr std::array<std::string_view, 4> kRoots = {"HKEY_CLASSES_ROOT", "HKEY_CURRENT_USER",
                                                    "HKEY_LOCAL_MACHINE", "HKEY_USERS"};
// More than any settings file; a wrong path must not fill the memory.
constexpr std::uintmax_t kLongestFile = 16u * 1024 * 1024;

int32_t Load(const std::string& path, SettingsFile& settings) {
  std::error_code error;
  const auto size = std::filesystem::file_size(path, error);
  if (error == std::errc::permission_denied) return Registry::kAccessDenied;
  if (error || size > kLongestFile) return Registry::kNotFound;
  std::string bytes;
  if (!ReadWholeFile(path, bytes)) return Registry::kAccessDenied;
  settings = SettingsFile(bytes);
  return Registry::kSuccess;
}

}  // namespace

struct Registry::Key {
  std::string file;
  std::string path;
  int32_t access = 0;
  SettingsFile settings;

  /// Runs `change` on the file as it is now and writes it back when that returns success.
  int32_t Change(const std::function<int32_t(SettingsFile&)>& change) {
    // Where the path is a link, the file behind it is what gets replaced.
    std::error_code error;
    std::filesystem::path target = std::filesystem::canonical(file, error);
    if (error) target = file;
    const UserLock lock(target.string());
    if (!lock.Held()) return kAccessDenied;
    SettingsFile fresh;
    int32_t status = Load(target.string(), fresh);
    if (status == kSuccess) status = change(fresh);
    if (status == kSuccess && !WriteWholeFile(target.string(), fresh.Bytes(), true)) {
      status = kAccessDenied;
    }
    if (status == kSuccess) settings = std::move(fresh);
    return status;
  }
};

std::string Registry::FilePath() {
  const char* path = std::getenv("KORVANE_REGISTRY");
  return path && *path ? path : "/etc/korvane/registry.reg";
}

Registry::Registry() = default;
Registry::~Registry() = default;

int32_t Registry::OpenKey(uint32_t root, std::string_view path, int32_t access) {
  key_.reset();
  if (root < 0x80000000u || root - 0x80000000u >= kRoots.size()) return kInvalidHandle;
  auto key = std::make_unique<Key>();
  key->file = FilePath();
  key->access = access;
  key->path = kRoots[root - 0x80000000u];
  if (!path.empty()) key->path += "\\" + std::string(path);
  if (const int32_t status = Load(key->file, key->settings); status != kSuccess) return status;
  // The roots themselves are always there.
  if (!path.empty() && !key->settings.HasKey(key->path)) return kNotFound;
  key_ = std::move(key);
  return kSuccess;
}

int32_t Registry::CloseKey() {
  if (!key_) return kInvalidHandle;
  key_.reset();
  return kSuccess;
}

int32_t Registry::GetStringValue(std::string_view name, std::string& value) {
  constexpr size_t kBufferSize = 1024;
  value.clear();
  if (!key_) return kInvalidHandle;
  if (!(key_->access & kQueryValue)) return kAccessDenied;
  const auto* found = key_->settings.Find(key_->path, name);
  if (!found) return kNotFound;
  // A text is as long as the registry would hand it out: in the code page, a byte a character.
  const bool is_text = found->type == SettingsFile::kText ||
                       found->type == SettingsFile::kExpandText ||
                       found->type == SettingsFile::kMultiText;
  const size_t size = is_text && found->data.size() > kBufferSize ? FromUtf8(found->data).size()
                                                                  : found->data.size();
  if (size > kBufferSize) return kMoreData;
  const size_t end = found->data.find('\0');
  if (end != std::string::npos || size < kBufferSize) value = found->data.substr(0, end);
  return kSuccess;
}

int32_t Registry::SetStringValue(std::string_view name, std::string_view value) {
  if (!key_) return kInvalidHandle;
  if (!(key_->access & kSetValue)) return kAccessDenied;
  return key_->Change([&](SettingsFile& settings) -> int32_t {
    if (!settings.HasKey(key_->path)) return kNotFound;
    settings.Set(key_->path, name, SettingsFile::Text(value));
    return kSuccess;
  });
}

int32_t Registry::GetLongValue(std::string_view name, int32_t& value) {
  if (!key_) return kInvalidHandle;
  if (!(key_->access & kQueryValue)) return kAccessDenied;
  const auto* found = key_->settings.Find(key_->path, name);
  if (!found) return kNotFound;
  if (found->data.size() > 4) return kMoreData;
  // The kind of value is not looked at: its bytes are the number's.
  auto bits = static_cast<uint32_t>(value);
  for (size_t i = 0; i < found->data.size(); ++i) {
    bits &= ~(uint32_t{0xFF} << (8 * i));
    bits |= uint32_t{static_cast<unsigned char>(found->data[i])} << (8 * i);
  }
  value = static_cast<int32_t>(bits);
  return kSuccess;
}

int32_t Registry::SetLongValue(std::string_view name, int32_t value) {
  if (!key_) return kInvalidHandle;
  if (!(key_->access & kSetValue)) return kAccessDenied;
  return key_->Change([&](SettingsFile& settings) -> int32_t {
    if (!settings.HasKey(key_->path)) return kNotFound;
    settings.Set(key_->path, name, SettingsFile::Number(value));
    return kSuccess;
  });
}

int32_t Registry::DelValue(std::string_view name) {
  if (!key_) return kInvalidHandle;
  if (!(key_->access & kSetValue)) return kAccessDenied;
  return key_->Change([&](SettingsFile& settings) -> int32_t {
    return settings.Delete(key_->path, name) ? kSuccess : kNotFound;
  });
}

int32_t Registry::CreateKey(std::string_view path) {
  if (!key_) return kInvalidHandle;
  if (!(key_->access & kCreateSubKey)) return kAccessDenied;
  return key_->Change([&](SettingsFile& settings) -> int32_t {
    if (!path.empty()) settings.CreateKey(key_->path + "\\" + std::string(path));
    return kSuccess;
  });
}

int32_t Registry::DelKey(std::string_view path) {
  if (!key_) return kInvalidHandle;
  return key_->Change([&](SettingsFile& settings) -> int32_t {
    const std::string key = key_->path + "\\" + std::string(path);
    if (path.empty() || !settings.HasKey(key)) return kNotFound;
    if (settings.HasSubKeys(key)) return kAccessDenied;
    settings.DeleteKey(key);
    return kSuccess;
  });
}

}  // namespace korvane
