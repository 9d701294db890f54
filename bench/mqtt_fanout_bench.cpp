// Pages through a broker against the TCP port, on loopback:
//  - BM_MqttFanout/1000: a thousand MQTT subscribers of one local Mosquitto broker, in a
//    process of their own driven by one thread on the system's poll. Each iteration
//    completes a new version of a results page (the bytes of a hundred packets) at the
//    publisher (zolclient's CMqttPublisher) and waits until every subscriber has it.
//    Counters: the median and the worst time from the page being complete to a
//    subscriber having it, over all subscribers and iterations, and the time a new reader
//    (CMqttPageSource into a session) needs to hold a whole site of 18 pages.
//  - BM_MqttFanout_Baseline/1000: the same page handed to the module's TCP port with a
//    thousand clients; each iteration until every client has all of its bytes.
//  - BM_MqttLateReader and its baseline: zolclient reading the example site, complete,
//    from a broker that a publishing zolclient fills, against a late TCP client of zolhost.
#include <benchmark/benchmark.h>

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <atomic>
#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/BenchPackage.h"
#include "bench/BenchPages.h"
#include "bench/FanoutReaders.h"
#include "client/ClientSession.h"
#include "client/MqttPublisher.h"
#include "client/MqttSource.h"
#include "client/SiteTracker.h"
#include "distribution/OutputPage.h"
#include "distribution/TCPIPServer.h"
#include "distribution/ZOLServer.h"
#include "frame/IniFile.h"
#include "frame/platform/ReadinessPoll.h"
#include "frame/platform/Sockets.h"
#include "testing/ChildProcess.h"
#include "testing/ExampleInstallation.h"
#include "testing/TempDir.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostSubscribers = 1000;
const std::string kMosquitto = "/usr/sbin/mosquitto";
const std::string kPageTopic = "bench/1/results/current.zol";

std::int64_t NowNanoseconds() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

// What the subscribers' process and the benchmark share: per subscriber the newest
// version it had and when (the steady clock is the same in both processes).
struct SubscriberBoard {
  std::atomic<int> Subscribed{0};
  std::atomic<bool> Stop{false};
  std::atomic<int> Version[kMostSubscribers];
  std::atomic<std::int64_t> At[kMostSubscribers];
};

struct SubscriberSlot {
  SubscriberBoard* Board = nullptr;
  std::size_t Index = 0;
};

// A broker of the benchmark's own on a free loopback port; stopped by its process id.
struct BenchBroker {
  BenchBroker() : Port(platform::FindFreeTcpPort()) {
    const std::string configuration = Folder.Write(
        "mosquitto.conf", "listener " + std::to_string(Port) +
                              " 127.0.0.1\nallow_anonymous true\npersistence false\nmax_queued_messages 100000\n"
                              "log_dest none\n");
    Process = std::make_unique<ChildProcess>(kMosquitto, std::vector<std::string>{"-c", configuration},
                                             Folder.Path());
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (Clock::now() < deadline && Process->Running()) {
      const int socket = platform::TcpConnect("127.0.0.1", Port);
      if (socket >= 0) {
        platform::CloseSocket(socket);
        Ready = true;
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  ~BenchBroker() {
    Process->Signal(SIGTERM);
    if (!Process->WaitForExit(5).has_value()) Process->Signal(SIGKILL);
  }
  TempDir Folder;
  std::uint16_t Port;
  std::unique_ptr<ChildProcess> Process;
  bool Ready = false;
};

// The subscribers' process: `count` clients, each subscribed to the results page, on one poll.
[[noreturn]] void RunSubscribers(SubscriberBoard* board, std::uint16_t port, std::size_t count) {
  mosquitto_lib_init();
  std::vector<SubscriberSlot> slots(count);
  std::vector<struct mosquitto*> clients;
  platform::CReadinessPoll poll;
  for (std::size_t i = 0; i < count; ++i) {
    slots[i] = {board, i};
    struct mosquitto* client = mosquitto_new(nullptr, true, &slots[i]);
    mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_connect_v5_callback_set(client, [](struct mosquitto* self, void*, int rc, int, const mosquitto_property*) {
      if (rc == 0) mosquitto_subscribe_v5(self, nullptr, kPageTopic.c_str(), 1, 0, nullptr);
    });
    mosquitto_subscribe_v5_callback_set(
        client, [](struct mosquitto*, void* slot, int, int, const int*, const mosquitto_property*) {
          static_cast<SubscriberSlot*>(slot)->Board->Subscribed.fetch_add(1);
        });
    mosquitto_message_v5_callback_set(
        client, [](struct mosquitto*, void* slot, const struct mosquitto_message*, const mosquitto_property* properties) {
          const std::int64_t now = NowNanoseconds();
          char* name = nullptr;
          char* value = nullptr;
          if (mosquitto_property_read_string_pair(properties, MQTT_PROP_USER_PROPERTY, &name, &value, false) ==
              nullptr) {
            return;
          }
          const std::string text = value;
          std::free(name);
          std::free(value);
          const std::size_t dot = text.find('.');
          if (dot == std::string::npos) return;
          const unsigned high = static_cast<unsigned>(std::stoul(text.substr(0, dot)));
          const unsigned low = static_cast<unsigned>(std::stoul(text.substr(dot + 1)));
          auto* s = static_cast<SubscriberSlot*>(slot);
          s->Board->At[s->Index].store(now);
          s->Board->Version[s->Index].store(static_cast<int>(high * 256 + low));
        });
    if (mosquitto_connect(client, "127.0.0.1", port, 60) != MOSQ_ERR_SUCCESS) _exit(2);
    poll.AddReader(mosquitto_socket(client), i);
    clients.push_back(client);
  }
  std::vector<platform::CReadinessPoll::Event> events;
  auto lastMisc = Clock::now();
  while (!board->Stop.load()) {
    poll.Wait(5, events);
    for (const auto& event : events) {
      if (event.Token < clients.size()) mosquitto_loop_read(clients[event.Token], 1);
    }
    for (struct mosquitto* client : clients) {
      if (mosquitto_want_write(client)) mosquitto_loop_write(client, 1);
    }
    if (Clock::now() - lastMisc > std::chrono::milliseconds(500)) {
      for (struct mosquitto* client : clients) mosquitto_loop_misc(client);
      lastMisc = Clock::now();
    }
  }
  _exit(0);
}

zolclient::ReceivedPage ResultsPage(int version, std::vector<BYTE> data) {
  zolclient::ReceivedPage page;
  page.SiteNumber = 1;
  page.PageNumber = 2;
  page.SequenceHigh = static_cast<BYTE>(version >> 8);
  page.SequenceLow = static_cast<BYTE>(version & 0xFF);
  page.Record.Path = "results/";
  page.Record.Name = "current.zol";
  page.Record.Data = std::move(data);
  return page;
}

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void BM_MqttFanout(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  if (!EnoughFiles(state, 2 * count)) return;
  BenchBroker broker;
  if (!broker.Ready) {
    state.SkipWithError("mosquitto did not start");
    return;
  }
  auto* board = static_cast<SubscriberBoard*>(
      mmap(nullptr, sizeof(SubscriberBoard), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  if (board == MAP_FAILED) {
    state.SkipWithError("no shared memory");
    return;
  }
  new (board) SubscriberBoard();
  for (std::size_t i = 0; i < count; ++i) board->Version[i].store(-1);
  // Forked before the publisher starts its thread.
  const pid_t subscribers = fork();
  if (subscribers == 0) RunSubscribers(board, broker.Port, count);
  const auto stopSubscribers = [&] {
    board->Stop.store(true);
    int status = 0;
    waitpid(subscribers, &status, 0);
    munmap(board, sizeof(SubscriberBoard));
  };
  const auto start = Clock::now();
  while (board->Subscribed.load() < static_cast<int>(count) && Clock::now() - start < std::chrono::seconds(60)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (board->Subscribed.load() < static_cast<int>(count)) {
    stopSubscribers();
    state.SkipWithError("not every subscriber subscribed within 60 s");
    return;
  }
  state.counters["subscribed_s"] = std::chrono::duration<double>(Clock::now() - start).count();

  PackageInstalled quiet;
  auto hundred = HundredPacketPage();
  std::vector<BYTE> bytes;
  for (const BYTE* block : hundred->GetPackets()) bytes.insert(bytes.end(), block, block + PacketSize);

  zolclient::CSiteTracker sites;
  zolclient::MqttSettings settings;
  settings.Address.Host = "127.0.0.1";
  settings.Address.Port = broker.Port;
  settings.Address.Prefix = "bench";
  zolclient::CMqttPublisher publisher(settings, sites, std::uint64_t{1} << 30);
  std::string error;
  if (!publisher.Start(error)) {
    stopSubscribers();
    state.SkipWithError(error.c_str());
    return;
  }
  std::vector<double> latencies;
  std::vector<double> worsts;
  int version = 0;
  bool late = false;
  for (auto _ : state) {
    ++version;
    const std::int64_t completed = NowNanoseconds();
    publisher.OnPage(ResultsPage(version, bytes));
    const auto deadline = Clock::now() + std::chrono::seconds(30);
    std::size_t have = 0;
    while (Clock::now() < deadline) {
      have = 0;
      for (std::size_t i = 0; i < count; ++i) have += board->Version[i].load() >= version ? 1 : 0;
      if (have == count) break;
      std::this_thread::yield();
    }
    if (have < count) {
      late = true;
      break;
    }
    double worst = 0;
    for (std::size_t i = 0; i < count; ++i) {
      const double ms = static_cast<double>(board->At[i].load() - completed) / 1e6;
      latencies.push_back(ms);
      worst = std::max(worst, ms);
    }
    worsts.push_back(worst);
  }
  stopSubscribers();
  if (late) {
    state.SkipWithError("not every subscriber had the version within 30 s");
    return;
  }
  state.counters["median_ms"] = Median(latencies);
  state.counters["worst_ms"] = worsts.empty() ? 0 : *std::max_element(worsts.begin(), worsts.end());
  state.counters["median_worst_ms"] = Median(worsts);
  state.SetBytesProcessed(static_cast<long long>(bytes.size() * count) * state.iterations());

  // A new reader: a site of 18 pages (17 and the results page) and its clock are on the broker.
  zolclient::SiteInformation information;
  information.BuildTime = 1;
  information.Clock = {{"flag", "green"}};
  information.HasSiteParameters = true;
  information.SiteParameters = {{"name", "bench"}, {"pagecount", "18"}};
  sites.OnDecodedInformation(1, information);
  for (DWORD number = 3; number <= 19; ++number) {
    zolclient::ReceivedPage page = ResultsPage(1, bytes);
    page.PageNumber = number;
    page.Record.Name = "page" + std::to_string(number) + ".zol";
    publisher.OnPage(page);
  }
  publisher.OnSiteClock(1, sites.Sites().at(1).Clock);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  std::ostringstream lines;
  std::ostringstream errors;
  zolclient::CClientSession session(128, "", lines, errors);
  settings.Address.Site = 1;
  const auto readerStart = Clock::now();
  zolclient::CMqttPageSource reader(settings, std::uint64_t{1} << 30);
  if (!reader.Start(error)) {
    state.SkipWithError(error.c_str());
    return;
  }
  while (!session.AllSitesComplete() && Clock::now() - readerStart < std::chrono::seconds(30)) {
    reader.Deliver(session, errors, 5);
  }
  if (!session.AllSitesComplete()) {
    state.SkipWithError("a new reader did not hold the site within 30 s");
    return;
  }
  state.counters["new_reader_whole_site_ms"] = std::chrono::duration<double>(Clock::now() - readerStart).count() * 1e3;
}
BENCHMARK(BM_MqttFanout)->Arg(1000)->Iterations(20)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same bytes from the module's TCP port to as many clients: until every one has them.
void BM_MqttFanout_Baseline(benchmark::State& state) {
  const auto clients = static_cast<std::size_t>(state.range(0));
  if (!EnoughFiles(state, clients)) return;
  PackageInstalled quiet;
  CIniFile ini("/nonexistent/none.ini");
  ini.Write("port0", "maxclients", static_cast<DWORD>(clients));
  CZOLTCPIPServer server(1);
  server.LoadSettings(ini, "port0");
  const std::uint16_t port = platform::FindFreeTcpPort();
  ReaderProcess readers(port, clients);
  if (!readers.Started()) {
    state.SkipWithError("the reading process did not start");
    return;
  }
  auto page = HundredPacketPage();
  const long long perPage = static_cast<long long>(page->GetPackets().size()) * PacketSize;
  server.SetPort(port);
  server.Start();
  const auto start = Clock::now();
  if (!readers.WaitConnected()) {
    state.SkipWithError("a client could not connect");
    return;
  }
  while (server.GetClientCount() < clients && Clock::now() - start < std::chrono::seconds(60)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  server.UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
  long long expected = perPage * static_cast<long long>(clients);
  if (!readers.WaitFor(expected, clients)) {
    state.SkipWithError("not every client got the first page within 60 s");
    return;
  }
  std::vector<double> worsts;
  for (auto _ : state) {
    const auto completed = Clock::now();
    server.UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
    expected += perPage * static_cast<long long>(clients);
    if (!readers.WaitFor(expected, clients)) {
      state.SkipWithError("clients did not get the page in time");
      break;
    }
    worsts.push_back(std::chrono::duration<double>(Clock::now() - completed).count() * 1e3);
  }
  state.counters["worst_ms"] = worsts.empty() ? 0 : *std::max_element(worsts.begin(), worsts.end());
  state.counters["median_worst_ms"] = Median(worsts);
  state.SetBytesProcessed(perPage * static_cast<long long>(clients) * state.iterations());
  readers.Finish(-1);
  server.Stop();
}
BENCHMARK(BM_MqttFanout_Baseline)->Arg(1000)->Iterations(20)->Unit(benchmark::kMillisecond)->UseRealTime();

const std::string kHostProgram = std::string(ZOL_BINARY_DIR) + "/zolhost";
const std::string kClientProgram = std::string(ZOL_BINARY_DIR) + "/zolclient";

// zolhost with the example site (no race) and, when `broker` is given, a zolclient that
// publishes it there and has had the whole site.
struct ExampleOnAir {
  explicit ExampleOnAir(const BenchBroker* broker) : Port(platform::FindFreeTcpPort()) {
    if (!CopyExamples(AppDir, Port)) return;
    Host = std::make_unique<ChildProcess>(kHostProgram, std::vector<std::string>{"--appdir", AppDir.Path(), "--no-web"},
                                          Logs.Path());
    if (!Host->WaitForStderr("Starting TCP/IP server (Port " + std::to_string(Port) + ").", 30)) return;
    if (broker != nullptr) {
      Publisher = std::make_unique<ChildProcess>(
          kClientProgram,
          std::vector<std::string>{"tcp://127.0.0.1:" + std::to_string(Port), "--mqtt",
                                   "mqtt://127.0.0.1:" + std::to_string(broker->Port) + "/zol"},
          Logs.Path());
      // The site is complete at the publisher once page 18 (the last of the example) came.
      if (!Publisher->WaitForStdout("site 1 page 18 ", 60)) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
    } else {
      // A client that is late: the first turn of the carousel went by.
      std::this_thread::sleep_for(std::chrono::seconds(3));
    }
    Ready = true;
  }
  std::uint16_t Port;
  TempDir AppDir;
  TempDir Logs;
  std::unique_ptr<ChildProcess> Host;
  std::unique_ptr<ChildProcess> Publisher;
  bool Ready = false;
};

void ReadWholeSite(benchmark::State& state, const std::string& source, const std::string& logs) {
  for (auto _ : state) {
    const auto status = RunToEnd(kClientProgram, {source, "--until-complete", "site", "--timeout", "120"}, logs, 130);
    if (!status.has_value() || *status != 0) {
      state.SkipWithError("zolclient did not have the whole site");
      break;
    }
  }
}

void BM_MqttLateReader(benchmark::State& state) {
  BenchBroker broker;
  ExampleOnAir example(&broker);
  if (!broker.Ready || !example.Ready) {
    state.SkipWithError("zolhost, the broker or the publisher did not start");
    return;
  }
  ReadWholeSite(state, "mqtt://127.0.0.1:" + std::to_string(broker.Port) + "/zol/1", example.Logs.Path());
}
BENCHMARK(BM_MqttLateReader)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MqttLateReader_Baseline(benchmark::State& state) {
  ExampleOnAir example(nullptr);
  if (!example.Ready) {
    state.SkipWithError("zolhost did not start");
    return;
  }
  ReadWholeSite(state, "tcp://127.0.0.1:" + std::to_string(example.Port), example.Logs.Path());
}
BENCHMARK(BM_MqttLateReader_Baseline)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
