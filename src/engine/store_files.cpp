#include "engine/store_files.h"

#include "frame/files.h"

namespace korvane {

bool SyncFiles(const std::vector<std::string>& files) {
  std::string synced;
  for (const std::string& file : files) {
    if (!SyncFile(file)) return false;
    std::string directory = DirectoryOf(file);
    if (directory == synced) continue;
    if (!SyncDirectory(directory)) return false;
    synced = std::move(directory);
  }
  return true;
}

void RemoveFiles(std::vector<std::string>& files) {
  for (const std::string& file : files) RemoveFile(file);
  files.clear();
}

}  // namespace korvane
