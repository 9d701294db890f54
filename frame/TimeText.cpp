#include "frame/TimeText.h"

#include <atomic>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include "frame/Package.h"

namespace {

constexpr std::int64_t kMicrosPerSecond = 1000000;
constexpr std::int64_t kMicrosPerMinute = 60 * kMicrosPerSecond;
constexpr std::int64_t kMicrosPerHour = 60 * kMicrosPerMinute;
constexpr std::uint64_t kGapTimeMask = 0x0000FFFFFFFFFFFFULL;

std::atomic<bool> g_DebugTraceSuppressed{false};

const char* NullTimeText(BOOL compact, int decimals) {
  static const char* const full[] = {"--:--:--", "--:--:--.-", "--:--:--.--", "--:--:--.---", "--:--:--.----"};
  static const char* const brief[] = {"-", "-.-", "-.--", "-.---", "-.----"};
  // The table has no column for other decimals; they show like no decimals.
  const int column = decimals >= 0 && decimals <= 4 ? decimals : 0;
  return compact ? brief[column] : full[column];
}

// Negation without overflow: the most negative value stays as it is.
KVTTIME Negate(KVTTIME value) { return static_cast<KVTTIME>(0 - static_cast<std::uint64_t>(value)); }

// A sign put in front of a time text. The text is appended to the sign rather than the
// sign inserted before the text: g++ 12 at -O3 sees an overlapping copy in the insert
// that `"-" + text` makes and reports it as an error.
std::string WithPrefix(const char* prefix, const std::string& text) {
  std::string result(prefix);
  result += text;
  return result;
}

}  // namespace

std::string FormatTime(KVTTIME t, BOOL compact, int decimals) {
  if (t == KVTTIME_NULL) return NullTimeText(compact, decimals);

  const std::int64_t days = t / KVTTIME_DAY;
  if (days > 50) t -= days * KVTTIME_DAY;

  const char* sign = "";
  std::uint64_t magnitude = static_cast<std::uint64_t>(t);
  if (t < 0) {
    sign = "-";
    magnitude = 0 - magnitude;
  }
  const auto h = static_cast<unsigned long long>(magnitude / kMicrosPerHour);
  const auto m = static_cast<unsigned>((magnitude / kMicrosPerMinute) % 60);
  const auto s = static_cast<unsigned>((magnitude / kMicrosPerSecond) % 60);
  const auto u = static_cast<unsigned>(magnitude % kMicrosPerSecond);

  char text[64];
  int length = 0;
  if (!compact || h != 0) {
    length = std::snprintf(text, sizeof text, "%s%llu:%02u:%02u", sign, h, m, s);
  } else if (m == 0) {
    length = std::snprintf(text, sizeof text, "%s%u", sign, s);
  } else {
    length = std::snprintf(text, sizeof text, "%s%u:%02u", sign, m, s);
  }
  std::string result(text, static_cast<std::size_t>(length));

  // The fraction is cut, never rounded.
  switch (decimals) {
    case 1: std::snprintf(text, sizeof text, ".%u", u / 100000); break;
    case 2: std::snprintf(text, sizeof text, ".%02u", u / 10000); break;
    case 3: std::snprintf(text, sizeof text, ".%03u", u / 1000); break;
    case 4: std::snprintf(text, sizeof text, ".%04u", u / 100); break;
    default: return result;
  }
  return result + text;
}

std::string FormatGap(KVTTIME gap, BOOL plus, BOOL compact, int decimals) {
  if (gap == 0 || gap == KVTTIME_NULL) return "-";
  if (gap < 0) return WithPrefix("-", FormatTime(Negate(gap), compact, decimals));

  const std::uint64_t bits = static_cast<std::uint64_t>(gap);
  const std::uint64_t time = bits & kGapTimeMask;
  if (time == 0) {
    const int laps = static_cast<int>((bits >> 48) & 0xFFFF);
    const std::string word = GetTranslation(laps < 2 ? "lgHeader_Lap" : "lgHeader_Laps");
    return std::to_string(laps) + " " + word;
  }
  // Laps and time together: the time alone shows.
  return WithPrefix(plus ? "+" : "", FormatTime(static_cast<KVTTIME>(time), compact, decimals));
}

std::string TransponderToString(DWORD code) {
  const DWORD value = code & 0x1FFFFFFF;
  char text[32];
  if (value <= 0x5FFFFFF) {
    std::snprintf(text, sizeof text, "%ld", static_cast<long>(value));
    return text;
  }
  static const char kLetters[] = "CFGHKLNPRSTVWXZ";
  const long offset = static_cast<long>(value) - 0x6000000;
  long prefix = offset / 100000;
  const long number = offset % 100000;

  // Two letters, or three when the lowest letter would be the first of the alphabet.
  const int last = prefix % 15 > 0 ? 1 : 2;
  std::string result(static_cast<std::size_t>(last + 1), ' ');
  for (int i = last; i >= 0; --i) {
    result[static_cast<std::size_t>(i)] = kLetters[prefix % 15];
    prefix /= 15;
  }
  std::snprintf(text, sizeof text, "-%05ld", number);
  result += text;
  if (result[0] == 'C' && result.size() > 3 && result[3] == '-') result.erase(0, 1);
  return result;
}

int DebugTrace(const char* format, ...) {
  if (g_DebugTraceSuppressed.load(std::memory_order_relaxed)) return 0;
  char line[1024];
  va_list args;
  va_start(args, format);
  const int needed = std::vsnprintf(line, sizeof line, format, args);
  va_end(args);
  if (needed < 0) return 0;
  return needed < static_cast<int>(sizeof line) ? needed : static_cast<int>(sizeof line) - 1;
}

void SetDebugTraceSuppressed(BOOL suppressed) {
  g_DebugTraceSuppressed.store(suppressed != 0, std::memory_order_relaxed);
}
