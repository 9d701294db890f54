// Test helper: a fresh folder under the system's temporary folder, removed at the end.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <system_error>
#include <vector>

namespace testfolders {

class ScopedTempFolder {
 public:
  ScopedTempFolder() {
    std::random_device random;
    for (int attempt = 0; attempt < 100; ++attempt) {
      const std::filesystem::path candidate =
          std::filesystem::temp_directory_path() / ("zolclient-test-" + std::to_string(random()) + std::to_string(random()));
      std::error_code code;
      if (std::filesystem::create_directory(candidate, code)) {
        Root = candidate;
        return;
      }
    }
  }
  ~ScopedTempFolder() {
    std::error_code code;
    if (!Root.empty()) std::filesystem::remove_all(Root, code);
  }
  ScopedTempFolder(const ScopedTempFolder&) = delete;
  ScopedTempFolder& operator=(const ScopedTempFolder&) = delete;

  const std::filesystem::path& Path() const { return Root; }

 private:
  std::filesystem::path Root;
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
