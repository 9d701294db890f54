// The TCP port fanning one page out to 64 clients on loopback, against a plain loop that
// writes the same 128-byte blocks to 64 connected sockets.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "bench/BenchPackage.h"
#include "bench/BenchPages.h"
#include "distribution/OutputPage.h"
#include "distribution/TCPIPServer.h"
#include "frame/Package.h"
#include "frame/platform/Sockets.h"

namespace {

constexpr int kClients = 64;

// Client sockets, each drained by its own thread that counts the bytes.
class Readers {
 public:
  void Add(int socket) { Sockets.push_back(socket); }
  void Begin() {
    for (int socket : Sockets) {
      Threads.emplace_back([this, socket] {
        std::vector<char> buffer(65536);
        while (!Done.load()) {
          if (!platform::WaitReadable(socket, 20000)) continue;
          const long got = platform::ReceiveSome(socket, buffer.data(), buffer.size());
          if (got <= 0) break;
          Received.fetch_add(got);
        }
      });
    }
  }
  ~Readers() {
    Done = true;
    for (auto& thread : Threads) thread.join();
    for (int socket : Sockets) platform::CloseSocket(socket);
  }
  // Waits until `bytes` in all have come; false after ten seconds.
  bool WaitFor(long long bytes) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (Received.load() < bytes) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::yield();
    }
    return true;
  }
  std::atomic<long long> Received{0};

 private:
  std::vector<int> Sockets;
  std::vector<std::thread> Threads;
  std::atomic<bool> Done{false};
};

void BM_TCPFanout64(benchmark::State& state) {
  QuietPackage package;
  CPackage* previous = GetPackage();
  SetModulePackage(&package);
  {
    CZOLTCPIPServer server(1);
    const std::uint16_t port = platform::FindFreeTcpPort();
    server.SetPort(port);
    server.Start();
    while (server.IsRunning() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    Readers readers;
    for (int i = 0; i < kClients; ++i) {
      readers.Add(platform::TcpConnect("127.0.0.1", port));
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    while (server.GetClientCount() < static_cast<std::size_t>(kClients)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    readers.Begin();
    auto page = HundredPacketPage();
    const long long perPage = static_cast<long long>(page->GetPackets().size()) * 128 * kClients;
    long long expected = 0;
    for (auto _ : state) {
      server.UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
      expected += perPage;
      if (!readers.WaitFor(expected)) {
        state.SkipWithError("clients did not get the page in time");
        break;
      }
    }
    state.SetBytesProcessed(expected);
    server.Stop();
  }
  SetModulePackage(previous);
}
BENCHMARK(BM_TCPFanout64)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_TCPFanout64_Baseline(benchmark::State& state) {
  const int listener = platform::OpenTcpSocket();
  platform::BindAnyAddress(listener, 0);
  platform::Listen(listener, kClients);
  const std::uint16_t port = platform::LocalPort(listener);
  Readers readers;
  std::vector<int> served;
  for (int i = 0; i < kClients; ++i) {
    readers.Add(platform::TcpConnect("127.0.0.1", port));
    std::uint32_t address = 0;
    served.push_back(platform::AcceptConnection(listener, address));
  }
  readers.Begin();
  auto page = HundredPacketPage();
  const long long perPage = static_cast<long long>(page->GetPackets().size()) * 128 * kClients;
  long long expected = 0;
  for (auto _ : state) {
    for (const BYTE* block : page->GetPackets()) {
      for (int socket : served) {
        std::size_t sent = 0;
        while (sent < 128) {
          const long n = platform::SendSome(socket, block + sent, 128 - sent);
          if (n <= 0) break;
          sent += static_cast<std::size_t>(n);
        }
      }
    }
    expected += perPage;
    if (!readers.WaitFor(expected)) {
      state.SkipWithError("clients did not get the blocks in time");
      break;
    }
  }
  state.SetBytesProcessed(expected);
  for (int socket : served) platform::CloseSocket(socket);
  platform::CloseSocket(listener);
}
BENCHMARK(BM_TCPFanout64_Baseline)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
