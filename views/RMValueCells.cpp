#include "views/RMValueCells.h"

#include <cstdio>
#include <ctime>

#include "frame/TimeText.h"
#include "frame/platform/Time.h"

std::string DWordCellRule::Text(DWORD value) {
  if (value == 0xFFFFFFFF) return "-";
  return std::to_string(static_cast<long>(value));
}

std::string IntegerCellRule::Text(int value) { return std::to_string(value); }

std::string DoubleCellRule::Text(double value) {
  // Exactly 0, and so -0.0 too, shows as no value.
  if (value == 0.0) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%0.3f", value);
  return text;
}

std::string KVTTimeCellRule::Text(KVTTIME value) { return FormatTime(value, TRUE, 3); }

std::string KVTDiffCellRule::Text(KVTTIME value) { return FormatGap(value, TRUE, TRUE, 3); }

std::string DateCellRule::Text(DWORD value) {
  return platform::FormatLocalTimeInSystemLocale(static_cast<std::time_t>(value), "%x");
}

std::string DateTimeCellRule::Text(DWORD value) {
  return platform::FormatLocalTimeInSystemLocale(static_cast<std::time_t>(value), "%c");
}
