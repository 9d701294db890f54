// Writing a file that already exists; paths may use "\\" separators. The check that a
// file lies inside a folder (IsInsideFolder) lives with the other path calls.
#pragma once

#include <string>

#include "frame/platform/Paths.h"

namespace platform {

// Opens an existing regular file for writing, truncates it and writes `data`. Never
// makes a file: false when it does not exist, is no regular file, or the write fails.
bool OverwriteExistingFile(const std::string& path, const std::string& data);

}  // namespace platform
