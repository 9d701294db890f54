// A data manager that goes mid-race and comes back, with real processes: zolhost,
// zoldatamanager and a TCP client of the page port. While the data manager is away no
// content page gets a new version (clients keep the last results), no label ever goes
// out as its escaped tag, and a data manager that comes back brings new versions.
#include <gtest/gtest.h>

#include <signal.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "distribution/PacketFormat.h"
#include "testing/ChildProcess.h"
#include "testing/LinkedInstallation.h"
#include "testing/TempDir.h"

namespace {

using Clock = std::chrono::steady_clock;
using Version = std::pair<BYTE, BYTE>;

bool IsContentPage(const ReceivedPage& page) { return wire::PageNumber(page.PageIdentity) != 0; }
Version VersionOf(const ReceivedPage& page) { return {page.SequenceHigh, page.SequenceLow}; }
std::string Text(const ReceivedPage& page) { return std::string(page.Data.begin(), page.Data.end()); }
std::string Name(const ReceivedPage& page) { return page.Path + page.Name; }

// The first page from `from` on that shows a label as its escaped tag, or "".
std::string PageWithEscapedLabel(const std::vector<ReceivedPage>& pages, std::size_t from) {
  for (std::size_t i = from; i < pages.size(); ++i) {
    if (IsContentPage(pages[i]) && Text(pages[i]).find("&lt;zol_label") != std::string::npos) {
      return Name(pages[i]) + ":\n" + Text(pages[i]);
    }
  }
  return "";
}

// Watches the header page, whose race time label changes with every clock tick of the
// data manager while a session runs: true once the page has changed five times since
// its first version and the last three versions came within 2.5 s, so
// that there is nearly always a change on its way to the clients.
class SessionRuns {
 public:
  bool operator()(const std::vector<ReceivedPage>& pages) {
    for (; Seen < pages.size(); ++Seen) {
      const ReceivedPage& page = pages[Seen];
      if (Name(page) != "pages/header.zol" || (!Changes.empty() && Changes.back().second == VersionOf(page))) continue;
      Changes.emplace_back(Clock::now(), VersionOf(page));
    }
    return Changes.size() >= 6 && Clock::now() - Changes[Changes.size() - 3].first < std::chrono::milliseconds(2500);
  }

 private:
  std::size_t Seen = 0;
  std::vector<std::pair<Clock::time_point, Version>> Changes;
};

}  // namespace

TEST(ZolhostDataManagerLoss, ContentPagesKeepTheirVersionWhileTheDataManagerIsAwayAndRebuildWhenItReturns) {
  LinkedInstallation installation;
  ASSERT_TRUE(installation.Ready);
  ChildProcess host(kHostProgram, installation.HostArguments(), installation.Logs.Path());
  ASSERT_TRUE(host.WaitForStderr("data manager link listens on", 20)) << host.Stderr();
  TempDir firstLogs;
  auto dataManager =
      std::make_unique<ChildProcess>(kDataManagerProgram, installation.DataManagerArguments(), firstLogs.Path());
  PageWatcher watcher(installation.PagePort);
  ASSERT_TRUE(watcher.ReadUntil(SessionRuns(), 60)) << "no session ran\n" << host.Stderr();

  // Mid-race, the data manager is killed. zolhost hears the link go; what the views
  // brought before the loss may still go out, once, within a second.
  // The site writes its changed pages once a second, soon after the data manager's
  // changes came; late in that second the next changes are on their way.
  watcher.ReadFor(0.8);
  // Before the first data manager came, a page showed its labels' tags, as a page without
  // a run does; from the loss on, none may.
  const std::size_t killedAt = watcher.Count();
  dataManager->Signal(SIGKILL);
  ASSERT_TRUE(host.WaitForStderr(" disconnected", 10)) << host.Stderr();
  ASSERT_TRUE(host.WaitForStderr("message out: id 0x0001 to class 0", 5)) << host.Stderr();
  watcher.ReadFor(1);
  std::map<DWORD, Version> held;
  for (const ReceivedPage& page : watcher.Pages()) {
    if (IsContentPage(page)) held[page.PageIdentity] = VersionOf(page);
  }
  ASSERT_GE(held.size(), 5u);

  // For 10 s every content page goes out in the version the client already has (or, for
  // one not seen yet, in one version), and never with a label's escaped tag.
  const std::size_t settledAt = watcher.Count();
  watcher.ReadFor(10);
  EXPECT_GT(watcher.Count(), settledAt + 5) << "the carousel stopped";
  for (std::size_t i = settledAt; i < watcher.Count(); ++i) {
    const ReceivedPage& page = watcher.Pages()[i];
    if (!IsContentPage(page)) continue;
    const auto known = held.emplace(page.PageIdentity, VersionOf(page)).first;
    EXPECT_EQ(VersionOf(page), known->second) << "a new version of " << Name(page) << " without a data manager:\n"
                                              << Text(page);
  }
  EXPECT_EQ(PageWithEscapedLabel(watcher.Pages(), killedAt), "");

  // Another data manager connects: the pages rebuild from its data within 2 s.
  TempDir secondLogs;
  dataManager =
      std::make_unique<ChildProcess>(kDataManagerProgram, installation.DataManagerArguments(), secondLogs.Path());
  const auto restarted = Clock::now();
  const std::size_t restartedAt = watcher.Count();
  const bool rebuilt = watcher.ReadUntil(
      [&](const std::vector<ReceivedPage>& pages) {
        for (std::size_t i = restartedAt; i < pages.size(); ++i) {
          const auto known = held.find(pages[i].PageIdentity);
          if (IsContentPage(pages[i]) && known != held.end() && VersionOf(pages[i]) != known->second) return true;
        }
        return false;
      },
      10);
  const double seconds = std::chrono::duration<double>(Clock::now() - restarted).count();
  EXPECT_TRUE(rebuilt) << host.Stderr() << dataManager->Stderr();
  EXPECT_LT(seconds, 2.0);
  watcher.ReadFor(1);
  EXPECT_EQ(PageWithEscapedLabel(watcher.Pages(), killedAt), "");

  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
  EXPECT_EQ(host.Stderr().find("exception"), std::string::npos) << host.Stderr();
}
