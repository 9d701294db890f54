#include "frame/Clock.h"

#include "frame/KVTException.h"
#include "frame/platform/Time.h"

int GetTimezoneCorrection() {
  return Guarded("GetTimezoneCorrection()", [] {
    return static_cast<int>(-platform::LocalOffsetSeconds(platform::NowWallTime().Seconds));
  });
}

DWORD GetTimeOfDay() {
  return Guarded("GetTimeOfDay()", [] {
    const platform::WallTime now = platform::NowWallTime();
    return static_cast<DWORD>(now.Seconds + platform::LocalOffsetSeconds(now.Seconds));
  });
}

KVTTIME GetKVTTimeOfDay() {
  return Guarded("GetKVTTimeOfDay()", [] {
    const platform::WallTime now = platform::NowWallTime();
    const KVTTIME localSeconds = static_cast<KVTTIME>(now.Seconds) + platform::LocalOffsetSeconds(now.Seconds);
    return localSeconds * 1000000 + static_cast<KVTTIME>(now.Milliseconds) * 1000;
  });
}

std::string NextToken(std::string& list, char separator, BOOL& done) {
  done = FALSE;
  if (list.empty()) {
    done = TRUE;
    return list;
  }
  const auto at = list.find(separator);
  if (at != std::string::npos) {
    std::string token = list.substr(0, at);
    list.erase(0, at + 1);
    return token;
  }
  std::string token;
  token.swap(list);
  // Only the first carriage return and the first line feed go.
  if (auto cr = token.find('\r'); cr != std::string::npos) token.erase(cr, 1);
  if (auto lf = token.find('\n'); lf != std::string::npos) token.erase(lf, 1);
  return token;
}
