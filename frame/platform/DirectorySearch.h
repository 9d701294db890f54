// Listing a folder at the file-system border; the path may use "\\" separators.
#pragma once

#include <string>
#include <vector>

namespace platform {

struct DirectoryEntry {
  std::string Name;
  bool IsDirectory;  // symbolic links followed
};

// The entries of a folder, sorted by name, without "." and "..". A folder that does not
// exist or cannot be read gives an empty list.
std::vector<DirectoryEntry> ListDirectory(const std::string& path);

}  // namespace platform
