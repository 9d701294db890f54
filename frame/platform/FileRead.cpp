#include "frame/platform/FileRead.h"

#include <cstdio>

#include "frame/platform/Paths.h"

namespace platform {

bool ReadWholeFile(const std::string& path, std::vector<BYTE>& data) {
  if (!IsUsablePath(path)) return false;
  std::FILE* file = std::fopen(ToNativePath(path).c_str(), "rb");
  if (file == nullptr) return false;
  long size = 0;
  if (std::fseek(file, 0, SEEK_END) == 0) size = std::ftell(file);
  std::fseek(file, 0, SEEK_SET);
  if (size > 0) {
    std::vector<BYTE> contents(static_cast<std::size_t>(size));
    const std::size_t got = std::fread(contents.data(), 1, contents.size(), file);
    contents.resize(got);
    data = std::move(contents);
  }
  std::fclose(file);
  return true;
}

}  // namespace platform
