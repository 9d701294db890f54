// The number of files (and sockets) this process may hold open.
#pragma once

#include <cstdint>

namespace platform {

// Raises the soft limit on open files to the hard limit; returns the soft limit in force
// afterwards (0 when it cannot be read).
std::uint64_t RaiseOpenFileLimit();
// The soft limit on open files in force now (UINT64_MAX: none; 0 when it cannot be read).
std::uint64_t OpenFileLimit();

}  // namespace platform
