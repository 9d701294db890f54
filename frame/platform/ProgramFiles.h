// Files that belong to the running program and lie at a fixed place relative to it,
// both in the build tree and once installed.
#pragma once

#include <string>
#include <vector>

namespace platform {

// The first of `candidates` (paths relative to the folder of the running program, as
// found through the kernel) that names an existing file, as a normalised path. When none
// exists, the first candidate, so that an error message names the usual place.
std::string FindProgramFile(const std::vector<std::string>& candidates);

}  // namespace platform
