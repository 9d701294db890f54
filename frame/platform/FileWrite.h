// Writing a file that already exists, and the check that a file lies inside a folder;
// paths may use "\\" separators.
#pragma once

#include <string>

namespace platform {

// Opens an existing regular file for writing, truncates it and writes `data`. Never
// makes a file: false when it does not exist, is no regular file, or the write fails.
bool OverwriteExistingFile(const std::string& path, const std::string& data);

// True when `path` exists and, with every link followed, lies below `folder`.
bool IsInsideFolder(const std::string& folder, const std::string& path);

}  // namespace platform
