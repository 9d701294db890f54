#include "frame/platform/DirectorySearch.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "frame/platform/Paths.h"

namespace platform {

std::vector<DirectoryEntry> ListDirectory(const std::string& path) {
  std::vector<DirectoryEntry> entries;
  if (!IsUsablePath(path)) return entries;
  std::error_code error;
  std::filesystem::directory_iterator walk(ToNativePath(path), error);
  if (error) return entries;
  for (const auto& entry : walk) {
    std::error_code kindError;
    entries.push_back({entry.path().filename().string(), entry.is_directory(kindError)});
  }
  std::sort(entries.begin(), entries.end(),
            [](const DirectoryEntry& a, const DirectoryEntry& b) { return a.Name < b.Name; });
  return entries;
}

}  // namespace platform
