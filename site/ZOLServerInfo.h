// Page number 0 of every site: not a template but a small binary record with the site's
// build time, the race clock and flag, and now and then the site's own parameters.
// Clients read it to keep a clock running and to learn how many pages the site has.
#pragma once

#include "frame/Parameters.h"
#include "frame/Types.h"
#include "site/ZOLServerPage.h"

class CRun;
class CZOLServerSite;

class CZOLServerInfo : public CZOLServerPage {
 public:
  CZOLServerInfo(DWORD siteId, CZOLServerSite* site);

  // Sent on its own schedule (every clock change), never by the carousel.
  bool ShouldRepeat() override { return false; }
  // Writes the record into the page's data and builds its packets.
  void ZOLExport() override;
  std::string GetFlagName() const;
  void RunConnect(CRun* run);
  // True while a view of the active run exports this page on every change of the clock.
  // No such view is bound yet, so the site's timer drives the clock even with a run.
  bool IsDrivenByRun() const { return false; }

  const CParameters& GetClockParameters() const { return m_clockParameters; }
  CRun* GetRun() const { return m_run; }
  DWORD GetLastSecond() const { return m_lastSecond; }

 private:
  CZOLServerSite* m_site;
  CRun* m_run = nullptr;
  CParameters m_clockParameters;
  DWORD m_lastSecond = 0;
};
