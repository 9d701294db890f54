#include "site/ZOLServerSite.h"

#include <algorithm>
#include <cctype>
#include <limits>

#include "data/Event.h"
#include "data/RMData.h"
#include "data/Run.h"
#include "distribution/PacketFormat.h"
#include "distribution/SerialPort.h"
#include "frame/BaseModule.h"
#include "frame/Clock.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/DirectorySearch.h"
#include "frame/platform/Paths.h"
#include "frame/platform/Time.h"
#include "site/ZOLServerInclude.h"
#include "site/ZOLServerInfo.h"
#include "site/ZOLServerPage.h"
#include "web/PublishedPage.h"

namespace {

struct PlainFileKind {
  const char* Extension;
  DWORD Level;
  DWORD Repeat;
};

// The order of this table is the order in which a folder's files are numbered.
constexpr PlainFileKind kPlainFileKinds[] = {
    {"css", 1, 20}, {"js", 1, 20}, {"html", 2, 30}, {"jpg", 3, 60}, {"gif", 3, 60}, {"png", 3, 60}, {"swf", 3, 60},
};

// The folder search matches extensions without regard to case, as the site's original
// platform did ("LOGO.GIF" is a gif).
bool HasExtension(const std::string& name, const char* extension) {
  const std::string ending = std::string(".") + extension;
  if (name.size() <= ending.size()) return false;
  return std::equal(ending.rbegin(), ending.rend(), name.rbegin(), [](char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
  });
}

DWORD PageNumberOf(const COutputPage* page) { return wire::PageNumber(page->GetPageKey()); }

// Symbolic links between folders can make a tree without end; a build walks this many
// folders at most.
constexpr DWORD kMostFoldersPerBuild = 4096;

}  // namespace

CZOLServerSite::CZOLServerSite(DWORD siteId, CRMComm* comm) : SiteId(siteId), Comm(comm) {
  Guarded("CZOLServerSite::CZOLServerSite()", [&] {
    if (Comm != nullptr) CRMCommObserver::Attach(Comm);
    Clear(FALSE);
    m_infoPage = new CZOLServerInfo(SiteId, this, Comm);
    m_schedulePage = new CZOLServerPage(SiteId, 1, 1, 30, "results/", "schedule.zol");
    m_currentPage = new CZOLServerPage(SiteId, 2, 1, 20, "results/", "current.zol");
    m_atTheLinePage = new CZOLServerPage(SiteId, 3, 1, 30, "results/", "attheline.zol");
    m_pitStopsPage = new CZOLServerPage(SiteId, 4, 1, 30, "results/", "pitstops.zol");
    m_feedPage = new CZOLServerPage(SiteId, 5, 1, 30, "flash/", "ZOLFeed.zol");
    m_announcementsPage = new CZOLServerPage(SiteId, 6, 1, 20, "results/", "announcements.zol");
    m_runInformationPage = new CZOLServerPage(SiteId, 7, 1, 20, "results/", "runinformation.zol");
  });
}

CZOLServerSite::~CZOLServerSite() {
  Clear(TRUE);
  delete m_infoPage;
  delete m_schedulePage;
  for (CZOLServerPage* page : RunBoundPages()) delete page;
}

bool CZOLServerSite::IsWellKnown(const COutputPage* page) const {
  return PageNumberOf(page) < 8 && (page == m_infoPage || page == m_schedulePage || page == m_currentPage ||
                                    page == m_atTheLinePage || page == m_pitStopsPage || page == m_feedPage ||
                                    page == m_announcementsPage || page == m_runInformationPage);
}

void CZOLServerSite::DeletePages() {
  UpdatedPages.clear();
  HeldPages.clear();
  std::map<DWORD, COutputPage*> pages;
  pages.swap(Pages);
  for (auto& [number, page] : pages) {
    if (!IsWellKnown(page)) delete page;
  }
}

std::string CZOLServerSite::WebPathOf(const COutputPage* page) const {
  // A browser path has no backslashes: subfolders of plain files are joined with "/".
  return COutputPage::ReplaceAll(GetWebName() + "/" + page->GetExportName(), "\\", "/");
}

void CZOLServerSite::Clear(BOOL removeWebPages) {
  Guarded("CZOLServerSite::Clear()", [&] {
    NextPageId = 8;
    PagesLeftOut = 0;
    Event = -1;
    CBaseModule* module = Comm != nullptr ? Comm->GetModule() : nullptr;
    if (removeWebPages != 0 && module != nullptr) {
      for (const auto& [number, page] : Pages) module->WebServerRemovePage(WebPathOf(page));
    }
    DeletePages();
  });
}

void CZOLServerSite::Build(const std::string& rootDir, int eventId, BOOL force) {
  Guarded("CZOLServerSite::Build()", [&] {
    const bool dropQueued = (eventId == Event && rootDir == Root) || force != 0;
    Clear(TRUE);
    Event = eventId;
    BuildTime = GetTimeOfDay();
    Root = rootDir;
    StopRootdirCheck();
    StartRootdirCheck();
    LinkQueue.clear();
    LinkQueue.push_back("||index.zol");
    ImportServerInformation();
    COutputPageObserver::Attach(m_infoPage);
    Pages[0] = m_infoPage;
    if (ImportSchedule() != 0) AddPageToSite(m_schedulePage);
    ImportCurrentRun(Comm != nullptr ? Comm->GetData()->GetActiveRun() : nullptr, TRUE);
    FollowLinks();
    WalkedFolderChain.clear();
    FoldersWalked = 0;
    AddDirectory("");
    ReportSharedWebNames();
    SetParameter("pagecount", std::to_string(Pages.size() - 1));
    if (PagesLeftOut != 0) {
      ModuleLog("Site " + GetParameter("name") + ": " + std::to_string(PagesLeftOut) +
                " file(s) left out; a site has page numbers up to " + std::to_string(wire::kLastPageNumber));
    }
    std::vector<CZOLServerPage*> templates;
    for (const auto& [number, page] : Pages) {
      auto* templatePage = dynamic_cast<CZOLServerPage*>(page);
      if (templatePage != nullptr && page->GetIsTemplate() != 0) templates.push_back(templatePage);
    }
    // The packets made when a template was added held its empty text: they are made
    // again from the export, so that what is handed on below is the page itself.
    for (CZOLServerPage* page : templates) {
      UpdatePageIncludes(page);
      if (!HoldBack(page)) page->BuildPackets();
    }
    if (dropQueued) {
      ClearAllPackets(SiteId);
    } else {
      NotifySiteUpdated(nullptr);
    }
  });
}

// Each link is followed once: a page that exists already is found and not made again,
// which is what ends a cycle of includes.
void CZOLServerSite::FollowLinks() {
  Guarded("CZOLServerSite::FollowLinks()", [&] {
    while (!LinkQueue.empty()) {
      std::string file = LinkQueue.front();
      LinkQueue.pop_front();
      std::string path;
      ProcessLink(file, path);
      if (PageFind(path, file) != nullptr) continue;
      if (!StaysInsideRoot(path + file)) continue;
      DWORD number = 0;
      if (!TakePageNumber(number)) continue;
      auto* page = new CZOLServerPage(SiteId, number, 2, 40, path, file);
      if (page->Initialize(Comm, Event, Root, -1, "") == 0) {
        delete page;
        continue;
      }
      AddPageToSite(page);
    }
  });
}

// Numbers are not given back, so a page that fails to load still uses its number up.
bool CZOLServerSite::TakePageNumber(DWORD& number) {
  if (NextPageId > wire::kLastPageNumber) {
    ++PagesLeftOut;
    return false;
  }
  number = NextPageId++;
  return true;
}

BOOL CZOLServerSite::ImportSchedule() {
  return Guarded("CZOLServerSite::ImportSchedule()", [&]() -> BOOL {
    // A template that leads out of the root is as good as missing: the page stays empty.
    if (!StaysInsideRoot(m_schedulePage->GetPath() + m_schedulePage->GetFilename())) {
      m_schedulePage->Clear();
      return TRUE;
    }
    m_schedulePage->Initialize(Comm, Event, Root, -1, "");
    return TRUE;
  });
}

void CZOLServerSite::ImportCurrentRun(CRun* run, BOOL addToSite) {
  Guarded("CZOLServerSite::ImportCurrentRun()", [&] {
    const int runId = run != nullptr ? static_cast<int>(run->UniqueID) : -1;
    for (CZOLServerPage* page : RunBoundPages()) {
      if (!StaysInsideRoot(page->GetPath() + page->GetFilename())) {
        page->Clear();
        continue;
      }
      if (page->Initialize(Comm, Event, Root, runId, "") != 0 && addToSite != 0) AddPageToSite(page);
    }
  });
}

void CZOLServerSite::UpdatePageIncludes(CZOLServerPage* page) {
  Guarded("CZOLServerSite::UpdatePageIncludes()", [&] {
    for (const auto& [id, include] : page->GetIncludes()) {
      std::string file = page->GetPath() + "|" + include->GetPath() + "|" + include->GetFile();
      std::string path;
      ProcessLink(file, path);
      if (COutputPage* target = PageFind(path, file)) {
        // Only template pages carry includes' targets; a plain file of that name is no page to include.
        if (auto* targetPage = dynamic_cast<CZOLServerPage*>(target)) include->SetTarget(targetPage);
      }
    }
    page->ZOLExport();
  });
}

void CZOLServerSite::OnActiveRunChanged(CRun* run) {
  Guarded("CZOLServerSite::OnActiveRunChanged()", [&] {
    if (run != nullptr && run == m_activeRun && run->RunType == m_activeRunType) return;
    if (run != nullptr && Comm != nullptr) {
      const Cevent* event = Comm->GetData()->GetEvent(run->EventID);
      if (event != nullptr && static_cast<int>(event->UniqueID) != Event) {
        Build(Root, static_cast<int>(event->UniqueID), 1);
      }
    }
    m_activeRun = run;
    m_infoPage->RunConnect(run);
    if (run == nullptr) return;
    ImportFollowingPages(run);
    ImportCurrentRun(run, FALSE);
    for (CZOLServerPage* page : RunBoundPages()) {
      UpdatePageIncludes(page);
      // A page whose live objects all answered during the import, or that has none left
      // for this run, would otherwise keep its old version on the wire.
      if (const auto found = Pages.find(PageNumberOf(page)); found != Pages.end() && found->second == page) {
        page->CheckWaiting();
      }
    }
    m_activeRunType = run->RunType;
  });
}

void CZOLServerSite::ImportFollowingPages(const CRun* run) {
  Guarded("CZOLServerSite::ImportFollowingPages()", [&] {
    std::vector<CZOLServerPage*> following;
    for (const auto& [number, page] : Pages) {
      auto* templatePage = dynamic_cast<CZOLServerPage*>(page);
      if (templatePage == nullptr || IsWellKnown(page) || !templatePage->FollowsActiveRun()) continue;
      if (!StaysInsideRoot(page->GetPath() + page->GetFilename())) continue;
      following.push_back(templatePage);
    }
    for (CZOLServerPage* page : following) {
      page->Initialize(Comm, Event, Root, -1, "", static_cast<int>(run->UniqueID));
    }
    // Includes are resolved once all are read: a page may include another of them.
    for (CZOLServerPage* page : following) {
      UpdatePageIncludes(page);
      page->CheckWaiting();
    }
  });
}

void CZOLServerSite::OnDisconnect() {
  Guarded("CZOLServerSite::OnDisconnect()", [&] {
    // The views are still there: what they brought before the loss goes out now.
    SendUpdatedPages();
    DataAway = true;
    m_activeRun = nullptr;
    m_infoPage->RunConnect(nullptr);
  });
}

void CZOLServerSite::OnConnect() {
  Guarded("CZOLServerSite::OnConnect()", [&] { DataAway = false; });
}

bool CZOLServerSite::IsHeld(const COutputPage* page) const {
  const auto found = HeldPages.find(PageNumberOf(page));
  return found != HeldPages.end() && Pages.count(found->first) != 0 && Pages.at(found->first) == page;
}

bool CZOLServerSite::HoldBack(const CZOLServerPage* page) {
  const DWORD number = PageNumberOf(page);
  if (!DataAway && !page->IsWaiting()) {
    HeldPages.erase(number);
    return false;
  }
  const auto now = std::chrono::steady_clock::now();
  const auto held = HeldPages.try_emplace(number, now).first;
  if (!DataAway && now - held->second >= kLongestHold) {
    HeldPages.erase(held);
    return false;
  }
  return true;
}

void CZOLServerSite::ImportServerInformation() {
  Guarded("CZOLServerSite::ImportServerInformation()", [&] {});
}

void CZOLServerSite::StartRootdirCheck() {
  Guarded("CZOLServerSite::StartRootdirCheck()", [&] {});
}

void CZOLServerSite::StopRootdirCheck() {
  Guarded("CZOLServerSite::StopRootdirCheck()", [&] {});
}

const CParameters& CZOLServerSite::GetClockParameters() const { return m_infoPage->GetClockParameters(); }

void CZOLServerSite::AddDirectory(const std::string& subDir) {
  Guarded("CZOLServerSite::AddDirectory()", [&] {
    std::string realFolder;
    if (!platform::RealPath(Root + subDir, realFolder)) return;
    if (++FoldersWalked > kMostFoldersPerBuild) {
      if (FoldersWalked == kMostFoldersPerBuild + 1) {
        ModuleLog("Site " + GetParameter("name") + ": more than " + std::to_string(kMostFoldersPerBuild) +
                  " folders; the rest are left out");
      }
      return;
    }
    WalkedFolderChain.push_back(realFolder);
    for (const platform::DirectoryEntry& entry : platform::ListDirectory(Root + subDir)) {
      if (!entry.IsDirectory || !StaysInsideRoot(subDir + entry.Name)) continue;
      std::string realSubFolder;
      if (!platform::RealPath(Root + subDir + entry.Name, realSubFolder)) continue;
      if (std::find(WalkedFolderChain.begin(), WalkedFolderChain.end(), realSubFolder) != WalkedFolderChain.end()) {
        ModuleLog("Site " + GetParameter("name") + ": folder " + platform::ToNativePath(subDir + entry.Name) +
                  " left out: it leads back to a folder that holds it");
        continue;
      }
      AddDirectory(subDir + entry.Name + "\\");
    }
    WalkedFolderChain.pop_back();
    AddFiles(subDir);
  });
}

void CZOLServerSite::AddFiles(const std::string& subDir) {
  Guarded("CZOLServerSite::AddFiles()", [&] {
    const auto entries = platform::ListDirectory(Root + subDir);
    for (const PlainFileKind& kind : kPlainFileKinds) {
      for (const platform::DirectoryEntry& entry : entries) {
        if (entry.IsDirectory || !HasExtension(entry.Name, kind.Extension)) continue;
        if (!StaysInsideRoot(subDir + entry.Name)) continue;
        DWORD number = 0;
        if (!TakePageNumber(number)) continue;
        auto* page = new COutputPage(SiteId, number, kind.Level, kind.Repeat, subDir, entry.Name);
        page->FileImport(Root);
        AddPageToSite(page);
      }
    }
  });
}

bool CZOLServerSite::StaysInsideRoot(const std::string& relative) const {
  return Guarded("CZOLServerSite::StaysInsideRoot()", [&] {
    std::string real;
    if (!platform::RealPath(Root + relative, real)) return true;
    std::string realRoot;
    // The root itself, reached by a link, is inside: the walk's check for links that
    // lead back up stops that one.
    if (platform::RealPath(Root, realRoot) && (real == realRoot || platform::IsBelowRealFolder(realRoot, real))) {
      return true;
    }
    ModuleLog("Site " + GetParameter("name") + ": " + platform::ToNativePath(relative) +
              " left out: its real path " + real + " lies outside the site's root");
    return false;
  });
}

void CZOLServerSite::ReportSharedWebNames() const {
  Guarded("CZOLServerSite::ReportSharedWebNames()", [&] {
    std::map<std::string, const COutputPage*> byWebPath;
    for (const auto& [number, page] : Pages) {
      if (page == m_infoPage) continue;
      auto [slot, inserted] = byWebPath.try_emplace(WebPathOf(page), page);
      if (inserted) continue;
      ModuleLog("Site " + GetParameter("name") + ": " +
                platform::ToNativePath(slot->second->GetPath() + slot->second->GetFilename()) + " and " +
                platform::ToNativePath(page->GetPath() + page->GetFilename()) + " have the same web name " +
                slot->first + "; the browser reaches only the latter");
      slot->second = page;
    }
  });
}

void CZOLServerSite::AddPageToSite(COutputPage* page) {
  Guarded("CZOLServerSite::AddPageToSite()", [&] {
    COutputPageObserver::Attach(page);
    // A template's packets are made from its export, once its includes are resolved.
    if (page->GetIsTemplate() == 0) page->BuildPackets();
    const DWORD number = PageNumberOf(page);
    auto [slot, inserted] = Pages.try_emplace(number, page);
    CBaseModule* module = Comm != nullptr ? Comm->GetModule() : nullptr;
    if (!inserted && slot->second != page) {
      // A page number given twice: the newer page takes the slot, the older one goes,
      // and with it the browser's way to it.
      UpdatedPages.erase(number);
      if (module != nullptr) module->WebServerRemovePage(WebPathOf(slot->second));
      if (!IsWellKnown(slot->second)) delete slot->second;
      slot->second = page;
    }
    UpdatedPages[number] = page;
    if (auto* templatePage = dynamic_cast<CZOLServerPage*>(page)) templatePage->AddLinksToQueue(LinkQueue);
    if (module != nullptr) module->WebServerAddPage(new CPublishedPage(this, page, WebPathOf(page)));
  });
}

void CZOLServerSite::OnPageUpdated(COutputPage* page) {
  Guarded("CZOLServerSite::OnPageUpdated()", [&] {
    // The clock must not wait for the next tick.
    if (page == m_infoPage) {
      NotifySiteUpdated(page);
      return;
    }
    UpdatedPages[PageNumberOf(page)] = page;
  });
}

void CZOLServerSite::OnTimerEvent() {
  Guarded("CZOLServerSite::OnTimerEvent()", [&] {
    ++TimerEvents;
    // Without a run's view nothing else moves the clock, so the site's beat does.
    if (m_activeRun == nullptr || !m_infoPage->IsDrivenByRun()) {
      m_infoPage->ZOLExport();
      NotifySiteUpdated(m_infoPage);
    }
    for (auto& [number, page] : Pages) {
      if (page->ShouldRepeat()) NotifySiteUpdated(page);
    }
    SendUpdatedPages();
  });
}

void CZOLServerSite::SendUpdatedPages() {
  Guarded("CZOLServerSite::SendUpdatedPages()", [&] {
    if (UpdatedPages.empty()) return;
    for (auto& [number, page] : UpdatedPages) {
      if (auto* templatePage = dynamic_cast<CZOLServerPage*>(page)) {
        const bool wasHeld = HeldPages.count(number) != 0;
        if (HoldBack(templatePage)) continue;
        // A template whose tables or labels changed is written now, once for all the
        // changes of this second, with its views as they stand; one that was held back
        // in any case.
        if (wasHeld) {
          templatePage->ZOLExport();
        } else {
          templatePage->ExportIfDue();
        }
      }
      page->BuildPackets();
    }
    NotifySiteUpdated(nullptr);
  });
}

void CZOLServerSite::NotifySiteUpdated(COutputPage* page) {
  Guarded("CZOLServerSite::NotifySiteUpdated()", [&] {
    if (page != nullptr) {
      UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
      return;
    }
    // Held pages stay on the list for the next tick.
    std::map<DWORD, COutputPage*> held;
    for (auto& [number, updated] : UpdatedPages) {
      if (HeldPages.count(number) != 0) {
        held.emplace(number, updated);
        continue;
      }
      UpdatePage(updated->GetPageKey(), updated->GetSequenceLow(), updated->GetPackets());
    }
    UpdatedPages.swap(held);
  });
}

COutputPage* CZOLServerSite::PageFind(const std::string& path, const std::string& file) const {
  for (const auto& [number, page] : Pages) {
    if (page->GetPath() == path && page->GetFilename() == file) return page;
  }
  return nullptr;
}

COutputPage* CZOLServerSite::PageFindOnDisk(const std::string& path, const std::string& file) const {
  for (const auto& [number, page] : Pages) {
    if (page->GetPath() == path && page->GetSourceFilename() == file) return page;
  }
  return nullptr;
}

void CZOLServerSite::ProcessLink(std::string& link, std::string& path) {
  const auto first = link.find('|');
  if (first == std::string::npos) return;
  const std::string base = link.substr(0, first);
  link.erase(0, first + 1);
  std::string relative;
  const auto second = link.find('|');
  if (second != std::string::npos) {
    relative = link.substr(0, second);
    link.erase(0, second + 1);
  }
  path = base;
  for (auto slash = relative.find('/'); slash != std::string::npos; slash = relative.find('/')) {
    const std::string component = relative.substr(0, slash);
    relative.erase(0, slash + 1);
    if (component == "..") {
      // Back to the "/" before the last component; the trailing "/" stays.
      const auto cut = path.size() >= 2 ? path.rfind('/', path.size() - 2) : std::string::npos;
      if (cut == std::string::npos) {
        path.clear();
      } else {
        path.erase(cut + 1);
      }
    } else {
      path += component + "/";
    }
  }
}

DWORD CZOLServerSite::GetOriginalSize() const {
  DWORD total = 0;
  for (const auto& [number, page] : Pages) total += page->GetPlainSize();
  return total;
}

DWORD CZOLServerSite::GetCompressedSize() const {
  DWORD total = 0;
  for (const auto& [number, page] : Pages) total += page->GetCompressedSize();
  return total;
}

double CZOLServerSite::GetBandwidth() const {
  double sum = 0;
  for (const auto& [number, page] : Pages) {
    if (page->GetRepeat() != 0) sum += page->GetCompressedSize() / page->GetRepeat();
  }
  return sum * 10.0 / 8.0;
}

double CZOLServerSite::GetMaxDataRate() const {
  DWORD slowest = std::numeric_limits<DWORD>::max();
  for (const CZOLOutputPort* port : GetPorts()) {
    if (port->GetType() != 1) continue;
    slowest = std::min(slowest, static_cast<const CZOLSerialPort*>(port)->GetBaudRate());
  }
  return slowest == std::numeric_limits<DWORD>::max() ? 0.0 : slowest / 1024.0;
}

std::string CZOLServerSite::GetTimeString(std::time_t time, BOOL withDate, BOOL utc) {
  const bool twelveHour = platform::LocaleUses12HourClock();
  const char* format = twelveHour ? (withDate != 0 ? "%d-%m-%Y   %I:%M %p" : "%I:%M %p")
                                  : (withDate != 0 ? "%d-%m-%Y   %H:%M" : "%H:%M");
  return platform::FormatTime(time, format, utc != 0);
}
