// The clocks the module reads: wall time with milliseconds, the local zone's offset,
// and a monotonic millisecond count.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace platform {

struct WallTime {
  std::time_t Seconds;   // since 1970, universal time
  int Milliseconds;      // 0 to 999
};

WallTime NowWallTime();

// Seconds that the local zone is ahead of universal time at `moment`, daylight saving
// included (east of Greenwich is positive).
long LocalOffsetSeconds(std::time_t moment);

// Milliseconds from an arbitrary fixed start; never goes back.
std::uint64_t MonotonicMilliseconds();
// The same clock in microseconds.
std::uint64_t MonotonicMicroseconds();

// True when the process locale writes times on a 12-hour clock.
bool LocaleUses12HourClock();

// strftime of a moment in universal or local time, into at most 127 characters.
std::string FormatTime(std::time_t moment, const char* format, bool utc);

// strftime of a moment in local time under the system's locale (the one the environment
// names), into at most 127 characters. The process locale is not touched.
std::string FormatLocalTimeInSystemLocale(std::time_t moment, const char* format);

// "YYYY-MM-DD HH:MM:SS" of the local time now, for log lines.
std::string LocalTimestamp();

void SleepMilliseconds(unsigned milliseconds);
void SleepMicroseconds(unsigned microseconds);

}  // namespace platform
