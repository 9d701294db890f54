// Names in any script, end to end: zolhost plays a race file whose competitors' names hold
// letters beyond ASCII (accented Latin, Polish, Chinese script), and zolclient on the TCP
// port receives the results page. With --code-page UTF-8 every name arrives exactly as
// the race file spells it, from the stand-in in zolhost and from zoldatamanager alike;
// under the default CP1252 the names it can hold arrive right, the others with "?", and
// zolhost says so in one line at start.
#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "frame/platform/Sockets.h"
#include "testing/ChildProcess.h"
#include "testing/ExampleInstallation.h"
#include "testing/TempDir.h"
#include "testing/WireTables.h"

namespace {

using Clock = std::chrono::steady_clock;

const std::string kHost = std::string(ZOL_BINARY_DIR) + "/zolhost";
const std::string kClient = std::string(ZOL_BINARY_DIR) + "/zolclient";
const std::string kDataManager = std::string(ZOL_BINARY_DIR) + "/zoldatamanager";

const char kRace[] = R"({
  "track": {"name": "Ring", "length": 1.2, "timelines": [{"id": 0, "name": "Finish", "position": 0}]},
  "events": [{"id": 1, "name": "Cup"}],
  "runs": [{"id": 1, "event": 1, "name": "Heat", "type": 2, "laps": 20}],
  "competitors": [
    {"id": 1, "number": "1", "first": "Émile", "last": "Fabré", "pace": {"lap": 40}},
    {"id": 2, "number": "2", "first": "Łucja", "last": "Żak", "pace": {"lap": 40.5}},
    {"id": 3, "number": "3", "first": "Jürgen", "last": "Müller", "pace": {"lap": 41}},
    {"id": 4, "number": "4", "first": "Iñigo", "last": "Muñoz", "pace": {"lap": 41.5}},
    {"id": 5, "number": "5", "last": "王小明", "pace": {"lap": 42}}
  ]
})";

// The race file's names in UTF-8, as the results page should show them.
const std::set<std::string> kNames = {"Émile Fabré", "Łucja Żak", "Jürgen Müller", "Iñigo Muñoz", "王小明"};

// The names in the results table of the latest version of results/current.zol that
// zolclient wrote into `folder` with all five rows, waiting up to `seconds`.
std::set<std::string> ResultNamesOnTheWire(const std::string& folder, double seconds, std::string& lastPage) {
  const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
  while (Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const std::string page = ReadWholeFile(folder + "/results/current.zol");
    if (page.empty() || page.find("</zol>") == std::string::npos) continue;
    lastPage = page;
    for (const char* type : {"practice", "qualify", "race"}) {
      const auto table = TableOf(page, type);
      if (!table) continue;
      const std::vector<std::string> columns = ColumnTypesOf(*table);
      const auto name = static_cast<std::size_t>(std::find(columns.begin(), columns.end(), "name") - columns.begin());
      std::set<std::string> names;
      for (const auto& row : RowsOf(*table)) {
        if (name < row.size()) names.insert(row[name]);
      }
      if (names.size() == kNames.size()) return names;
    }
  }
  return {};
}

struct RaceSetup {
  RaceSetup() {
    Port = platform::FindFreeTcpPort();
    Ready = Port != 0 && CopyExamples(AppDir, Port);
    RaceDir.Write("race.json", kRace);
    RaceFile = RaceDir.Path() + "/race.json";
  }
  TempDir AppDir;
  TempDir RaceDir;
  TempDir Logs;
  TempDir Received;
  std::uint16_t Port = 0;
  bool Ready = false;
  std::string RaceFile;
};

std::size_t Occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

}  // namespace

TEST(RaceTextEndToEnd, UnderUtf8TheResultsPageShowsEveryNameAsTheRaceFileSpellsIt) {
  RaceSetup setup;
  ASSERT_TRUE(setup.Ready);
  ChildProcess host(kHost,
                    {"--appdir", setup.AppDir.Path(), "--no-web", "--code-page", "UTF-8", "--race", setup.RaceFile,
                     "--race-speed", "20"},
                    setup.Logs.Path());
  ASSERT_TRUE(host.WaitForStderr("timer: every 200 ms", 20)) << host.Stderr();
  ChildProcess client(kClient,
                      {"tcp://127.0.0.1:" + std::to_string(setup.Port), "--out", setup.Received.Path(), "--timeout", "30"},
                      setup.Logs.Path());
  std::string lastPage;
  const std::set<std::string> names = ResultNamesOnTheWire(setup.Received.Path(), 30, lastPage);
  // The scoreboard feed's table names them the same way.
  std::string feed;
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  while (Clock::now() < deadline) {
    feed = ReadWholeFile(setup.Received.Path() + "/flash/ZOLFeed.zol");
    if (std::all_of(kNames.begin(), kNames.end(),
                    [&](const std::string& name) { return feed.find("<zol_rd>" + name + "</zol_rd>") != std::string::npos; })) {
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
  client.Signal(SIGTERM);
  client.WaitForExit(5);
  EXPECT_EQ(names, kNames) << lastPage;
  for (const std::string& name : kNames) {
    EXPECT_NE(feed.find("<zol_rd>" + name + "</zol_rd>"), std::string::npos) << name << "\n" << feed;
  }
  // Nothing lost: no line about lost characters.
  EXPECT_EQ(host.Stderr().find("lost characters"), std::string::npos) << host.Stderr();
}

TEST(RaceTextEndToEnd, UnderTheDefaultCodePageNamesItCannotHoldShowQuestionMarksAndZolhostSaysSoOnce) {
  RaceSetup setup;
  ASSERT_TRUE(setup.Ready);
  ChildProcess host(kHost, {"--appdir", setup.AppDir.Path(), "--no-web", "--race", setup.RaceFile, "--race-speed", "20"},
                    setup.Logs.Path());
  ASSERT_TRUE(host.WaitForStderr("timer: every 200 ms", 20)) << host.Stderr();
  ChildProcess client(kClient,
                      {"tcp://127.0.0.1:" + std::to_string(setup.Port), "--out", setup.Received.Path(), "--timeout", "30"},
                      setup.Logs.Path());
  std::string lastPage;
  const std::set<std::string> names = ResultNamesOnTheWire(setup.Received.Path(), 30, lastPage);
  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
  client.Signal(SIGTERM);
  client.WaitForExit(5);
  const std::set<std::string> expected = {"Émile Fabré", "?ucja ?ak", "Jürgen Müller", "Iñigo Muñoz", "???"};
  EXPECT_EQ(names, expected) << lastPage;
  // One line at start: how many names lost characters, and how to keep them.
  const std::string line = "zolhost: 3 names of the race file lost characters that code page CP1252 cannot hold "
                           "(shown as \"?\"); --code-page UTF-8 keeps them";
  EXPECT_EQ(Occurrences(host.Stderr(), line), 1u) << host.Stderr();
  EXPECT_EQ(Occurrences(host.Stderr(), "lost characters"), 1u) << host.Stderr();
}

TEST(RaceTextEndToEnd, ZoldatamanagerUnderUtf8BringsEveryNameAsTheRaceFileSpellsIt) {
  RaceSetup setup;
  ASSERT_TRUE(setup.Ready);
  const std::uint16_t linkPort = platform::FindFreeTcpPort();
  ASSERT_NE(linkPort, 0);
  ChildProcess host(kHost,
                    {"--appdir", setup.AppDir.Path(), "--no-web", "--code-page", "UTF-8", "--data-manager-port",
                     std::to_string(linkPort)},
                    setup.Logs.Path());
  ASSERT_TRUE(host.WaitForStderr("data manager link listens on", 20)) << host.Stderr();
  TempDir peerLogs;
  ChildProcess dataManager(kDataManager,
                           {"--connect", "127.0.0.1:" + std::to_string(linkPort), "--race", setup.RaceFile,
                            "--race-speed", "20", "--code-page", "UTF-8"},
                           peerLogs.Path());
  ChildProcess client(kClient,
                      {"tcp://127.0.0.1:" + std::to_string(setup.Port), "--out", setup.Received.Path(), "--timeout", "30"},
                      setup.Logs.Path());
  std::string lastPage;
  const std::set<std::string> names = ResultNamesOnTheWire(setup.Received.Path(), 30, lastPage);
  host.Signal(SIGTERM);
  EXPECT_TRUE(host.WaitForExit(10).has_value());
  dataManager.Signal(SIGTERM);
  dataManager.WaitForExit(10);
  client.Signal(SIGTERM);
  client.WaitForExit(5);
  EXPECT_EQ(names, kNames) << lastPage << "\n" << dataManager.Stderr();
  EXPECT_EQ(dataManager.Stderr().find("lost characters"), std::string::npos) << dataManager.Stderr();
}

TEST(RaceTextEndToEnd, ZoldatamanagerExplainsCodePageAndRefusesAnEmptyOne) {
  TempDir logs;
  std::string out;
  ASSERT_EQ(RunToEnd(kDataManager, {"--help"}, logs.Path(), 10, &out, nullptr), std::optional<int>(0));
  EXPECT_NE(out.find("--code-page NAME"), std::string::npos) << out;
  std::string err;
  EXPECT_EQ(RunToEnd(kDataManager, {"--connect", "127.0.0.1:1", "--race", "race.json", "--code-page", ""}, logs.Path(),
                     10, nullptr, &err),
            std::optional<int>(2));
  EXPECT_NE(err.find("--code-page"), std::string::npos) << err;
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
}

TEST(RaceTextEndToEnd, ZolhostHelpSaysTheStandInWritesInTheCodePage) {
  TempDir logs;
  std::string out;
  ASSERT_EQ(RunToEnd(kHost, {"--help"}, logs.Path(), 10, &out, nullptr), std::optional<int>(0));
  const auto option = out.find("--code-page NAME");
  ASSERT_NE(option, std::string::npos) << out;
  EXPECT_NE(out.find("stand-in of --race writes in it too (UTF-8 keeps every letter)", option), std::string::npos) << out;
}
