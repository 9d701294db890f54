// The name of the track flag as clients and labels show it.
#pragma once

#include <string>

#include "frame/Types.h"

// `special` wins over `flag`: white, finish and cold are special flags; otherwise the
// flag itself names the state. Unknown values read "none".
std::string FlagToString(DWORD flag, DWORD special);
