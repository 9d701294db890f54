// A site: one directory tree published as one numbered set of pages. It turns the
// directory into pages, keeps them by page number, hands changed and due pages to its
// output stream once a second, and so turns the carousel.
#pragma once

#include <ctime>
#include <deque>
#include <map>
#include <string>

#include "distribution/OutputPage.h"
#include "distribution/OutputStream.h"
#include "frame/Types.h"
#include "views/RMComm.h"

class CZOLServerSite : public COutputPageObserver, public CRMCommObserver, public CZOLOutputStream {
 public:
  CZOLServerSite(DWORD siteId, CRMComm* comm);
  ~CZOLServerSite() override;

  void OnPageUpdated(COutputPage* page) override;
  // Reads the site directory afresh. `force` (or the same root and event as before)
  // drops what the ports still hold of the old state; otherwise all pages are handed on.
  virtual void Build(const std::string& rootDir, int eventId, BOOL force);
  // Once a second: pages that are due go out again, changed pages get a new version.
  virtual void OnTimerEvent();

  void Clear(BOOL removeWebPages);
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

  DWORD GetSiteId() const { return SiteId; }
  int GetEventId() const { return EventId; }
  const std::string& GetRootDir() const { return RootDir; }
  DWORD GetBuildTime() const { return BuildTime; }
  const std::map<DWORD, COutputPage*>& GetPages() const { return Pages; }
  const std::map<DWORD, COutputPage*>& GetUpdatedPages() const { return UpdatedPages; }
  // How often OnTimerEvent ran, for the statistics.
  DWORD GetTimerEvents() const { return TimerEvents; }

 private:
  void DeletePages();

  DWORD SiteId;
  CRMComm* Comm;
  std::string RootDir;
  int EventId = -1;
  DWORD NextPageId = 8;
  DWORD BuildTime = 0;
  DWORD TimerEvents = 0;
  std::deque<std::string> LinkQueue;
  std::map<DWORD, COutputPage*> Pages;
  std::map<DWORD, COutputPage*> UpdatedPages;
};
