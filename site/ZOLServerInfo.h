// Page number 0 of every site: not a template but a small binary record with the site's
// build time, the race clock and flag, and now and then the site's own parameters.
// Clients read it to keep a clock running and to learn how many pages the site has.
#pragma once

#include "frame/Parameters.h"
#include "frame/Types.h"
#include "site/ZOLServerPage.h"
#include "views/RMViewObserver.h"

class CRMComm;
class CRMView;
class CRun;
class CZOLServerSite;

class CZOLServerInfo : public CZOLServerPage, public CRMViewObserver {
 public:
  CZOLServerInfo(DWORD siteId, CZOLServerSite* site, CRMComm* comm);
  ~CZOLServerInfo() override;

  // Sent on its own schedule (every clock change), never by the carousel.
  bool ShouldRepeat() override { return false; }
  // Writes the record into the page's data and builds its packets.
  void ZOLExport() override;
  std::string GetFlagName() const;
  // Binds the page to the run information view of `run`; null unbinds it.
  void RunConnect(CRun* run);
  void OnNotifyStructure(CRMView* view) override;
  // Every change of the run information view (it ticks with the time) exports the page.
  void OnNotifyData(int type, CRMView* view) override;
  // The page's own subjects (its tables and labels) keep their removal hooks.
  using CZOLServerTableObserver::OnSubjectRemoved;
  using CZOLInfoObserver::OnSubjectRemoved;
  void OnSubjectRemoved(CRMView* view) override;
  // True while a view of the run exports this page on every change of the clock: bound,
  // and it has delivered its rows at least once. Until then the site's timer keeps the
  // clock going with the time of day.
  bool IsDrivenByRun() const { return m_view != nullptr && m_viewDelivered; }

  const CParameters& GetClockParameters() const { return m_clockParameters; }
  CRun* GetRun() const { return m_run; }
  CRMView* GetView() const { return m_view; }
  DWORD GetLastSecond() const { return m_lastSecond; }

 private:
  // Leaves the view's pointer and column indexes behind, not the view itself.
  void ForgetView();

  CZOLServerSite* m_site;
  CRMComm* m_comm;
  CRun* m_run = nullptr;
  CRMView* m_view = nullptr;
  // Set by the first data notification of m_view.
  bool m_viewDelivered = false;
  int m_timeOfDayColumn = -1;
  int m_elapsedTimeColumn = -1;
  int m_timeToGoColumn = -1;
  int m_flagColumn = -1;
  int m_flagSpecialColumn = -1;
  CParameters m_clockParameters;
  DWORD m_lastSecond = 0;
};
