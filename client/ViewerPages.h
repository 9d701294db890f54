// What the viewer shows: the newest version of every page the client rebuilt, each site's
// clock from its information page, when the last packet came, and a short list of the
// latest page changes for the event streams. The receiving loop writes; the web server's
// thread reads. Every member takes the lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "client/PageAssembler.h"
#include "client/PageListener.h"
#include "frame/Types.h"

namespace zolclient {

struct ViewerPage {
  DWORD Site = 0;
  DWORD Number = 0;
  std::string Path;
  std::string Name;
  std::string WebName;  // below the site's folder, e.g. "results/current.html"
  bool IsZolPage = false;
  std::string Version;  // "HIGH.LOW"
  std::shared_ptr<const std::string> Data;
  std::int64_t ChangedAtSeconds = 0;  // wall clock, seconds since 1970
};

// One new page version, as the event streams tell it.
struct ViewerEvent {
  std::uint64_t Sequence = 0;
  DWORD Site = 0;
  DWORD Number = 0;
  std::string WebName;
  std::string Version;
};

class CViewerPages : public CPageListener {
 public:
  // How many of the latest changes are kept for event streams that fall behind.
  static constexpr std::size_t kKeptEvents = 512;
  // Without a packet for this long the stream counts as lost.
  static constexpr double kLostAfterSeconds = 10;

  void OnPacket() override;
  void OnPage(const ReceivedPage& page) override;
  void OnSiteClock(DWORD site, const std::map<std::string, std::string>& clock) override;

  std::vector<ViewerPage> Pages() const;
  std::optional<ViewerPage> FindByWebName(DWORD site, const std::string& webName) const;
  std::optional<ViewerPage> FindByNumber(DWORD site, DWORD number) const;
  // The site's pages that are not yet replaced, by number, for includes.
  std::map<DWORD, std::shared_ptr<const std::string>> PageTexts(DWORD site) const;
  // Counts every page change of a site except its information page: a rendered page
  // stays good while it holds.
  std::uint64_t ContentGeneration(DWORD site) const;

  struct Status {
    std::map<std::string, std::string> Clock;
    // Seconds since the last packet; nothing when none came yet.
    std::optional<double> SincePacket;
    bool Lost() const { return !SincePacket || *SincePacket >= kLostAfterSeconds; }
  };
  Status SiteStatus(DWORD site) const;
  std::vector<DWORD> Sites() const;

  // The changes after `sequence`, oldest first; `missed` when some were already dropped.
  std::vector<ViewerEvent> EventsAfter(std::uint64_t sequence, bool& missed) const;
  std::uint64_t LastSequence() const;

  // Called after each change, outside the lock (the web server wakes its streams).
  void SetChangeListener(std::function<void()> listener);

 private:
  void Changed();

  mutable std::mutex Lock;
  std::map<std::pair<DWORD, DWORD>, ViewerPage> PagesByKey;
  std::map<DWORD, std::map<std::string, std::string>> Clocks;
  std::map<DWORD, std::uint64_t> Generations;
  std::vector<ViewerEvent> Events;  // ring of kKeptEvents
  std::uint64_t Sequence = 0;
  std::optional<std::uint64_t> LastPacketMilliseconds;
  std::function<void()> Listener;
};

}  // namespace zolclient
