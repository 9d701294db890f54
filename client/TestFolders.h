// Test helper: a fresh folder under the system's temporary folder, removed at the end.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "testing/TempDir.h"

namespace testfolders {

// The project's scratch folder, seen as a filesystem path.
class ScopedTempFolder {
 public:
  const std::filesystem::path& Path() const { return Root; }

 private:
  TempDir Folder;
  std::filesystem::path Root{Folder.Path()};
};

inline std::string ReadWholeFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Every entry under `root`, relative to it, links not followed.
inline std::vector<std::string> ListTree(const std::filesystem::path& root) {
  std::vector<std::string> entries;
  std::error_code code;
  for (auto it = std::filesystem::recursive_directory_iterator(root, code);
       it != std::filesystem::recursive_directory_iterator(); it.increment(code)) {
    entries.push_back(std::filesystem::relative(it->path(), root, code).string());
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

}  // namespace testfolders
