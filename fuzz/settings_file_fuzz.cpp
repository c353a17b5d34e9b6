// Settings files: any bytes are taken without a fault, are written back as they were read, and a
// value that is set in them is then found.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "frame/code_page.h"
#include "frame/settings_file.h"

using korvane::SettingsFile;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  SettingsFile settings(bytes);
  const std::string written = settings.Bytes();
  const bool wide = bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF");
  if (!wide && written != bytes) std::abort();
  if (SettingsFile(written).Bytes() != written) std::abort();

  const std::string key = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site";
  const std::string text = korvane::ToUtf8(std::string(bytes.substr(0, 100)));
  const SettingsFile::Value value = SettingsFile::Text(text);
  settings.Set(key, "Name", value);
  const SettingsFile again(settings.Bytes());
  const auto* found = again.Find(key, "Name");
  if (!found || found->data != value.data) std::abort();
  if (!settings.Delete(key, "Name") || settings.Find(key, "Name")) std::abort();
  settings.DeleteKey(key);
  if (settings.HasKey(key)) std::abort();
  return 0;
}
