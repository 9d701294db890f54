#include "frame/platform/Time.h"

#include <langinfo.h>
#include <locale.h>
#include <time.h>

#include <chrono>
#include <string>
#include <thread>

namespace platform {

WallTime NowWallTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return WallTime{now.tv_sec, static_cast<int>(now.tv_nsec / 1000000)};
}

long LocalOffsetSeconds(std::time_t moment) {
  // localtime_r need not look at TZ again; tzset makes a changed zone count at once.
  tzset();
  tm local{};
  if (localtime_r(&moment, &local) == nullptr) return 0;
  return local.tm_gmtoff;
}

std::uint64_t MonotonicMilliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000u + static_cast<std::uint64_t>(now.tv_nsec) / 1000000u;
}

std::uint64_t MonotonicMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000000u + static_cast<std::uint64_t>(now.tv_nsec) / 1000u;
}

bool LocaleUses12HourClock() {
  const std::string format = nl_langinfo(T_FMT);
  return format.find("%p") != std::string::npos || format.find("%I") != std::string::npos ||
         format.find("%r") != std::string::npos;
}

std::string FormatTime(std::time_t moment, const char* format, bool utc) {
  tm parts{};
  if ((utc ? gmtime_r(&moment, &parts) : localtime_r(&moment, &parts)) == nullptr) return std::string();
  char text[128];
  const std::size_t length = std::strftime(text, sizeof text, format, &parts);
  return std::string(text, length);
}

namespace {

// The system's locale as a locale object of its own, made once; "C" when the one the
// environment names is not installed.
locale_t SystemLocale() {
  static const locale_t locale = [] {
    locale_t made = newlocale(LC_ALL_MASK, "", static_cast<locale_t>(nullptr));
    return made != static_cast<locale_t>(nullptr) ? made : newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  }();
  return locale;
}

}  // namespace

std::string FormatLocalTimeInSystemLocale(std::time_t moment, const char* format) {
  tm parts{};
  if (localtime_r(&moment, &parts) == nullptr) return std::string();
  char text[128];
  const std::size_t length = strftime_l(text, sizeof text, format, &parts, SystemLocale());
  return std::string(text, length);
}

std::string LocalTimestamp() {
  const std::time_t now = std::time(nullptr);
  tm local{};
  localtime_r(&now, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  return stamp;
}

void SleepMilliseconds(unsigned milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void SleepMicroseconds(unsigned microseconds) {
  std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

}  // namespace platform
