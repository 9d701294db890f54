#include "client/ViewerPages.h"

#include <algorithm>

#include "client/ZolRender.h"
#include "frame/KVTException.h"
#include "frame/platform/Time.h"

namespace zolclient {

namespace {

bool EndsWith(const std::string& text, const std::string& ending) {
  return text.size() >= ending.size() && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

}  // namespace

void CViewerPages::OnPacket() {
  std::lock_guard<std::mutex> hold(Lock);
  LastPacketMilliseconds = platform::MonotonicMilliseconds();
}

void CViewerPages::OnPage(const ReceivedPage& page) {
  Guarded("CViewerPages::OnPage()", [&] {
    ViewerPage entry;
    entry.Site = page.SiteNumber;
    entry.Number = page.PageNumber;
    entry.Path = page.Record.Path;
    entry.Name = page.Record.Name;
    entry.WebName = PageWebName(page.Record.Path, page.Record.Name);
    entry.IsZolPage = EndsWith(page.Record.Name, ".zol");
    entry.Version = std::to_string(page.SequenceHigh) + "." + std::to_string(page.SequenceLow);
    entry.Data = std::make_shared<const std::string>(page.Record.Data.begin(), page.Record.Data.end());
    entry.ChangedAtSeconds = static_cast<std::int64_t>(platform::NowWallTime().Seconds);
    {
      std::lock_guard<std::mutex> hold(Lock);
      ++Generations[entry.Site];
      ViewerEvent event{++Sequence, entry.Site, entry.Number, entry.WebName, entry.Version};
      if (Events.size() < kKeptEvents) {
        Events.push_back(event);
      } else {
        Events[(event.Sequence - 1) % kKeptEvents] = event;
      }
      PagesByKey[{entry.Site, entry.Number}] = std::move(entry);
    }
    Changed();
  });
}

void CViewerPages::OnSiteClock(DWORD site, const std::map<std::string, std::string>& clock) {
  {
    std::lock_guard<std::mutex> hold(Lock);
    Clocks[site] = clock;
  }
  Changed();
}

std::vector<ViewerPage> CViewerPages::Pages() const {
  std::lock_guard<std::mutex> hold(Lock);
  std::vector<ViewerPage> pages;
  for (const auto& [key, page] : PagesByKey) pages.push_back(page);
  return pages;
}

std::optional<ViewerPage> CViewerPages::FindByWebName(DWORD site, const std::string& webName) const {
  std::lock_guard<std::mutex> hold(Lock);
  for (const auto& [key, page] : PagesByKey) {
    if (page.Site == site && page.WebName == webName) return page;
  }
  return std::nullopt;
}

std::optional<ViewerPage> CViewerPages::FindByNumber(DWORD site, DWORD number) const {
  std::lock_guard<std::mutex> hold(Lock);
  const auto found = PagesByKey.find({site, number});
  if (found == PagesByKey.end()) return std::nullopt;
  return found->second;
}

std::map<DWORD, std::shared_ptr<const std::string>> CViewerPages::PageTexts(DWORD site) const {
  std::lock_guard<std::mutex> hold(Lock);
  std::map<DWORD, std::shared_ptr<const std::string>> texts;
  for (const auto& [key, page] : PagesByKey) {
    if (page.Site == site) texts[page.Number] = page.Data;
  }
  return texts;
}

std::uint64_t CViewerPages::ContentGeneration(DWORD site) const {
  std::lock_guard<std::mutex> hold(Lock);
  const auto found = Generations.find(site);
  return found == Generations.end() ? 0 : found->second;
}

CViewerPages::Status CViewerPages::SiteStatus(DWORD site) const {
  std::lock_guard<std::mutex> hold(Lock);
  Status status;
  const auto clock = Clocks.find(site);
  if (clock != Clocks.end()) status.Clock = clock->second;
  if (LastPacketMilliseconds) {
    status.SincePacket = static_cast<double>(platform::MonotonicMilliseconds() - *LastPacketMilliseconds) / 1000.0;
  }
  return status;
}

std::vector<DWORD> CViewerPages::Sites() const {
  std::lock_guard<std::mutex> hold(Lock);
  std::vector<DWORD> sites;
  for (const auto& [key, page] : PagesByKey) {
    if (sites.empty() || sites.back() != key.first) sites.push_back(key.first);
  }
  for (const auto& [site, clock] : Clocks) {
    if (std::find(sites.begin(), sites.end(), site) == sites.end()) sites.push_back(site);
  }
  std::sort(sites.begin(), sites.end());
  return sites;
}

std::vector<ViewerEvent> CViewerPages::EventsAfter(std::uint64_t sequence, bool& missed) const {
  std::lock_guard<std::mutex> hold(Lock);
  std::vector<ViewerEvent> events;
  const std::uint64_t oldestKept = Sequence >= kKeptEvents ? Sequence - kKeptEvents + 1 : 1;
  missed = sequence + 1 < oldestKept;
  for (std::uint64_t next = std::max(sequence + 1, oldestKept); next <= Sequence; ++next) {
    events.push_back(Events[(next - 1) % kKeptEvents]);
  }
  return events;
}

std::uint64_t CViewerPages::LastSequence() const {
  std::lock_guard<std::mutex> hold(Lock);
  return Sequence;
}

void CViewerPages::SetChangeListener(std::function<void()> listener) {
  std::lock_guard<std::mutex> hold(Lock);
  Listener = std::move(listener);
}

void CViewerPages::Changed() {
  std::function<void()> listener;
  {
    std::lock_guard<std::mutex> hold(Lock);
    listener = Listener;
  }
  if (listener) listener();
}

}  // namespace zolclient
