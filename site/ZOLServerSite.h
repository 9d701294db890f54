// A site: one directory tree published as one numbered set of pages. It turns the
// directory into pages, keeps them by page number, hands changed and due pages to its
// output stream once a second, and so turns the carousel.
#pragma once

#include <array>
#include <chrono>
#include <ctime>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "distribution/OutputPage.h"
#include "distribution/OutputStream.h"
#include "frame/Types.h"
#include "views/RMComm.h"

class CRun;
class CZOLServerInfo;
class CZOLServerPage;

class CZOLServerSite : public COutputPageObserver, public CRMCommObserver, public CZOLOutputStream {
 public:
  CZOLServerSite(DWORD siteId, CRMComm* comm);
  ~CZOLServerSite() override;

  void OnPageUpdated(COutputPage* page) override;
  // A new active run (or none): run-bound pages are read again for it, and a run of
  // another event rebuilds the whole site for that event.
  void OnActiveRunChanged(CRun* run) override;
  // The replica's runs go with the data manager: the site sends what changed before the
  // loss, lets go of its run, and the timer drives the clock again. Until a data manager
  // connects, no template page gets a new version: clients keep the last results.
  void OnDisconnect() override;
  void OnConnect() override;
  // Reads the site directory afresh. `force` (or the same root and event as before)
  // drops what the ports still hold of the old state; otherwise all pages are handed on.
  virtual void Build(const std::string& rootDir, int eventId, BOOL force);
  // Once a second: pages that are due go out again, changed pages get a new version.
  virtual void OnTimerEvent();
  // A template page whose tables or labels have not had their first data waits this long
  // at most before it goes out as it stands.
  static constexpr std::chrono::seconds kLongestHold{5};
  // The site's row in the table of sites on the main administration page.
  virtual std::string GetSiteAsHTMLRow();

  void Clear(BOOL removeWebPages);
  // Reads the schedule template; reports 1 even when the file is missing.
  BOOL ImportSchedule();
  // Reads the six run-bound templates for `run` (or none) and, when asked, publishes
  // those that could be read.
  void ImportCurrentRun(CRun* run, BOOL addToSite);
  // Resolves the includes of a template page to the pages found, then exports it.
  void UpdatePageIncludes(CZOLServerPage* page);
  // Hooks for a watcher of the root directory and for server information; none exists.
  void ImportServerInformation();
  void StartRootdirCheck();
  void StopRootdirCheck();
  void AddDirectory(const std::string& subDir);
  void AddFiles(const std::string& subDir);
  void AddPageToSite(COutputPage* page);
  void NotifySiteUpdated(COutputPage* page);
  COutputPage* PageFind(const std::string& path, const std::string& file) const;
  COutputPage* PageFindOnDisk(const std::string& path, const std::string& file) const;
  // Splits a "base|relative|file" link into the file (left in `link`) and its path.
  static void ProcessLink(std::string& link, std::string& path);

  DWORD GetOriginalSize() const;
  DWORD GetCompressedSize() const;
  double GetBandwidth() const;
  double GetMaxDataRate() const;
  static std::string GetTimeString(std::time_t time, BOOL withDate, BOOL utc);
  const CParameters& GetClockParameters() const;
  // The browser path of a site page below the module's prefix: site name, "/", export name.
  std::string WebPathOf(const COutputPage* page) const;
  // Fixes the name under which the site's pages are reached in the browser; a later
  // change of the name parameter leaves the web paths as they are.
  void SetWebName(const std::string& name) { WebName = name; }
  // The fixed web name, or the name parameter while none is fixed.
  std::string GetWebName() const { return WebName.empty() ? GetParameter("name") : WebName; }

  DWORD GetSiteId() const { return SiteId; }
  // The root directory and event live in the stream part, where the settings put them.
  int GetEventId() const { return Event; }
  const std::string& GetRootDir() const { return Root; }
  DWORD GetBuildTime() const { return BuildTime; }
  const std::map<DWORD, COutputPage*>& GetPages() const { return Pages; }
  const std::map<DWORD, COutputPage*>& GetUpdatedPages() const { return UpdatedPages; }
  // How often OnTimerEvent ran, for the statistics.
  DWORD GetTimerEvents() const { return TimerEvents; }
  CZOLServerInfo* GetInfoPage() const { return m_infoPage; }
  CZOLServerPage* GetSchedulePage() const { return m_schedulePage; }
  CZOLServerPage* GetCurrentPage() const { return m_currentPage; }
  CRun* GetActiveRun() const { return m_activeRun; }
  BYTE GetActiveRunType() const { return m_activeRunType; }
  const std::deque<std::string>& GetLinkQueue() const { return LinkQueue; }
  bool IsDataAway() const { return DataAway; }
  // True while the page is held back from the wire (see HoldBack).
  bool IsHeld(const COutputPage* page) const;

 private:
  void DeletePages();
  bool IsWellKnown(const COutputPage* page) const;
  // The six pages bound to the active run, in their order of import.
  std::array<CZOLServerPage*, 6> RunBoundPages() const {
    return {m_currentPage, m_atTheLinePage, m_pitStopsPage, m_feedPage, m_announcementsPage, m_runInformationPage};
  }
  void FollowLinks();
  // Reads every page that follows the active run again for `run`, as the run-bound pages.
  void ImportFollowingPages(const CRun* run);
  // Builds and hands on the pages that changed, except those held back.
  void SendUpdatedPages();
  // True when a template page must not get a new version now: while the data manager is
  // away, and while a table or label of it waits for its first data (kLongestHold at
  // most), so that no half-built page reaches the clients. Keeps the held pages' list.
  bool HoldBack(const CZOLServerPage* page);
  // True when the file or folder `relative` (below the root) lies inside the root with
  // every symbolic link followed, or does not exist, so that its import fails as usual.
  // One log line for each that leads out.
  bool StaysInsideRoot(const std::string& relative) const;
  // One log line for each web name that two pages of the build share: the browser
  // reaches only the one registered last.
  void ReportSharedWebNames() const;
  // The next free page number; false, counted as a page left out, when none is left.
  bool TakePageNumber(DWORD& number);

  DWORD SiteId;
  CRMComm* Comm;
  std::string WebName;
  DWORD NextPageId = 8;
  DWORD PagesLeftOut = 0;
  // The real paths of the folders from the root down to the one being walked, to find
  // a symbolic link that leads back up; and how many folders this build has walked.
  std::vector<std::string> WalkedFolderChain;
  DWORD FoldersWalked = 0;
  DWORD BuildTime = 0;
  DWORD TimerEvents = 0;
  std::deque<std::string> LinkQueue;
  std::map<DWORD, COutputPage*> Pages;
  std::map<DWORD, COutputPage*> UpdatedPages;
  // Template pages built but held back from the wire, by number, with the time since when.
  std::map<DWORD, std::chrono::steady_clock::time_point> HeldPages;
  bool DataAway = false;
  CRun* m_activeRun = nullptr;
  BYTE m_activeRunType = 0;
  // The eight pages every site has, numbers 0 to 7, owned for the site's whole life.
  CZOLServerInfo* m_infoPage = nullptr;
  CZOLServerPage* m_schedulePage = nullptr;
  CZOLServerPage* m_currentPage = nullptr;
  CZOLServerPage* m_atTheLinePage = nullptr;
  CZOLServerPage* m_pitStopsPage = nullptr;
  CZOLServerPage* m_feedPage = nullptr;
  CZOLServerPage* m_announcementsPage = nullptr;
  CZOLServerPage* m_runInformationPage = nullptr;
};
