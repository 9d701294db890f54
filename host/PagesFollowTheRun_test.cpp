// Pages that follow the run, end to end: zolhost plays the example meeting (practice,
// qualifying, race) at 60 times real speed and a TCP client of its port watches the
// home page's parts. The header, included by index.zol, names each run in turn, and the
// summary, included through track.zol, shows each run's best lap as the run information
// page of that run does.
#include <gtest/gtest.h>

#include <signal.h>

#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "testing/ChildProcess.h"
#include "testing/LinkedInstallation.h"
#include "testing/TempDir.h"

namespace {

const std::vector<std::string> kRuns = {"Free Practice", "Qualifying", "Race 1"};

std::string Text(const ReceivedPage& page) { return std::string(page.Data.begin(), page.Data.end()); }

// The value of the first label of `type` on the page, or "".
std::string Label(const std::string& page, const std::string& type) {
  std::smatch found;
  if (std::regex_search(page, found, std::regex("<zol_label type=\"" + type + "\"[^>]*>([^<]*)</zol_label>"))) {
    return found[1];
  }
  return "";
}

std::string BestLap(const std::string& page) { return Label(page, "bestlaptime") + " by " + Label(page, "bestlapby"); }

// The run names in the order the header showed them, repeats left out, and not the
// label's tag that a version made before the first data shows.
std::vector<std::string> HeaderRuns(const std::vector<ReceivedPage>& pages) {
  std::vector<std::string> runs;
  for (const ReceivedPage& page : pages) {
    if (page.Path != "pages/" || page.Name != "header.zol") continue;
    const std::string run = Label(Text(page), "runname");
    if (run.empty() || run.find("&lt;zol_label") != std::string::npos) continue;
    if (runs.empty() || runs.back() != run) runs.push_back(run);
  }
  return runs;
}

}  // namespace

TEST(PagesFollowTheRun, HeaderAndSummaryOfTheHomePageShowEachRunOfTheMeetingInTurn) {
  LinkedInstallation installation;
  ASSERT_TRUE(installation.Ready);
  ChildProcess host(kHostProgram,
                    {"--appdir", installation.AppDir.Path(), "--no-web", "--race", kExampleRace, "--race-speed", "60",
                     "--code-page", "UTF-8"},
                    installation.Logs.Path());
  PageWatcher watcher(installation.PagePort);
  const bool allRuns = watcher.ReadUntil(
      [](const std::vector<ReceivedPage>& pages) { return HeaderRuns(pages).size() >= kRuns.size(); }, 90);
  ASSERT_TRUE(allRuns) << "header runs: " << HeaderRuns(watcher.Pages()).size() << "\n" << host.Stderr();
  // The race's best lap is set after a lap or two.
  watcher.ReadFor(8);
  EXPECT_EQ(HeaderRuns(watcher.Pages()), kRuns);

  // The best laps the run information page showed for each run, and the summary's.
  std::map<std::string, std::set<std::string>> runBestLaps;
  std::set<std::string> summaryBestLaps;
  // Before the stand-in's first data a page shows its labels' tags, as a page without a
  // run does; once the header named a run, no page may.
  bool runNamed = false;
  for (const ReceivedPage& page : watcher.Pages()) {
    const std::string text = Text(page);
    if (page.Path == "pages/" && page.Name == "header.zol" && Label(text, "runname") == kRuns.front()) runNamed = true;
    if (page.Path == "results/" && page.Name == "runinformation.zol") {
      runBestLaps[Label(text, "runname")].insert(BestLap(text));
    } else if (page.Path == "results/" && page.Name == "summary.zol") {
      summaryBestLaps.insert(BestLap(text));
    }
    if (runNamed) {
      EXPECT_EQ(text.find("&lt;zol_label"), std::string::npos) << page.Path << page.Name << "\n" << text;
    }
  }
  for (const std::string& run : kRuns) {
    // A best lap that only this run had.
    std::set<std::string> own = runBestLaps[run];
    for (const auto& [other, laps] : runBestLaps) {
      if (other == run) continue;
      for (const std::string& lap : laps) own.erase(lap);
    }
    own.erase(" by ");
    own.erase("-.--- by ");
    ASSERT_FALSE(own.empty()) << run;
    bool shown = false;
    for (const std::string& lap : own) shown = shown || summaryBestLaps.count(lap) != 0;
    EXPECT_TRUE(shown) << "the summary never showed a best lap of " << run << " (" << *own.begin() << ")";
  }
  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
}
