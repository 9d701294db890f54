// zolhost and zoldatamanager as separate processes, for tests: a copy of the examples
// whose page port and data manager link port are free ones, the arguments that start
// both programs on it, and a TCP client of the page port that reassembles the pages.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "frame/platform/Sockets.h"
#include "testing/ExampleInstallation.h"
#include "testing/PageReassembler.h"
#include "testing/TempDir.h"

inline const std::string kHostProgram = std::string(ZOL_BINARY_DIR) + "/zolhost";
inline const std::string kDataManagerProgram = std::string(ZOL_BINARY_DIR) + "/zoldatamanager";

// zolhost on a copy of the examples with its link on a free port.
struct LinkedInstallation {
  explicit LinkedInstallation(std::string raceFile = kExampleRace) : RaceFile(std::move(raceFile)) {
    PagePort = platform::FindFreeTcpPort();
    LinkPort = platform::FindFreeTcpPort();
    Ready = PagePort != 0 && LinkPort != 0 && LinkPort != PagePort && CopyExamples(AppDir, PagePort);
  }
  std::vector<std::string> HostArguments() const {
    return {"--appdir", AppDir.Path(), "--no-web", "--data-manager-port", std::to_string(LinkPort), "--verbose"};
  }
  std::vector<std::string> DataManagerArguments(const std::string& speed = "20") const {
    return {"--connect", "127.0.0.1:" + std::to_string(LinkPort), "--race", RaceFile, "--race-speed", speed,
            "--seed", "1", "--verbose"};
  }
  std::string RaceFile;
  TempDir AppDir;
  TempDir Logs;
  std::uint16_t PagePort = 0;
  std::uint16_t LinkPort = 0;
  bool Ready = false;
};

// A TCP client of the module's port that reassembles every page version it receives,
// repeats included; every wait bounded.
class PageWatcher {
 public:
  explicit PageWatcher(std::uint16_t port) : Port(port) {}
  ~PageWatcher() { platform::CloseSocket(Socket); }
  PageWatcher(const PageWatcher&) = delete;
  PageWatcher& operator=(const PageWatcher&) = delete;

  // Reads until `done` holds for the pages so far or `seconds` pass; connects on the way.
  template <class Done>
  bool ReadUntil(Done done, double seconds) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
    while (Clock::now() < deadline) {
      if (done(Reassembler.Completed)) return true;
      if (Socket < 0) {
        Socket = platform::TcpConnect("127.0.0.1", Port);
        if (Socket < 0) {
          std::this_thread::sleep_for(std::chrono::milliseconds(50));
          continue;
        }
      }
      if (!platform::WaitReadable(Socket, 50000)) continue;
      BYTE chunk[16384];
      const long got = platform::ReceiveSome(Socket, chunk, sizeof chunk);
      if (got <= 0) {
        platform::CloseSocket(Socket);
        Socket = -1;
        continue;
      }
      Reassembler.FeedStream(chunk, static_cast<std::size_t>(got));
    }
    return done(Reassembler.Completed);
  }
  // Reads for `seconds`, whatever comes.
  void ReadFor(double seconds) {
    ReadUntil([](const std::vector<ReceivedPage>&) { return false; }, seconds);
  }
  std::size_t Count() const { return Reassembler.Completed.size(); }
  const std::vector<ReceivedPage>& Pages() const { return Reassembler.Completed; }

 private:
  std::uint16_t Port;
  int Socket = -1;
  CTestReassembler Reassembler{128};
};
