#include "site/ZOLServerInfo.h"

#include "frame/Clock.h"
#include "frame/KVTException.h"
#include "frame/TTBuffer.h"
#include "frame/TimeText.h"
#include "site/ZOLServerSite.h"

CZOLServerInfo::CZOLServerInfo(DWORD siteId, CZOLServerSite* site)
    : CZOLServerPage(siteId, 0, 0, 1, "", ""), m_site(site) {}

std::string CZOLServerInfo::GetFlagName() const {
  // The flag is read from the run's information view; until a view is bound there is
  // no flag to show.
  return Guarded("CZOLServerInfo::GetFlagName()", [&]() -> std::string { return "none"; });
}

void CZOLServerInfo::RunConnect(CRun* run) {
  Guarded("CZOLServerInfo::RunConnect()", [&] {
    if (run == m_run) return;
    m_run = run;
  });
}

void CZOLServerInfo::ZOLExport() {
  Guarded("CZOLServerInfo::ZOLExport()", [&] {
    CTTBuffer buffer(4096);
    buffer << m_site->GetBuildTime();
    // Without a view of the run only the time of day is known.
    const KVTTIME timeOfDay = GetKVTTimeOfDay();
    const KVTTIME raceTime = KVTTIME_NULL;
    const KVTTIME timeToGo = KVTTIME_NULL;
    m_clockParameters.Add("timeofday", FormatTime(timeOfDay, 0, 0));
    m_clockParameters.Add("racetime", FormatTime(raceTime, 0, 0));
    m_clockParameters.Add("timetogo", FormatTime(timeToGo, 0, 0));
    m_clockParameters.Add("flag", GetFlagName());
    m_clockParameters.ParametersToBuffer(buffer);
    if (m_lastSecond % 5 == 0) {
      m_site->GetParameters().ParametersToBuffer(buffer);
    } else {
      buffer << 0;
    }
    m_lastSecond = GetTimeOfDay();
    Data.assign(buffer.GetData(), buffer.GetData() + buffer.GetFilled());
    BuildPackets();
  });
}
