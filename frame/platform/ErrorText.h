// Why a system call failed, in words for the operator: the ports keep the reason a
// start failed and show it on the main page and in the log.
#pragma once

#include <string>

namespace platform {

// The error number of the call that failed last on this thread; read it at once, before
// any other call can change it.
int LastError();
// A short lower-case text for an error number: "address in use", "no such device",
// "permission denied"; the system's own text for the rarer ones.
std::string ErrorText(int error);

}  // namespace platform
