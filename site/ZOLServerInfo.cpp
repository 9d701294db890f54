#include "site/ZOLServerInfo.h"

#include "data/Run.h"
#include "frame/Clock.h"
#include "frame/KVTException.h"
#include "frame/TTBuffer.h"
#include "frame/TimeText.h"
#include "site/FlagText.h"
#include "site/ZOLServerSite.h"
#include "views/RMCell.h"
#include "views/RMComm.h"
#include "views/RMView.h"
#include "views/RMViewRow.h"

namespace {

const char kRunInfoView[] = "lgView_RunInfo";

// The cell of the first row at `column`; null when there is no row or no such cell.
const CRMCell* FirstRowCell(const CRMView* view, int column) {
  if (view == nullptr || column < 0 || view->GetSortedRows().empty()) return nullptr;
  return view->GetSortedRows().front()->CellGetAt(static_cast<DWORD>(column));
}

KVTTIME TimeAt(const CRMView* view, int column) {
  const CRMCell* cell = FirstRowCell(view, column);
  return cell != nullptr ? static_cast<KVTTIME>(*cell) : KVTTIME_NULL;
}

}  // namespace

CZOLServerInfo::CZOLServerInfo(DWORD siteId, CZOLServerSite* site, CRMComm* comm)
    : CZOLServerPage(siteId, 0, 0, 1, "", ""), m_site(site), m_comm(comm) {}

CZOLServerInfo::~CZOLServerInfo() = default;

void CZOLServerInfo::ForgetView() {
  Guarded("CZOLServerInfo::ForgetView()", [&] {
    m_view = nullptr;
    m_viewDelivered = false;
    m_timeOfDayColumn = -1;
    m_elapsedTimeColumn = -1;
    m_timeToGoColumn = -1;
    m_flagColumn = -1;
    m_flagSpecialColumn = -1;
  });
}

void CZOLServerInfo::RunConnect(CRun* run) {
  Guarded("CZOLServerInfo::RunConnect()", [&] {
    if (run == m_run) return;
    m_run = run;
    if (m_view != nullptr) {
      CRMView* old = m_view;
      ForgetView();
      CRMViewObserver::Detach(old, TRUE);
    }
    if (run == nullptr || m_comm == nullptr) return;
    CParameters parameters;
    parameters.Add("UniqueID", run->UniqueID);
    m_view = m_comm->CreateView(kRunInfoView, FALSE, parameters, FALSE);
    // A view that labels hold already answers at once, inside the attach.
    CRMViewObserver::Attach(m_view);
  });
}

void CZOLServerInfo::OnNotifyStructure(CRMView* view) {
  Guarded("CZOLServerInfo::OnNotifyStructure()", [&] {
    if (view == nullptr || view != m_view) return;
    m_timeOfDayColumn = view->ColumnFind("lgHeader_TimeOfDay");
    m_elapsedTimeColumn = view->ColumnFind("lgHeader_ElapsedTime");
    m_timeToGoColumn = view->ColumnFind("lgHeader_TimeToGo");
    m_flagColumn = view->ColumnFind("lgHeader_Flag");
    m_flagSpecialColumn = view->ColumnFind("lgHeader_FlagSpecial");
  });
}

void CZOLServerInfo::OnNotifyData(int type, CRMView* view) {
  Guarded("CZOLServerInfo::OnNotifyData()", [&] {
    (void)type;
    if (view != nullptr && view == m_view) m_viewDelivered = true;
    ZOLExport();
    NotifyPageUpdated();
  });
}

void CZOLServerInfo::OnSubjectRemoved(CRMView* view) {
  Guarded("CZOLServerInfo::OnSubjectRemoved()", [&] {
    if (view == m_view) ForgetView();
  });
}

std::string CZOLServerInfo::GetFlagName() const {
  return Guarded("CZOLServerInfo::GetFlagName()", [&]() -> std::string {
    if (m_view == nullptr || m_view->GetSortedRows().empty()) return "none";
    const CRMCell* flag = FirstRowCell(m_view, m_flagColumn);
    const CRMCell* special = FirstRowCell(m_view, m_flagSpecialColumn);
    return FlagToString(flag != nullptr ? static_cast<DWORD>(*flag) : 0,
                        special != nullptr ? static_cast<DWORD>(*special) : 0);
  });
}

void CZOLServerInfo::ZOLExport() {
  Guarded("CZOLServerInfo::ZOLExport()", [&] {
    CTTBuffer buffer(4096);
    buffer << (m_site != nullptr ? m_site->GetBuildTime() : DWORD{0});
    KVTTIME timeOfDay = GetKVTTimeOfDay();
    KVTTIME raceTime = KVTTIME_NULL;
    KVTTIME timeToGo = KVTTIME_NULL;
    if (IsDrivenByRun()) {
      // The clock is the run's; without a row there is none of the three.
      timeOfDay = TimeAt(m_view, m_timeOfDayColumn);
      raceTime = TimeAt(m_view, m_elapsedTimeColumn);
      timeToGo = TimeAt(m_view, m_timeToGoColumn);
    }
    m_clockParameters.Add("timeofday", FormatTime(timeOfDay, 0, 0));
    m_clockParameters.Add("racetime", FormatTime(raceTime, 0, 0));
    m_clockParameters.Add("timetogo", FormatTime(timeToGo, 0, 0));
    m_clockParameters.Add("flag", GetFlagName());
    m_clockParameters.ParametersToBuffer(buffer);
    if (m_site != nullptr && m_lastSecond % 5 == 0) {
      m_site->GetParameters().ParametersToBuffer(buffer);
    } else {
      buffer << 0;
    }
    m_lastSecond = GetTimeOfDay();
    Data.assign(buffer.GetData(), buffer.GetData() + buffer.GetFilled());
    BuildPackets();
  });
}
