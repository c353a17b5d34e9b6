// Damage to the files of this process that no name leads to.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace korvane::test {

/// Cuts those that were made in this folder to their first bytes; how many there were.
inline int CutUnnamedFiles(const std::string& folder, off_t bytes) {
  int count = 0;
  DIR* open_files = opendir("/proc/self/fd");
  while (const dirent* entry = readdir(open_files)) {
    char target[4096];
    const std::string link = std::string("/proc/self/fd/") + entry->d_name;
    const ssize_t length = readlink(link.c_str(), target, sizeof target);
    const std::string path(target, length > 0 ? static_cast<size_t>(length) : 0);
    if (!path.starts_with(folder + "/") || !path.ends_with(" (deleted)")) continue;
    count += ftruncate(std::atoi(entry->d_name), bytes) == 0;
  }
  closedir(open_files);
  return count;
}

}  // namespace korvane::test
