// The registry of Windows itself, through the functions that take bytes in the code page. A text
// goes in with the code page's bytes where it has them; a character beyond it goes in as UTF-8 and
// comes back as itself.
#include <windows.h>

#include <array>
#include <cstring>

#include "frame/code_page.h"
#include "frame/registry.h"

namespace korvane {

struct Registry::Key {
  HKEY handle = nullptr;
  explicit Key(HKEY opened) : handle(opened) {}
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  ~Key() {
    if (handle) RegCloseKey(handle);
  }
};

Registry::Registry() = default;
Registry::~Registry() = default;

namespace {

// Without an open key the system itself refuses the handle.
HKEY Handle(const auto& key) { return key ? key->handle : nullptr; }

}  // namespace

int32_t Registry::OpenKey(uint32_t root, std::string_view path, int32_t access) {
  key_.reset();
  // The predefined handles are numbers whose sign is extended.
  const auto parent = reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<int32_t>(root)));
  HKEY opened = nullptr;
  const LSTATUS status =
      RegOpenKeyExA(parent, FromUtf8(path).c_str(), 0, static_cast<REGSAM>(access), &opened);
  if (status == ERROR_SUCCESS) key_ = std::make_unique<Key>(opened);
  return status;
}

int32_t Registry::CloseKey() {
  const HKEY handle = Handle(key_);
  if (key_) key_->handle = nullptr;
  key_.reset();
  return RegCloseKey(handle);
}

int32_t Registry::GetStringValue(std::string_view name, std::string& value) {
  value.clear();
  std::array<char, 1024> buffer{};
  DWORD size = buffer.size();
  DWORD type = REG_SZ;
  const LSTATUS status = RegQueryValueExA(Handle(key_), FromUtf8(name).c_str(), nullptr, &type,
                                          reinterpret_cast<BYTE*>(buffer.data()), &size);
  if (status == ERROR_SUCCESS) {
    // A value that leaves no room for the NUL is none.
    const void* end = std::memchr(buffer.data(), 0, buffer.size());
    if (end != nullptr) value = ToUtf8(buffer.data());
  }
  return status;
}

int32_t Registry::SetStringValue(std::string_view name, std::string_view value) {
  const std::string bytes = FromUtf8(value.substr(0, value.find('\0')));
  return RegSetValueExA(Handle(key_), FromUtf8(name).c_str(), 0, REG_SZ,
                        reinterpret_cast<const BYTE*>(bytes.c_str()),
                        static_cast<DWORD>(bytes.size() + 1));
}

int32_t Registry::GetLongValue(std::string_view name, int32_t& value) {
  DWORD size = sizeof value;
  DWORD type = REG_DWORD;
  return RegQueryValueExA(Handle(key_), FromUtf8(name).c_str(), nullptr, &type,
                          reinterpret_cast<BYTE*>(&value), &size);
}

int32_t Registry::SetLongValue(std::string_view name, int32_t value) {
  return RegSetValueExA(Handle(key_), FromUtf8(name).c_str(), 0, REG_DWORD,
                        reinterpret_cast<const BYTE*>(&value), sizeof value);
}

int32_t Registry::DelValue(std::string_view name) {
  return RegDeleteValueA(Handle(key_), FromUtf8(name).c_str());
}

int32_t Registry::CreateKey(std::string_view path) {
  HKEY made = nullptr;
  const LSTATUS status = RegCreateKeyA(Handle(key_), FromUtf8(path).c_str(), &made);
  return status == ERROR_SUCCESS ? RegCloseKey(made) : status;
}

int32_t Registry::DelKey(std::string_view path) {
  return RegDeleteKeyA(Handle(key_), FromUtf8(path).c_str());
}

}  // namespace korvane
