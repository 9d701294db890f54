// The system's clock in local time, and the token cutter for lists held in one string.
#pragma once

#include <string>

#include "frame/Types.h"

// Seconds to subtract from universal time to get local time (west of Greenwich is positive).
int GetTimezoneCorrection();
// Seconds since 1970 in local time.
DWORD GetTimeOfDay();
// Microseconds since 1970 in local time, to the millisecond.
KVTTIME GetKVTTimeOfDay();

// Cuts the first token off `list`. n tokens give n results, then one empty result with
// `done` set.
std::string NextToken(std::string& list, char separator, BOOL& done);
