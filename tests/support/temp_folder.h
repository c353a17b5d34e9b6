// A folder of a test's own, removed with everything in it at the end of its scope.
#pragma once

#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

namespace korvane::test {

class TempFolder {
 public:
  TempFolder() {
    std::random_device random;
    const auto place = std::filesystem::temp_directory_path();
    for (int attempt = 0; attempt < 100; ++attempt) {
      const auto path = place / ("korvane-" + std::to_string(random()));
      if (!std::filesystem::create_directory(path)) continue;
      std::filesystem::permissions(path, std::filesystem::perms::owner_all);
      path_ = path.string();
      return;
    }
    throw std::runtime_error("no temporary folder");
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const {
    return path_ + static_cast<char>(std::filesystem::path::preferred_separator) + name;
  }

 private:
  std::string path_;
};

}  // namespace korvane::test
