// Sets the process time zone (TZ) for one scope and puts the old setting back after it.
#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

class CZoneSetting {
 public:
  explicit CZoneSetting(const char* zone) {
    if (const char* old = std::getenv("TZ")) Old = old;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~CZoneSetting() {
    if (Old) {
      setenv("TZ", Old->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  CZoneSetting(const CZoneSetting&) = delete;
  CZoneSetting& operator=(const CZoneSetting&) = delete;

 private:
  std::optional<std::string> Old;
};
