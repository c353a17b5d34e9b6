#include "registration.h"

#include <windows.h>

#include <oleauto.h>

#include <string>

#include "frame/object_model.h"
#include "guid.h"
#include "identifiers.h"
#include "server.h"
#include "variant.h"

namespace korvane::com {

namespace {

#if defined(_WIN64)
constexpr SYSKIND kSystem = SYS_WIN64;
#else
constexpr SYSKIND kSystem = SYS_WIN32;
#endif

const wchar_t* Wide(const std::u16string& text) {
  return reinterpret_cast<const wchar_t*>(text.c_str());
}

std::string Braced(std::string_view id) { return "{" + std::string(id) + "}"; }

HRESULT Write(const std::string& key, const char* name, const std::u16string& value) {
  const std::u16string value_name = ToUtf16(name ? name : "");
  const LSTATUS status =
      RegSetKeyValueW(HKEY_CLASSES_ROOT, Wide(ToUtf16(key)), name ? Wide(value_name) : nullptr,
                      REG_SZ, value.c_str(), static_cast<DWORD>((value.size() + 1) * 2));
  return HRESULT_FROM_WIN32(static_cast<DWORD>(status));
}

HRESULT Write(const std::string& key, const char* name, std::string_view value) {
  return Write(key, name, ToUtf16(value));
}

HRESULT Remove(const std::string& key) {
  const LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, Wide(ToUtf16(key)));
  if (status == ERROR_FILE_NOT_FOUND) return S_OK;
  if (status != ERROR_SUCCESS) return HRESULT_FROM_WIN32(static_cast<DWORD>(status));
  RegDeleteKeyW(HKEY_CLASSES_ROOT, Wide(ToUtf16(key)));
  return S_OK;
}

HRESULT RegisterClass(const ClassIdentifiers& ids, const std::u16string& path) {
  const std::string name = std::string(kLibraryName) + "." + std::string(ids.name);
  const std::string by_id = "CLSID\\" + Braced(ids.class_id);
  const std::string version = std::to_string(kMajorVersion) + "." + std::to_string(kMinorVersion);
  HRESULT status = Write(name, nullptr, name);
  if (SUCCEEDED(status)) status = Write(name + "\\CLSID", nullptr, Braced(ids.class_id));
  if (SUCCEEDED(status)) status = Write(by_id, nullptr, name);
  if (SUCCEEDED(status)) status = Write(by_id + "\\InprocServer32", nullptr, path);
  if (SUCCEEDED(status)) status = Write(by_id + "\\InprocServer32", "ThreadingModel", "Apartment");
  if (SUCCEEDED(status)) status = Write(by_id + "\\ProgID", nullptr, name);
  if (SUCCEEDED(status)) status = Write(by_id + "\\TypeLib", nullptr, Braced(kLibraryId));
  if (SUCCEEDED(status)) status = Write(by_id + "\\Version", nullptr, version);
  if (SUCCEEDED(status)) status = Write(by_id + "\\Programmable", nullptr, "");
  return status;
}

template <class Visit>
HRESULT ForEachCreatable(Visit visit) {
  for (const model::Class& one : model::Classes()) {
    if (!one.creatable) continue;
    const HRESULT status = visit(*FindIdentifiers(one.name));
    if (FAILED(status)) return status;
  }
  return S_OK;
}

}  // namespace

HRESULT Register() {
  std::u16string path = ServerPath();
  Reference<ITypeLib> library;
  HRESULT status = LoadOwnTypeLibrary(library);
  if (SUCCEEDED(status)) {
    status = RegisterTypeLib(library.get(), reinterpret_cast<OLECHAR*>(path.data()), nullptr);
  }
  if (SUCCEEDED(status)) {
    status =
        ForEachCreatable([&](const ClassIdentifiers& ids) { return RegisterClass(ids, path); });
  }
  if (FAILED(status)) Unregister();
  return status;
}

HRESULT Unregister() {
  HRESULT status = ForEachCreatable([](const ClassIdentifiers& ids) {
    const HRESULT by_name = Remove(std::string(kLibraryName) + "." + std::string(ids.name));
    const HRESULT by_id = Remove("CLSID\\" + Braced(ids.class_id));
    return FAILED(by_name) ? by_name : by_id;
  });
  Reference<ITypeLib> there;
  if (FAILED(LoadRegTypeLib(ToGuid(kLibraryId), kMajorVersion, kMinorVersion, LOCALE_NEUTRAL,
                            there.Out()))) {
    return status;
  }
  there = Reference<ITypeLib>();
  const HRESULT library =
      UnRegisterTypeLib(ToGuid(kLibraryId), kMajorVersion, kMinorVersion, LOCALE_NEUTRAL, kSystem);
  return FAILED(library) ? library : status;
}

}  // namespace korvane::com
