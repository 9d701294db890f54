#include "frame/platform/ProgramFiles.h"

#include <filesystem>

#include "frame/platform/Paths.h"
#include "frame/platform/SharedLibrary.h"

namespace platform {

std::string FindProgramFile(const std::vector<std::string>& candidates) {
  const std::string folder = ProgramDirectory();
  auto place = [&](const std::string& candidate) {
    return std::filesystem::path(JoinPath(folder, candidate)).lexically_normal().string();
  };
  for (const std::string& candidate : candidates) {
    const std::string path = place(candidate);
    if (FileExists(path)) return path;
  }
  return candidates.empty() ? folder : place(candidates.front());
}

}  // namespace platform
