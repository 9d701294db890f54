// The TCP port with a thousand and ten thousand clients on loopback, read by one thread
// on the system's poll, against a plain writer on the same poll that sends the same
// bytes to the same number of sockets. Each iteration hands one page of 100 packets to
// every client and waits until every client has all of it; at the end each client must
// have had exactly the bytes of every page handed to the port. Counters: the time until all
// clients were connected and had their first byte, and the resident memory per client
// that the port's clients add.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "bench/BenchPackage.h"
#include "bench/BenchPages.h"
#include "bench/FanoutReaders.h"
#include "distribution/OutputPage.h"
#include "distribution/TCPIPServer.h"
#include "distribution/ZOLServer.h"
#include "frame/IniFile.h"
#include "frame/platform/ReadinessPoll.h"
#include "frame/platform/Sockets.h"

namespace {

using Clock = std::chrono::steady_clock;

void BM_TCPFanoutScale(benchmark::State& state) {
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
  const long long residentBefore = ResidentBytes();
  const auto start = Clock::now();
  server.SetPort(port);
  server.Start();
  if (!readers.WaitConnected()) {
    state.SkipWithError("a client could not connect");
    return;
  }
  // The readers are connected; the server may still be taking them.
  while (server.GetClientCount() < clients && Clock::now() - start < std::chrono::seconds(60)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  server.UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
  long long expected = perPage * static_cast<long long>(clients);
  if (!readers.WaitFor(expected, clients)) {
    state.SkipWithError("not every client got the first page within 60 s");
    return;
  }
  state.counters["connected_first_page_s"] = std::chrono::duration<double>(Clock::now() - start).count();
  state.counters["resident_per_client_B"] =
      static_cast<double>(ResidentBytes() - residentBefore) / static_cast<double>(clients);
  for (auto _ : state) {
    server.UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
    expected += perPage * static_cast<long long>(clients);
    if (!readers.WaitFor(expected, clients)) {
      state.SkipWithError("clients did not get the page in time");
      break;
    }
  }
  state.SetBytesProcessed(perPage * static_cast<long long>(clients) * state.iterations());
  // Every client had every page: as many bytes as the pages handed to the port.
  const std::size_t uneven =
      readers.Finish(perPage * (static_cast<long long>(state.iterations()) + 1)).Uneven;
  if (uneven != 0) state.SkipWithError((std::to_string(uneven) + " clients missed bytes or got more").c_str());
  server.Stop();
}
BENCHMARK(BM_TCPFanoutScale)->Arg(1000)->Arg(10000)->Iterations(20)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same bytes from a plain writer: every socket is written on the system's poll until
// it has the whole page.
void BM_TCPFanoutScale_Baseline(benchmark::State& state) {
  const auto clients = static_cast<std::size_t>(state.range(0));
  if (!EnoughFiles(state, clients)) return;
  const int listener = platform::OpenTcpListener("127.0.0.1", 0, platform::LargestListenBacklog());
  const std::uint16_t port = platform::LocalPort(listener);
  auto page = HundredPacketPage();
  std::vector<BYTE> bytes;
  for (const BYTE* block : page->GetPackets()) bytes.insert(bytes.end(), block, block + PacketSize);
  const long long perPage = static_cast<long long>(bytes.size());

  ReaderProcess readers(port, clients);
  if (!readers.Started()) {
    state.SkipWithError("the reading process did not start");
    return;
  }
  const auto start = Clock::now();
  std::vector<int> served;
  while (served.size() < clients && Clock::now() - start < std::chrono::seconds(60)) {
    if (!platform::WaitReadable(listener, 100000)) continue;
    std::uint32_t address = 0;
    std::uint16_t peerPort = 0;
    const int socket = platform::AcceptConnectionFrom(listener, address, peerPort);
    if (socket >= 0) served.push_back(socket);
  }
  if (served.size() < clients) {
    state.SkipWithError("a client could not connect");
    return;
  }
  platform::CReadinessPoll writers;
  for (std::size_t i = 0; i < served.size(); ++i) writers.AddWriter(served[i], i + 1);
  std::vector<std::size_t> sent(served.size(), 0);
  std::vector<platform::CReadinessPoll::Event> events;
  const auto writeAll = [&] {
    std::fill(sent.begin(), sent.end(), 0);
    std::size_t done = 0;
    std::vector<bool> blocked(served.size(), false);
    while (done < served.size()) {
      for (std::size_t i = 0; i < served.size(); ++i) {
        if (blocked[i] || sent[i] == bytes.size()) continue;
        const long n = platform::SendWithoutWaiting(served[i], bytes.data() + sent[i], bytes.size() - sent[i]);
        if (n <= 0) {
          blocked[i] = true;
          continue;
        }
        sent[i] += static_cast<std::size_t>(n);
        if (sent[i] == bytes.size()) ++done;
      }
      if (done == served.size()) break;
      writers.Wait(20, events);
      for (const auto& event : events) {
        if (event.Token != platform::CReadinessPoll::kWakeToken) blocked[event.Token - 1] = false;
      }
    }
  };
  writeAll();
  long long expected = perPage * static_cast<long long>(clients);
  if (!readers.WaitFor(expected, clients)) {
    state.SkipWithError("not every client got the first page within 60 s");
    return;
  }
  state.counters["connected_first_page_s"] = std::chrono::duration<double>(Clock::now() - start).count();
  for (auto _ : state) {
    writeAll();
    expected += perPage * static_cast<long long>(clients);
    if (!readers.WaitFor(expected, clients)) {
      state.SkipWithError("clients did not get the page in time");
      break;
    }
  }
  state.SetBytesProcessed(perPage * static_cast<long long>(clients) * state.iterations());
  for (int socket : served) platform::CloseSocket(socket);
  platform::CloseSocket(listener);
}
BENCHMARK(BM_TCPFanoutScale_Baseline)
    ->Arg(1000)
    ->Arg(10000)
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
