#include "testing/TempDir.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "zoltest-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a temporary folder");
  Root = pattern;
}

TempDir::~TempDir() {
  std::error_code error;
  std::filesystem::remove_all(Root, error);
}

std::string TempDir::Write(const std::string& relative, const std::string& contents) const {
  const std::filesystem::path path = std::filesystem::path(Root) / relative;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file << contents;
  return path.string();
}
