// The files of a batch of messages beside the message file: their attachments.
#pragma once

#include <string>
#include <vector>

namespace korvane {

/// Puts the files and the directories that name them on the disk.
bool SyncFiles(const std::vector<std::string>& files);

/// Removes the files and forgets them.
void RemoveFiles(std::vector<std::string>& files);

}  // namespace korvane
