#include "frame/Package.h"

#include <cstdio>
#include <fstream>
#include <vector>

#include "frame/KVTException.h"
#include "frame/platform/Time.h"

namespace {

CPackage* g_Package = nullptr;

// Ends a variable argument list also when the lookup throws.
struct ArgumentListEnd {
  va_list& List;
  ~ArgumentListEnd() { va_end(List); }
};

// A text is a printf format; the buffer grows to keep long texts whole.
std::string FormatText(const std::string& format, va_list args) {
  std::vector<char> out(512);
  va_list copy;
  va_copy(copy, args);
  const int needed = std::vsnprintf(out.data(), out.size(), format.c_str(), copy);
  va_end(copy);
  if (needed < 0) return format;
  if (static_cast<std::size_t>(needed) >= out.size()) {
    out.resize(static_cast<std::size_t>(needed) + 1);
    va_copy(copy, args);
    std::vsnprintf(out.data(), out.size(), format.c_str(), copy);
    va_end(copy);
  }
  return std::string(out.data(), static_cast<std::size_t>(needed));
}

}  // namespace

const std::map<std::string, std::string>& BuiltInTexts() {
  static const std::map<std::string, std::string> texts = {
  {"lgHeader_2nd_Best", "2nd Best"},
  {"lgHeader_2nd_Lap", "2nd Lap"},
  {"lgHeader_2nd_Spd", "2nd Spd"},
  {"lgHeader_AvgSpeed", "Avg. Speed"},
  {"lgHeader_AvgTm", "Avg Tm"},
  {"lgHeader_BestLapBy", "Best Lap by"},
  {"lgHeader_BestSpd", "Best Spd"},
  {"lgHeader_BestTm", "Best Tm"},
  {"lgHeader_Best_Laptime", "Best Lap Tm"},
  {"lgHeader_Car_RegNumber", "Car Reg"},
  {"lgHeader_Car_Transponders", "Car Tx"},
  {"lgHeader_Class", "Class"},
  {"lgHeader_DateTime", "Date & Time"},
  {"lgHeader_Diff", "Diff"},
  {"lgHeader_ElapsedTime", "Elapsed Time"},
  {"lgHeader_Event", "Event"},
  {"lgHeader_First_Name", "First Name"},
  {"lgHeader_Flag", "Flag"},
  {"lgHeader_FlagSpecial", "Special Flag"},
  {"lgHeader_Gap", "Gap"},
  {"lgHeader_Group", "Group"},
  {"lgHeader_In_Lap", "In Lap"},
  {"lgHeader_Lap", "Lap"},
  {"lgHeader_Laps", "Laps"},
  {"lgHeader_LapsToGo", "Laps to go"},
  {"lgHeader_LastSpd", "Last Spd"},
  {"lgHeader_LastTm", "Last Tm"},
  {"lgHeader_Last_Name", "Last Name"},
  {"lgHeader_Leader", "Leader"},
  {"lgHeader_Minimum_Laptime", "Min Laptm"},
  {"lgHeader_Name", "Name"},
  {"lgHeader_No", "No."},
  {"lgHeader_Points", "Points"},
  {"lgHeader_Pos", "Pos"},
  {"lgHeader_PosInClass", "PIC"},
  {"lgHeader_RaceDistance", "Distance"},
  {"lgHeader_RaceTime", "RaceTime"},
  {"lgHeader_Run", "Run"},
  {"lgHeader_ShortNr", "Short No"},
  {"lgHeader_Status", "Status"},
  {"lgHeader_Text", "Text"},
  {"lgHeader_Time", "Time"},
  {"lgHeader_TimeOfDay", "Time of Day"},
  {"lgHeader_TimeToGo", "Time To Go"},
  {"lgHeader_TotalTm", "Total Tm"},
  {"lgHeader_Track", "Track"},
  {"lgHeader_Type", "Type"},
  {"lgHeader_UniqueID", "ID"},
  {"lgLabel_Extra_Flag", "Extra Flag"},
  {"lgLabel_Finish_Flag", "Finish Flag"},
  {"lgLabel_Green_Flag", "Green Flag"},
  {"lgLabel_Margin_of_Victory", "Margin of Victory"},
  {"lgLabel_Red_Flag", "Red Flag"},
  {"lgLabel_Unassigned_Manual", "Unassigned Manual"},
  {"lgLabel_Unassigned_Photocell", "Unassigned Photocell"},
  {"lgLabel_Warmup_Flag", "Warmup Flag"},
  {"lgLabel_YellowNC_Flag", "Yellow Flag (not counting)"},
  {"lgLabel_Yellow_Flag", "Yellow Flag"},
  {"lgView_Announcements", "Announcements"},
  {"lgView_EventSchedule", "Event Schedule"},
  {"lgView_LapTimes", "Lap Times"},
  {"lgView_MergeResults", "Merged Results"},
  {"lgView_Results", "Results"},
  {"lgView_RunInfo", "Run Info"},
  {"lglabel_White_Flag", "White Flag"},
  };
  return texts;
}

CPackage::CPackage() : DefaultTexts(BuiltInTexts()) {}

std::string CPackage::GetTranslationArgs(const char* key, va_list args) const {
  return Guarded("CPackage::GetTranslationArgs()", [&] {
    std::string format;
    if (!Translations.empty()) {
      auto found = Translations.find(key);
      if (found != Translations.end()) format = found->second;
    }
    if (format.empty()) {
      auto found = DefaultTexts.find(key);
      if (found == DefaultTexts.end()) return std::string(key);
      format = found->second;
    }
    return FormatText(format, args);
  });
}

std::string CPackage::GetTranslation(const char* key, ...) const {
  va_list args;
  va_start(args, key);
  const ArgumentListEnd end{args};
  return Guarded("CPackage::GetTranslation()", [&] { return GetTranslationArgs(key, args); });
}

std::string CPackage::ComPortDevice(int comNumber) const {
  auto found = ComPorts.find(comNumber);
  if (found != ComPorts.end()) return found->second;
  return "/dev/ttyS" + std::to_string(comNumber - 1);
}

bool CPackage::LoadLanguageFile(const std::string& path) {
  std::ifstream file(path);
  if (!file) return false;
  std::string line;
  while (std::getline(file, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const auto equals = line.find('=');
    if (equals == std::string::npos || equals == 0) continue;
    Translations[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return true;
}

void CPackage::WriteLog(const std::string& line) const {
  // One write per line, so that lines of several threads do not mix.
  const std::string text = platform::LocalTimestamp() + " " + line + "\n";
  std::fwrite(text.data(), 1, text.size(), stderr);
}

void ModuleLog(const std::string& line) {
  if (g_Package != nullptr) {
    g_Package->WriteLog(line);
  } else {
    CPackage().WriteLog(line);
  }
}

CPackage* GetPackage() { return g_Package; }

void SetModulePackage(CPackage* package) { g_Package = package; }

std::string GetTranslation(const char* key, ...) {
  // Before the host has handed over its package, the built-in texts still apply.
  static const CPackage builtIn;
  const CPackage* package = g_Package != nullptr ? g_Package : &builtIn;
  va_list args;
  va_start(args, key);
  const ArgumentListEnd end{args};
  return package->GetTranslationArgs(key, args);
}
