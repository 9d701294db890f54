// The example meeting live, end to end: zolhost plays the example race with its stand-in
// at twenty times real speed, and zolclient on the TCP port receives the results page in
// version after version as laps go up, with the race file's competitors in position
// order, and the information page's clock moving.
#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <map>
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

// What one version of the results page shows in the table of the run.
struct ResultsVersion {
  std::string Table;  // practice, qualify or race
  std::vector<std::vector<std::string>> Rows;
  std::vector<std::string> Columns;
  int TotalLaps = 0;
};

std::optional<ResultsVersion> ReadResults(const std::string& page) {
  for (const char* type : {"practice", "qualify", "race"}) {
    const auto table = TableOf(page, type);
    if (!table) continue;
    ResultsVersion version;
    version.Table = type;
    version.Rows = RowsOf(*table);
    version.Columns = ColumnTypesOf(*table);
    const auto laps = std::find(version.Columns.begin(), version.Columns.end(), "laps") - version.Columns.begin();
    for (const auto& row : version.Rows) {
      if (static_cast<std::size_t>(laps) < row.size()) version.TotalLaps += std::atoi(row[laps].c_str());
    }
    return version;
  }
  return std::nullopt;
}

std::string InfoValue(const std::string& info, const std::string& key) {
  const auto at = info.find(key + "=");
  if (at == std::string::npos) return std::string();
  const auto end = info.find('\n', at);
  return info.substr(at + key.size() + 1, end - at - key.size() - 1);
}

}  // namespace

TEST(ZolhostRaceEndToEnd, TheExampleMeetingFillsTheResultsPageVersionAfterVersionAsLapsGoUp) {
  TempDir appdir;
  TempDir logs;
  const std::uint16_t port = platform::FindFreeTcpPort();
  ASSERT_NE(port, 0);
  ASSERT_TRUE(CopyExamples(appdir, port));
  // The example race's names hold letters beyond CP1252: UTF-8 keeps them as the file spells them.
  ChildProcess host(kHost, {"--appdir", appdir.Path(), "--no-web", "--code-page", "UTF-8", "--race", kExampleRace,
                            "--race-speed", "20", "--seed", "1"},
                    logs.Path());
  ASSERT_TRUE(host.WaitForStderr("timer: every 200 ms", 20)) << host.Stderr();
  TempDir received;
  ChildProcess client(kClient, {"tcp://127.0.0.1:" + std::to_string(port), "--out", received.Path(), "--timeout", "30"},
                      logs.Path());

  const std::vector<std::string> names = RaceCompetitorNames(kExampleRace);
  std::vector<ResultsVersion> versions;
  std::set<std::string> flags;
  std::set<std::string> raceTimes;
  std::string lastPage;
  const auto deadline = Clock::now() + std::chrono::seconds(30);
  bool enough = false;
  while (Clock::now() < deadline && !enough) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const std::string info = ReadWholeFile(received.Path() + "/_site1.info");
    if (!InfoValue(info, "clock.flag").empty()) flags.insert(InfoValue(info, "clock.flag"));
    if (!InfoValue(info, "clock.racetime").empty()) raceTimes.insert(InfoValue(info, "clock.racetime"));
    const std::string page = ReadWholeFile(received.Path() + "/results/current.zol");
    if (page.empty() || page == lastPage || page.find("</zol>") == std::string::npos) continue;
    lastPage = page;
    const auto version = ReadResults(page);
    // Versions from the first lap on, each with more laps than the one before.
    if (!version || version->Rows.empty() || version->TotalLaps == 0) continue;
    if (versions.empty() || version->TotalLaps > versions.back().TotalLaps) versions.push_back(*version);
    enough = versions.size() >= 3 && flags.size() >= 2 && raceTimes.size() >= 3;
  }
  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
  client.Signal(SIGTERM);
  client.WaitForExit(5);

  ASSERT_GE(versions.size(), 3u) << "versions with more laps: " << versions.size() << "\n" << host.Stderr();
  for (const ResultsVersion& version : versions) {
    ASSERT_EQ(version.Rows.size(), names.size()) << version.Table;
    const auto position = std::find(version.Columns.begin(), version.Columns.end(), "position") - version.Columns.begin();
    const auto name = std::find(version.Columns.begin(), version.Columns.end(), "name") - version.Columns.begin();
    std::set<std::string> seen;
    for (std::size_t i = 0; i < version.Rows.size(); ++i) {
      const auto& row = version.Rows[i];
      ASSERT_EQ(row.size(), version.Columns.size());
      EXPECT_EQ(row[static_cast<std::size_t>(position)], std::to_string(i + 1)) << version.Table;
      EXPECT_NE(std::find(names.begin(), names.end(), row[static_cast<std::size_t>(name)]), names.end())
          << row[static_cast<std::size_t>(name)];
      seen.insert(row[static_cast<std::size_t>(name)]);
    }
    EXPECT_EQ(seen.size(), names.size()) << "every competitor once";
  }
  // The information page: the flag changed (warmup to green) and the race time ran.
  EXPECT_GE(flags.size(), 2u) << *flags.begin();
  EXPECT_GE(raceTimes.size(), 3u);
  const std::string clientOut = client.Stdout();
  std::size_t lines = 0;
  for (auto at = clientOut.find("results/current.zol"); at != std::string::npos;
       at = clientOut.find("results/current.zol", at + 1)) {
    ++lines;
  }
  EXPECT_GE(lines, 3u) << clientOut;
}
