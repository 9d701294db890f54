// The data manager in a process of its own: zolhost listens on its data manager link,
// zoldatamanager plays the example race over it, and a TCP client of the module's port
// sees the pages. When the data manager is killed the module hears it go and the sites
// go on sending their last pages; one that connects again takes a fresh snapshot. Also
// the command lines of both programs.
#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "frame/platform/Interfaces.h"
#include "frame/platform/Sockets.h"
#include "testing/ChildProcess.h"
#include "testing/ExampleInstallation.h"
#include "testing/LinkedInstallation.h"
#include "testing/PageReassembler.h"
#include "testing/TempDir.h"

namespace {

const std::string& kRace = kExampleRace;
using Clock = std::chrono::steady_clock;

const std::string& kHost = kHostProgram;
const std::string& kDataManager = kDataManagerProgram;

int CountOf(const std::string& text, const std::string& part) {
  int count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

std::string LocalComputerText() { return platform::DottedAddress(platform::LocalIPv4Address()); }

std::string Text(const ReceivedPage& page) { return std::string(page.Data.begin(), page.Data.end()); }
bool IsResultsPage(const ReceivedPage& page) { return page.Path == "results/" && page.Name == "current.zol"; }

}  // namespace

TEST(ZolhostDataManagerEndToEnd, PagesGoOnWhenTheDataManagerIsKilledAndOneThatComesBackTakesAFreshSnapshot) {
  LinkedInstallation installation;
  ASSERT_TRUE(installation.Ready);
  ChildProcess host(kHost, installation.HostArguments(), installation.Logs.Path());
  ASSERT_TRUE(host.WaitForStderr("data manager link listens on 127.0.0.1:" + std::to_string(installation.LinkPort), 20))
      << host.Stderr();
  TempDir firstLogs;
  auto dataManager = std::make_unique<ChildProcess>(kDataManager, installation.DataManagerArguments(), firstLogs.Path());
  ASSERT_TRUE(host.WaitForStderr("data manager link: peer 127.0.0.1:", 10)) << host.Stderr() << dataManager->Stderr();
  // Connect, all data, view list: the module is live on the data manager of the link.
  ASSERT_TRUE(host.WaitForStderr("message in: id 0x8020 from class 5", 20)) << host.Stderr() << dataManager->Stderr();
  EXPECT_TRUE(dataManager->WaitForStderr("frame in: id 0x0002,", 5)) << dataManager->Stderr();

  PageWatcher watcher(installation.PagePort);
  const bool pages = watcher.ReadUntil([](const std::vector<ReceivedPage>& got) { return got.size() >= 5; }, 30);
  ASSERT_TRUE(pages) << "pages received: " << watcher.Count() << "\n" << host.Stderr();

  // The data manager is killed: zolhost notes the link's end and the module hears that
  // the data manager is gone (it asks the host for all modules again).
  const std::string getAllModules = "message out: id 0x0001 to class 0";
  const int listedBefore = CountOf(host.Stderr(), getAllModules);
  dataManager->Signal(SIGKILL);
  EXPECT_TRUE(host.WaitForStderr(" disconnected", 10)) << host.Stderr();
  EXPECT_TRUE(host.WaitForStderr("module of class 5 on computer " + LocalComputerText() + " gone", 10)) << host.Stderr();
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  while (CountOf(host.Stderr(), getAllModules) <= listedBefore && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_GT(CountOf(host.Stderr(), getAllModules), listedBefore) << host.Stderr();
  dataManager->WaitForExit(5);
  // The sites go on with their last pages.
  const std::size_t before = watcher.Count();
  const bool more = watcher.ReadUntil(
      [before](const std::vector<ReceivedPage>& got) { return got.size() >= before + 5; }, 30);
  EXPECT_TRUE(more) << "pages before the kill " << before << ", now " << watcher.Count();

  // A data manager that connects again is asked to connect and for all data afresh.
  TempDir secondLogs;
  dataManager = std::make_unique<ChildProcess>(kDataManager, installation.DataManagerArguments(), secondLogs.Path());
  EXPECT_TRUE(dataManager->WaitForStderr("frame in: id 0x0000,", 10)) << dataManager->Stderr() << host.Stderr();
  EXPECT_TRUE(dataManager->WaitForStderr("frame in: id 0x0002,", 10)) << dataManager->Stderr() << host.Stderr();
  EXPECT_TRUE(watcher.ReadUntil(
      [before](const std::vector<ReceivedPage>& got) { return got.size() >= before + 10; }, 30));

  // zolhost ends: the link closes, and zoldatamanager, which lost it, ends with status 4
  // (a supervisor restarts it).
  host.Signal(SIGTERM);
  const auto hostStatus = host.WaitForExit(10);
  ASSERT_TRUE(hostStatus.has_value());
  EXPECT_EQ(*hostStatus, 0) << host.Stderr();
  const auto peerStatus = dataManager->WaitForExit(10);
  ASSERT_TRUE(peerStatus.has_value()) << dataManager->Stderr();
  EXPECT_EQ(*peerStatus, 4) << dataManager->Stderr();
  EXPECT_NE(dataManager->Stderr().find("zolhost closed the link"), std::string::npos) << dataManager->Stderr();
  EXPECT_EQ(host.Stderr().find("exception"), std::string::npos) << host.Stderr();
}

TEST(ZolhostDataManagerEndToEnd, ResultsPageShowsTheRaceFilesCompetitors) {
  // What the race simulation of the stand-in brings to the pages: the results page of the
  // active run lists the competitors of the race file.
  LinkedInstallation installation;
  ASSERT_TRUE(installation.Ready);
  const std::vector<std::string> names = RaceCompetitorNames(kRace);
  ASSERT_FALSE(names.empty());
  ChildProcess host(kHost, installation.HostArguments(), installation.Logs.Path());
  ASSERT_TRUE(host.WaitForStderr("data manager link listens on", 20)) << host.Stderr();
  TempDir peerLogs;
  ChildProcess dataManager(kDataManager, installation.DataManagerArguments(), peerLogs.Path());
  PageWatcher watcher(installation.PagePort);
  std::string lastSeen = "(none)";
  const bool filled = watcher.ReadUntil(
      [&](const std::vector<ReceivedPage>& got) {
        for (auto page = got.rbegin(); page != got.rend(); ++page) {
          if (!IsResultsPage(*page)) continue;
          lastSeen = Text(*page);
          // In a cell of a table row, not anywhere in the text.
          return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
            return std::regex_search(lastSeen, std::regex("<zol_rd>[^<]*" + name + "[^<]*</zol_rd>"));
          });
        }
        return false;
      },
      60);
  EXPECT_TRUE(filled) << "no results/current.zol with a competitor's name; last seen:\n"
                      << lastSeen << "\n"
                      << host.Stderr();
  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
  EXPECT_EQ(dataManager.WaitForExit(10), std::optional<int>(4)) << dataManager.Stderr();
}

TEST(ZolhostDataManagerProcess, SecondDataManagerIsTurnedAwayAndExitsThree) {
  LinkedInstallation installation;
  ASSERT_TRUE(installation.Ready);
  ChildProcess host(kHost, installation.HostArguments(), installation.Logs.Path());
  ASSERT_TRUE(host.WaitForStderr("data manager link listens on", 20)) << host.Stderr();
  TempDir firstLogs;
  ChildProcess first(kDataManager, installation.DataManagerArguments(), firstLogs.Path());
  ASSERT_TRUE(first.WaitForStderr("frame in: id 0x0002,", 10)) << first.Stderr() << host.Stderr();
  TempDir secondLogs;
  ChildProcess second(kDataManager, installation.DataManagerArguments(), secondLogs.Path());
  // zolhost tells it why and closes it at once: it ends with the status of a refusal and
  // one line that says so, not as after a normal end.
  const auto status = second.WaitForExit(10);
  ASSERT_TRUE(status.has_value()) << second.Stderr();
  EXPECT_EQ(*status, 3) << second.Stderr();
  EXPECT_EQ(CountOf(second.Stderr(), "zoldatamanager: zolhost refused the link: another data manager is connected"), 1)
      << second.Stderr();
  EXPECT_TRUE(host.WaitForStderr(" refused: data manager 127.0.0.1:", 5)) << host.Stderr();
  EXPECT_TRUE(first.Running());
  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
  EXPECT_EQ(first.WaitForExit(10), std::optional<int>(4)) << first.Stderr();
  // One line says so: zolhost's close reaches it as the end of the stream, a failed write
  // or a reset, depending on what was under way.
  EXPECT_EQ(CountOf(first.Stderr(), "zoldatamanager: zolhost closed the link") +
                CountOf(first.Stderr(), "zoldatamanager: the link to zolhost broke"),
            1)
      << first.Stderr();
}

TEST(ZolhostDataManagerProcess, ZoldatamanagerEndsWithZeroOnSigterm) {
  LinkedInstallation installation;
  ASSERT_TRUE(installation.Ready);
  ChildProcess host(kHost, installation.HostArguments(), installation.Logs.Path());
  ASSERT_TRUE(host.WaitForStderr("data manager link listens on", 20)) << host.Stderr();
  TempDir peerLogs;
  ChildProcess dataManager(kDataManager, installation.DataManagerArguments(), peerLogs.Path());
  ASSERT_TRUE(dataManager.WaitForStderr("frame in: id 0x0002,", 10)) << dataManager.Stderr() << host.Stderr();
  dataManager.Signal(SIGTERM);
  EXPECT_EQ(dataManager.WaitForExit(5), std::optional<int>(0)) << dataManager.Stderr();
  EXPECT_TRUE(host.WaitForStderr("module of class 5 on computer " + LocalComputerText() + " gone", 10)) << host.Stderr();
  host.Signal(SIGINT);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
}

TEST(ZolhostDataManagerProcess, ZoldatamanagerThatCannotConnectExitsOne) {
  TempDir logs;
  const std::uint16_t nobody = platform::FindFreeTcpPort();
  ASSERT_NE(nobody, 0);
  std::string err;
  const auto status =
      RunToEnd(kDataManager, {"--connect", "127.0.0.1:" + std::to_string(nobody), "--race", kRace}, logs.Path(), 10,
               nullptr, &err);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 1);
  // One line says why, and it is the last (a note on the race file's names may come first).
  EXPECT_EQ(CountOf(err, "zoldatamanager: cannot connect to zolhost at 127.0.0.1:"), 1) << err;
  const auto lastLine = err.rfind('\n', err.size() >= 2 ? err.size() - 2 : 0);
  EXPECT_EQ(err.substr(lastLine == std::string::npos ? 0 : lastLine + 1).rfind("zoldatamanager: cannot connect", 0), 0u)
      << err;
}

TEST(ZolhostDataManagerProcess, ZoldatamanagerBadArgumentsAreOneLineAndExitTwo) {
  TempDir logs;
  const std::string broken = logs.Write("race.json", "{ \"track\": ");
  const std::vector<std::vector<std::string>> cases = {
      {},
      {"--race", kRace},
      {"--connect", "127.0.0.1:1"},
      {"--connect", "localhost:80", "--race", kRace},
      {"--connect", "127.0.0.1:0", "--race", kRace},
      {"--connect", "127.0.0.1:1", "--race", kRace, "--race-speed", "0"},
      {"--connect", "127.0.0.1:1", "--race", kRace, "--race-speed", "fast"},
      {"--connect", "127.0.0.1:1", "--race", kRace, "--seed", "-1"},
      {"--connect", "127.0.0.1:1", "--race", kRace, "--seed"},
      {"--connect", "127.0.0.1:1", "--race", kRace, "--bogus"},
      {"--connect", "127.0.0.1:1", "--race", broken},
  };
  for (const auto& arguments : cases) {
    std::string err;
    const auto status = RunToEnd(kDataManager, arguments, logs.Path(), 10, nullptr, &err);
    ASSERT_TRUE(status.has_value());
    std::string joined;
    for (const auto& argument : arguments) joined += argument + " ";
    EXPECT_EQ(*status, 2) << joined << "\n" << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << joined << "\n" << err;
    EXPECT_EQ(err.rfind("zoldatamanager: ", 0), 0u) << err;
  }
}

TEST(ZolhostDataManagerProcess, ZoldatamanagerHelpExplainsEveryOption) {
  TempDir logs;
  std::string out;
  const auto status = RunToEnd(kDataManager, {"--help"}, logs.Path(), 10, &out);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 0);
  for (const char* option : {"--connect", "--race", "--race-speed", "--seed", "--race-loop", "--reconnect", "--verbose",
                             "--help", "  3  zolhost refused", "  4  zolhost was lost"}) {
    EXPECT_NE(out.find(option), std::string::npos) << option;
  }
}

TEST(ZolhostDataManagerProcess, ZolhostHelpExplainsTheLinkAndRaceOptions) {
  TempDir logs;
  std::string out;
  const auto status = RunToEnd(kHost, {"--help"}, logs.Path(), 10, &out);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 0);
  for (const char* option :
       {"--data-manager-port", "--data-manager-listen", "--race-speed", "--seed", "--race-loop", "--race "}) {
    EXPECT_NE(out.find(option), std::string::npos) << option;
  }
}

TEST(ZolhostDataManagerProcess, ZolhostBadLinkAndRaceValuesAreOneLineAndExitTwo) {
  TempDir logs;
  const std::vector<std::vector<std::string>> cases = {
      {"--data-manager-port", "0"},
      {"--data-manager-port", "65536"},
      {"--data-manager-port", "80x"},
      {"--data-manager-port"},
      {"--data-manager-listen", "127.0.0.1"},
      {"--data-manager-listen", "example:5000"},
      {"--data-manager-listen", "127.0.0.1:0"},
      {"--race-speed", "0"},
      {"--race-speed", "-2"},
      {"--race-speed", "inf"},
      {"--seed", "x"},
      {"--seed", "4294967296"},
  };
  for (const auto& arguments : cases) {
    std::string err;
    std::vector<std::string> full = {"--appdir", logs.Path()};
    full.insert(full.end(), arguments.begin(), arguments.end());
    const auto status = RunToEnd(kHost, full, logs.Path(), 10, nullptr, &err);
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(*status, 2) << arguments[0] << "\n" << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << arguments[0] << "\n" << err;
  }
}

TEST(ZolhostDataManagerProcess, ZolhostWithABusyLinkPortIsOneLineAndExitTwo) {
  TempDir logs;
  const int holder = platform::OpenTcpSocket();
  ASSERT_GE(holder, 0);
  ASSERT_TRUE(platform::BindAddress(holder, "127.0.0.1", 0));
  ASSERT_TRUE(platform::Listen(holder, 1));
  const std::uint16_t busy = platform::LocalPort(holder);
  std::string err;
  const auto status =
      RunToEnd(kHost, {"--appdir", logs.Path(), "--data-manager-port", std::to_string(busy)}, logs.Path(), 10, nullptr, &err);
  platform::CloseSocket(holder);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(*status, 2) << err;
  EXPECT_NE(err.find("cannot listen for the data manager on 127.0.0.1:" + std::to_string(busy)), std::string::npos) << err;
  // The module's name comes first; the busy port is the one line after it.
  EXPECT_EQ(err.find("Starting TCP"), std::string::npos) << err;
}

TEST(ZolhostDataManagerProcess, SilentConnectionIsLetGoWithinFiveSecondsAndTheDataManagerThenTakesTheLink) {
  LinkedInstallation installation;
  ASSERT_TRUE(installation.Ready);
  ChildProcess host(kHost, installation.HostArguments(), installation.Logs.Path());
  ASSERT_TRUE(host.WaitForStderr("data manager link listens on", 20)) << host.Stderr();
  // A connection that never sends a byte.
  const auto opened = Clock::now();
  const int silent = platform::TcpConnect("127.0.0.1", installation.LinkPort);
  ASSERT_GE(silent, 0);
  ASSERT_TRUE(host.WaitForStderr("data manager link: peer 127.0.0.1:", 10)) << host.Stderr();
  // Meanwhile the real data manager is refused: status 3, not a normal end.
  TempDir refusedLogs;
  ChildProcess refused(kDataManager, installation.DataManagerArguments(), refusedLogs.Path());
  EXPECT_EQ(refused.WaitForExit(10), std::optional<int>(3)) << refused.Stderr();
  // zolhost lets the silent one go after 5 s: its end of the stream arrives.
  bool ended = false;
  while (!ended && Clock::now() - opened < std::chrono::seconds(15)) {
    if (!platform::WaitReadable(silent, 100000)) continue;
    BYTE chunk[4096];
    ended = platform::ReceiveSome(silent, chunk, sizeof chunk) <= 0;
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - opened).count();
  platform::CloseSocket(silent);
  EXPECT_TRUE(ended) << "the silent connection was kept " << seconds << " s\n" << host.Stderr();
  EXPECT_GE(seconds, 4.5);
  EXPECT_LT(seconds, 8.0);
  EXPECT_TRUE(host.WaitForStderr("sent no valid frame within 5 s; link closed", 5)) << host.Stderr();
  EXPECT_TRUE(host.WaitForStderr("module of class 5 on computer " + LocalComputerText() + " gone", 5)) << host.Stderr();
  // Now the real one takes the link and the module asks it for all data.
  TempDir peerLogs;
  ChildProcess dataManager(kDataManager, installation.DataManagerArguments(), peerLogs.Path());
  EXPECT_TRUE(dataManager.WaitForStderr("frame in: id 0x0002,", 10)) << dataManager.Stderr() << host.Stderr();
  EXPECT_TRUE(host.WaitForStderr("message in: id 0x8020 from class 5", 10)) << host.Stderr();
  EXPECT_EQ(CountOf(host.Stderr(), "sent no valid frame within"), 1) << host.Stderr();
  dataManager.Signal(SIGTERM);
  EXPECT_EQ(dataManager.WaitForExit(5), std::optional<int>(0)) << dataManager.Stderr();
  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
}

TEST(ZolhostDataManagerProcess, HungDataManagerIsLostAfterTenSecondsAndComesBackWithReconnect) {
  LinkedInstallation installation;
  ASSERT_TRUE(installation.Ready);
  ChildProcess host(kHost, installation.HostArguments(), installation.Logs.Path());
  ASSERT_TRUE(host.WaitForStderr("data manager link listens on", 20)) << host.Stderr();
  std::vector<std::string> arguments = installation.DataManagerArguments();
  arguments.push_back("--reconnect");
  TempDir peerLogs;
  ChildProcess dataManager(kDataManager, arguments, peerLogs.Path());
  ASSERT_TRUE(host.WaitForStderr("message in: id 0x8020 from class 5", 20)) << host.Stderr() << dataManager.Stderr();
  // Quiet but alive: keep-alives hold the link through 2.5 s in which the view list is all
  // the module asked for, and none of them reaches the module.
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  EXPECT_EQ(host.Stderr().find("lost: nothing came"), std::string::npos) << host.Stderr();

  const std::string gone = "module of class 5 on computer " + LocalComputerText() + " gone";
  const auto stopped = Clock::now();
  dataManager.Signal(SIGSTOP);
  EXPECT_TRUE(host.WaitForStderr("lost: nothing came for 10 s; link closed", 14)) << host.Stderr();
  const double seconds = std::chrono::duration<double>(Clock::now() - stopped).count();
  EXPECT_GE(seconds, 9.0) << host.Stderr();
  EXPECT_LT(seconds, 12.5) << host.Stderr();
  EXPECT_TRUE(host.WaitForStderr(gone, 5)) << host.Stderr();
  EXPECT_EQ(CountOf(host.Stderr(), "lost: nothing came"), 1) << host.Stderr();
  const auto stoppedFor = std::chrono::seconds(12) - (Clock::now() - stopped);
  if (stoppedFor > std::chrono::seconds(0)) std::this_thread::sleep_for(stoppedFor);
  dataManager.Signal(SIGCONT);
  // It finds the link gone, says so once and connects again: the module asks it for all
  // data and the view list afresh.
  const auto deadline = Clock::now() + std::chrono::seconds(15);
  while (CountOf(host.Stderr(), "message in: id 0x8020 from class 5") < 2 && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_EQ(CountOf(host.Stderr(), "message in: id 0x8020 from class 5"), 2) << host.Stderr() << dataManager.Stderr();
  EXPECT_EQ(CountOf(dataManager.Stderr(), "trying again every second"), 1) << dataManager.Stderr();
  EXPECT_EQ(CountOf(dataManager.Stderr(), "zoldatamanager: connected to 127.0.0.1:"), 2) << dataManager.Stderr();
  EXPECT_EQ(host.Stderr().find("message in: id 0xFFFF"), std::string::npos) << host.Stderr();

  // zolhost goes: with --reconnect it keeps trying, and SIGTERM still ends it at once.
  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitForExit(10), std::optional<int>(0));
  const auto hostGone = Clock::now() + std::chrono::seconds(5);
  while (CountOf(dataManager.Stderr(), "trying again every second") < 2 && Clock::now() < hostGone) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  {
    // After the second connect, the line saying that zolhost closed the link, noticed on
    // reading or, when a frame was on its way out, on writing ("(a write failed)").
    const std::string err = dataManager.Stderr();
    const auto second = err.find("connected to 127.0.0.1:", err.find("connected to 127.0.0.1:") + 1);
    ASSERT_NE(second, std::string::npos) << err;
    const auto closed = err.find("zoldatamanager: zolhost closed the link", second);
    ASSERT_NE(closed, std::string::npos) << err;
    const std::string line = err.substr(closed, err.find('\n', closed) - closed);
    EXPECT_TRUE(line == "zoldatamanager: zolhost closed the link; trying again every second" ||
                line == "zoldatamanager: zolhost closed the link (a write failed); trying again every second")
        << line;
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  EXPECT_TRUE(dataManager.Running());
  EXPECT_EQ(CountOf(dataManager.Stderr(), "cannot connect to zolhost at"), 1) << dataManager.Stderr();
  const auto signalled = Clock::now();
  dataManager.Signal(SIGTERM);
  EXPECT_EQ(dataManager.WaitForExit(5), std::optional<int>(0)) << dataManager.Stderr();
  EXPECT_LT(std::chrono::duration<double>(Clock::now() - signalled).count(), 2.0);
}

TEST(ZolhostDataManagerProcess, ZoldatamanagerThatLosesZolhostExitsFour) {
  // A zolhost that goes without closing the link: a listener that accepts, reads and
  // never answers. zoldatamanager gives up on it after 10 s of silence.
  const int listener = platform::OpenTcpSocket();
  ASSERT_GE(listener, 0);
  ASSERT_TRUE(platform::BindAddress(listener, "127.0.0.1", 0));
  ASSERT_TRUE(platform::Listen(listener, 1));
  const std::uint16_t port = platform::LocalPort(listener);
  TempDir logs;
  ChildProcess dataManager(kDataManager, {"--connect", "127.0.0.1:" + std::to_string(port), "--race", kRace},
                           logs.Path());
  ASSERT_TRUE(platform::WaitReadable(listener, 10000000));
  std::uint32_t address = 0;
  const int link = platform::AcceptConnection(listener, address);
  ASSERT_GE(link, 0);
  const auto accepted = Clock::now();
  // What it sends meanwhile is read (its first frame a keep-alive), so it is never stuck
  // on a write.
  std::vector<BYTE> received;
  std::optional<int> status;
  while (!status && Clock::now() - accepted < std::chrono::seconds(15)) {
    if (platform::WaitReadable(link, 100000)) {
      BYTE chunk[4096];
      const long got = platform::ReceiveSome(link, chunk, sizeof chunk);
      if (got > 0) received.insert(received.end(), chunk, chunk + got);
    }
    if (!dataManager.Running()) status = dataManager.WaitForExit(1);
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - accepted).count();
  platform::CloseSocket(link);
  platform::CloseSocket(listener);
  ASSERT_TRUE(status.has_value()) << dataManager.Stderr();
  EXPECT_EQ(*status, 4) << dataManager.Stderr();
  EXPECT_GE(seconds, 9.5);
  EXPECT_LT(seconds, 12.5);
  EXPECT_EQ(CountOf(dataManager.Stderr(), "zoldatamanager: zolhost lost: nothing came for 10 s\n"), 1)
      << dataManager.Stderr();
  // Keep-alives every 2 s, the first at once: six bytes each, ID 0xFFFF.
  ASSERT_GE(received.size(), 6u * 5);
  EXPECT_EQ(std::vector<BYTE>(received.begin(), received.begin() + 6),
            (std::vector<BYTE>{0x02, 0x00, 0x00, 0x00, 0xFF, 0xFF}));
  EXPECT_LE(received.size(), 6u * 7);
}
