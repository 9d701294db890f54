// zolhost playing the example meeting at 12 times real speed with a thousand and ten
// thousand loopback clients on its TCP port, read in a process of their own on the
// system's poll. It measures:
//  - the time until every client is connected and has had its first byte;
//  - zolhost's processor time per megabyte delivered over a 20-second window (the
//    benchmark's time: milliseconds of processor time per megabyte);
//  - the resident memory that each client adds to zolhost;
//  - a late zolclient's time to the whole site with the clients connected, against the
//    same client before any other connected. The carousel repeats each page every 20,
//    30 or 60 seconds, so the time depends on when in that minute the client comes; the
//    second client starts a whole number of minutes after the first, in the same phase;
//  - that every client completed the newest version of every page, as far as it had
//    time to come round (versions completed by some client at least 65 s before the end).
// The baseline is a plain writer on the same poll that sends the bytes the first client
// received in the window, read by read and at the same moments, to as many sockets; its
// processor time per megabyte is measured the same way.
#include <benchmark/benchmark.h>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <new>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/FanoutReaders.h"
#include "frame/platform/OpenFileLimit.h"
#include "frame/platform/ReadinessPoll.h"
#include "frame/platform/Sockets.h"
#include "testing/ChildProcess.h"
#include "testing/ExampleInstallation.h"
#include "testing/TempDir.h"

namespace {

using Clock = std::chrono::steady_clock;

const std::string kHost = std::string(ZOL_BINARY_DIR) + "/zolhost";
const std::string kClient = std::string(ZOL_BINARY_DIR) + "/zolclient";
constexpr auto kWindow = std::chrono::seconds(20);
// The longest repeat of the example site's pages.
constexpr auto kCarouselMinute = std::chrono::seconds(60);
constexpr double kSettleSeconds = 65;

// Processor time (user and system, all threads) of a process in seconds.
double ProcessorSeconds(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  std::getline(file, line);
  const auto close = line.rfind(')');
  if (close == std::string::npos) return 0;
  std::istringstream fields(line.substr(close + 2));
  std::string field;
  double ticks = 0;
  // The state is field 3; user time is field 14 and system time field 15.
  for (int index = 3; index <= 15 && fields >> field; ++index) {
    if (index >= 14) ticks += std::stod(field);
  }
  return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double Seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

// A late zolclient until it has the whole site; its time, or a negative number when it
// failed.
double LateClientSeconds(std::uint16_t port, const std::string& logFolder) {
  const auto start = Clock::now();
  const auto status = RunToEnd(kClient,
                               {"tcp://127.0.0.1:" + std::to_string(port), "--until-complete", "site", "--timeout", "150"},
                               logFolder, 160);
  if (!status || *status != 0) return -1;
  return Seconds(Clock::now() - start);
}

// What the first client received in the window of a run with this many clients.
std::map<std::size_t, std::vector<RecordedRead>>& Recordings() {
  static std::map<std::size_t, std::vector<RecordedRead>> recordings;
  return recordings;
}

void BM_TCPFanoutLive(benchmark::State& state) {
  const auto clients = static_cast<std::size_t>(state.range(0));
  if (!EnoughFiles(state, clients)) return;
  for (auto _ : state) {
    TempDir appdir;
    const std::uint16_t port = platform::FindFreeTcpPort();
    std::string settings;
    if (!CopyExamples(appdir, port) || (settings = ReadWholeFile(appdir.File("Config/ZOLServer.ini"))).empty() ||
        settings.find("maxclients=256") == std::string::npos) {
      state.SkipWithError("the example settings could not be changed");
      return;
    }
    settings.replace(settings.find("maxclients=256"), 14, "maxclients=" + std::to_string(clients + 16));
    appdir.Write("Config/ZOLServer.ini", settings);
    ChildProcess host(kHost,
                      {"--appdir", appdir.Path(), "--no-web", "--race", kExampleRace, "--race-speed", "12", "--race-loop"},
                      appdir.Path());
    const auto hostStart = Clock::now();
    int probe = -1;
    while (probe < 0 && Clock::now() - hostStart < std::chrono::seconds(30)) {
      probe = platform::TcpConnectWithin("127.0.0.1", port, 1000);
      if (probe < 0) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (probe < 0) {
      state.SkipWithError("zolhost did not listen within 30 s");
      return;
    }
    platform::CloseSocket(probe);
    std::this_thread::sleep_for(std::chrono::seconds(3));

    const auto aloneStart = Clock::now();
    const double hostBefore = ProcessorSeconds(host.ProcessId());
    const double lateAlone = LateClientSeconds(port, appdir.Path());
    const double hostAlonePercent =
        100 * (ProcessorSeconds(host.ProcessId()) - hostBefore) / Seconds(Clock::now() - aloneStart);
    const long long residentBefore = ResidentBytes(host.ProcessId());

    const auto connectStart = Clock::now();
    ReaderProcess readers(port, clients, {.FollowPages = true, .RecordFirstReader = true});
    if (!readers.Started() || !readers.WaitConnected() || !readers.WaitFor(0, clients)) {
      state.SkipWithError("not every client connected and had a byte within 60 s");
      return;
    }
    const double connected = Seconds(Clock::now() - connectStart);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const long long residentWith = ResidentBytes(host.ProcessId());

    const double cpuStart = ProcessorSeconds(host.ProcessId());
    const long long bytesStart = readers.Received();
    const auto windowStart = Clock::now();
    readers.StartRecording();
    std::this_thread::sleep_for(kWindow);
    Recordings()[clients] = readers.StopRecording();
    const double cpu = ProcessorSeconds(host.ProcessId()) - cpuStart;
    const double megabytes = static_cast<double>(readers.Received() - bytesStart) / 1e6;
    const double windowSeconds = Seconds(Clock::now() - windowStart);

    auto lateStart = aloneStart;
    while (lateStart < Clock::now()) lateStart += kCarouselMinute;
    std::this_thread::sleep_until(lateStart);
    const double late = LateClientSeconds(port, appdir.Path());
    const auto outcome = readers.Finish(-1, kSettleSeconds);

    state.SetIterationTime(megabytes > 0 ? cpu / megabytes : 0);
    state.counters["connected_first_byte_s"] = connected;
    state.counters["host_cpu_pct"] = 100 * cpu / windowSeconds;
    state.counters["host_cpu_one_client_pct"] = hostAlonePercent;
    state.counters["MB_per_s"] = megabytes / windowSeconds;
    state.counters["resident_per_client_B"] =
        static_cast<double>(residentWith - residentBefore) / static_cast<double>(clients);
    state.counters["late_client_alone_s"] = lateAlone;
    state.counters["late_client_s"] = late;
    state.counters["versions"] = static_cast<double>(outcome.Versions);
    state.counters["clients_behind"] = static_cast<double>(outcome.Behind);
    if (lateAlone < 0 || late < 0) {
      state.SkipWithError("a late zolclient did not get the whole site within 150 s");
    } else if (outcome.Behind != 0 || outcome.BadPackets != 0 || outcome.Pages == 0) {
      state.SkipWithError((std::to_string(outcome.Behind) + " clients lack a page's newest version, " +
                           std::to_string(outcome.BadPackets) + " bad packets, " + std::to_string(outcome.Pages) +
                           " pages seen")
                              .c_str());
    }
  }
}
BENCHMARK(BM_TCPFanoutLive)->Arg(1000)->Arg(10000)->Iterations(1)->Unit(benchmark::kMillisecond)->UseManualTime();

// What the plain writer shares with the benchmark.
struct WriterShared {
  std::atomic<bool> Ready{false};
  std::atomic<bool> Go{false};
  std::atomic<bool> Done{false};
  std::atomic<bool> Failed{false};
  std::atomic<bool> Stop{false};
};

// The plain writer, in a process of its own as zolhost is: takes `clients` connections,
// then on Go sends every recorded read to every socket at the moment it was read,
// keeping for each socket what it did not take until the poll says it takes more.
int PlainWriter(int listener, std::size_t clients, const std::vector<RecordedRead>& reads, WriterShared& shared) {
  platform::RaiseOpenFileLimit();
  std::vector<int> sockets;
  const auto deadline = Clock::now() + std::chrono::seconds(60);
  while (sockets.size() < clients && Clock::now() < deadline) {
    if (!platform::WaitReadable(listener, 100000)) continue;
    std::uint32_t address = 0;
    std::uint16_t peerPort = 0;
    const int socket = platform::AcceptConnectionFrom(listener, address, peerPort);
    if (socket >= 0) sockets.push_back(socket);
  }
  if (sockets.size() < clients) {
    shared.Failed.store(true);
    return 1;
  }
  platform::CReadinessPoll poll;
  for (std::size_t i = 0; i < sockets.size(); ++i) poll.AddWriter(sockets[i], i);
  std::vector<std::vector<char>> pending(sockets.size());
  std::vector<platform::CReadinessPoll::Event> events;
  const auto flush = [&](std::size_t index) {
    auto& rest = pending[index];
    if (rest.empty()) return;
    const long sent = platform::SendWithoutWaiting(sockets[index], rest.data(), rest.size());
    if (sent > 0) rest.erase(rest.begin(), rest.begin() + sent);
  };
  const auto waitFor = [&](int milliseconds) {
    poll.Wait(milliseconds, events);
    for (const auto& event : events) {
      if (event.Token != platform::CReadinessPoll::kWakeToken) flush(static_cast<std::size_t>(event.Token));
    }
  };
  shared.Ready.store(true);
  while (!shared.Go.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  const auto start = Clock::now();
  for (const RecordedRead& read : reads) {
    const auto due = start + std::chrono::nanoseconds(read.AtNanoseconds);
    for (auto now = Clock::now(); now < due; now = Clock::now()) {
      waitFor(static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(due - now).count()) + 1);
    }
    for (std::size_t i = 0; i < sockets.size(); ++i) {
      auto& rest = pending[i];
      if (!rest.empty()) {
        rest.insert(rest.end(), read.Bytes.begin(), read.Bytes.end());
        continue;
      }
      const long sent = platform::SendWithoutWaiting(sockets[i], read.Bytes.data(), read.Bytes.size());
      const auto taken = static_cast<std::size_t>(sent > 0 ? sent : 0);
      if (taken < read.Bytes.size()) rest.assign(read.Bytes.begin() + static_cast<long>(taken), read.Bytes.end());
    }
  }
  const auto drainBy = Clock::now() + std::chrono::seconds(60);
  while (Clock::now() < drainBy &&
         std::any_of(pending.begin(), pending.end(), [](const auto& rest) { return !rest.empty(); })) {
    waitFor(20);
  }
  shared.Done.store(true);
  while (!shared.Stop.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  for (int socket : sockets) platform::CloseSocket(socket);
  return 0;
}

void BM_TCPFanoutLive_Baseline(benchmark::State& state) {
  const auto clients = static_cast<std::size_t>(state.range(0));
  if (!EnoughFiles(state, clients)) return;
  const auto recorded = Recordings().find(clients);
  if (recorded == Recordings().end() || recorded->second.empty()) {
    state.SkipWithError("needs the recording of BM_TCPFanoutLive with as many clients (run both)");
    return;
  }
  const std::vector<RecordedRead>& reads = recorded->second;
  long long perClient = 0;
  for (const RecordedRead& read : reads) perClient += static_cast<long long>(read.Bytes.size());
  for (auto _ : state) {
    void* memory = mmap(nullptr, sizeof(WriterShared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
      state.SkipWithError("no shared memory");
      return;
    }
    auto* shared = new (memory) WriterShared;
    const int listener = platform::OpenTcpListener("127.0.0.1", 0, platform::LargestListenBacklog());
    const std::uint16_t port = platform::LocalPort(listener);
    const pid_t writer = fork();
    if (writer == 0) _exit(PlainWriter(listener, clients, reads, *shared));
    platform::CloseSocket(listener);
    {
      ReaderProcess readers(port, clients);
      const auto deadline = Clock::now() + std::chrono::seconds(60);
      while (!shared->Ready.load() && !shared->Failed.load() && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      if (!readers.Started() || !shared->Ready.load()) {
        state.SkipWithError("the plain writer did not take every client within 60 s");
      } else {
        const double cpuStart = ProcessorSeconds(writer);
        const auto start = Clock::now();
        shared->Go.store(true);
        const bool all = readers.WaitFor(perClient * static_cast<long long>(clients), clients, 120);
        while (!shared->Done.load() && Clock::now() - start < std::chrono::seconds(120)) {
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        const double cpu = ProcessorSeconds(writer) - cpuStart;
        const double megabytes = static_cast<double>(readers.Received()) / 1e6;
        state.SetIterationTime(megabytes > 0 ? cpu / megabytes : 0);
        state.counters["writer_cpu_pct"] = 100 * cpu / Seconds(Clock::now() - start);
        state.counters["MB_per_s"] = megabytes / Seconds(Clock::now() - start);
        if (!all) state.SkipWithError("not every client had every recorded byte within 120 s");
      }
      shared->Stop.store(true);
      readers.Finish(-1);
    }
    waitpid(writer, nullptr, 0);
    munmap(memory, sizeof(WriterShared));
  }
}
BENCHMARK(BM_TCPFanoutLive_Baseline)
    ->Arg(1000)
    ->Arg(10000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

}  // namespace
