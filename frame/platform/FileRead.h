// Reading a whole file at the file-system border; the path may use "\\" separators.
#pragma once

#include <string>
#include <vector>

#include "frame/Types.h"

namespace platform {

// Reads the file into `data`. False when it cannot be opened (`data` unchanged), or the
// path holds a NUL byte. An empty file returns true and leaves `data` as it was.
bool ReadWholeFile(const std::string& path, std::vector<BYTE>& data);

}  // namespace platform
