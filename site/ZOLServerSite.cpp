#include "site/ZOLServerSite.h"

#include <algorithm>
#include <cctype>
#include <limits>

#include "distribution/SerialPort.h"
#include "frame/Clock.h"
#include "frame/KVTException.h"
#include "frame/platform/DirectorySearch.h"
#include "frame/platform/Time.h"

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

DWORD PageNumberOf(const COutputPage* page) { return (page->GetPageKey() >> 21) & 0x1FF; }

}  // namespace

CZOLServerSite::CZOLServerSite(DWORD siteId, CRMComm* comm) : SiteId(siteId), Comm(comm) {
  Guarded("CZOLServerSite::CZOLServerSite()", [&] { Clear(FALSE); });
}

CZOLServerSite::~CZOLServerSite() { DeletePages(); }

void CZOLServerSite::DeletePages() {
  UpdatedPages.clear();
  std::map<DWORD, COutputPage*> pages;
  pages.swap(Pages);
  for (auto& [number, page] : pages) delete page;
}

void CZOLServerSite::Clear(BOOL removeWebPages) {
  Guarded("CZOLServerSite::Clear()", [&] {
    (void)removeWebPages;  // site pages are not registered with the web server yet
    NextPageId = 8;
    EventId = -1;
    DeletePages();
  });
}

void CZOLServerSite::Build(const std::string& rootDir, int eventId, BOOL force) {
  Guarded("CZOLServerSite::Build()", [&] {
    const bool dropQueued = (eventId == EventId && rootDir == RootDir) || force != 0;
    Clear(TRUE);
    EventId = eventId;
    BuildTime = GetTimeOfDay();
    RootDir = rootDir;
    LinkQueue.clear();
    AddDirectory("");
    DWORD published = 0;
    for (const auto& entry : Pages) published += entry.first != 0 ? 1 : 0;
    SetParameter("pagecount", std::to_string(published));
    if (dropQueued) {
      ClearAllPackets(SiteId);
    } else {
      NotifySiteUpdated(nullptr);
    }
  });
}

void CZOLServerSite::AddDirectory(const std::string& subDir) {
  Guarded("CZOLServerSite::AddDirectory()", [&] {
    for (const platform::DirectoryEntry& entry : platform::ListDirectory(RootDir + subDir)) {
      if (entry.IsDirectory) AddDirectory(subDir + entry.Name + "\\");
    }
    AddFiles(subDir);
  });
}

void CZOLServerSite::AddFiles(const std::string& subDir) {
  Guarded("CZOLServerSite::AddFiles()", [&] {
    const auto entries = platform::ListDirectory(RootDir + subDir);
    for (const PlainFileKind& kind : kPlainFileKinds) {
      for (const platform::DirectoryEntry& entry : entries) {
        if (entry.IsDirectory || !HasExtension(entry.Name, kind.Extension)) continue;
        auto* page = new COutputPage(SiteId, NextPageId++, kind.Level, kind.Repeat, subDir, entry.Name);
        page->FileImport(RootDir);
        AddPageToSite(page);
      }
    }
  });
}

void CZOLServerSite::AddPageToSite(COutputPage* page) {
  Guarded("CZOLServerSite::AddPageToSite()", [&] {
    COutputPageObserver::Attach(page);
    page->BuildPackets();
    const DWORD number = PageNumberOf(page);
    auto [slot, inserted] = Pages.try_emplace(number, page);
    if (!inserted && slot->second != page) {
      // A page number given twice: the newer page takes the slot, the older one goes.
      UpdatedPages.erase(number);
      delete slot->second;
      slot->second = page;
    }
    UpdatedPages[number] = page;
  });
}

void CZOLServerSite::OnPageUpdated(COutputPage* page) {
  Guarded("CZOLServerSite::OnPageUpdated()", [&] { UpdatedPages[PageNumberOf(page)] = page; });
}

void CZOLServerSite::OnTimerEvent() {
  Guarded("CZOLServerSite::OnTimerEvent()", [&] {
    ++TimerEvents;
    for (auto& [number, page] : Pages) {
      if (page->ShouldRepeat()) NotifySiteUpdated(page);
    }
    if (!UpdatedPages.empty()) {
      for (auto& [number, page] : UpdatedPages) page->BuildPackets();
      NotifySiteUpdated(nullptr);
    }
  });
}

void CZOLServerSite::NotifySiteUpdated(COutputPage* page) {
  Guarded("CZOLServerSite::NotifySiteUpdated()", [&] {
    if (page != nullptr) {
      UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
      return;
    }
    for (auto& [number, updated] : UpdatedPages) {
      UpdatePage(updated->GetPageKey(), updated->GetSequenceLow(), updated->GetPackets());
    }
    UpdatedPages.clear();
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
