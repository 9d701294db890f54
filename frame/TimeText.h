// Text of race times, gaps and transponder codes, and the debug trace.
#pragma once

#include <string>

#include "frame/Types.h"

// A KVTTIME as "h:mm:ss" with up to four truncated decimals; compact drops zero hours
// and minutes. An absolute moment (more than 50 days) shows as its time of day.
std::string FormatTime(KVTTIME t, BOOL compact, int decimals);

// A gap: "-" for none, "+time" or "time", or a count of laps ("3 Laps") when the time
// bits (47 to 0) are all zero.
std::string FormatGap(KVTTIME gap, BOOL plus, BOOL compact, int decimals);

// The printed form of a transponder code: the number, or letters and five digits for
// the high range ("FC-00042").
std::string TransponderToString(DWORD code);

// Formats a trace line into a local 1024-byte buffer; the text goes nowhere. Returns the
// number of characters formatted (0 while the trace is suppressed).
int DebugTrace(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The module-wide switch: while set, DebugTrace does not format at all.
void SetDebugTraceSuppressed(BOOL suppressed);
