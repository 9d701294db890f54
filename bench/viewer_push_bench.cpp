// The viewer with a thousand browsers kept open: each holds an event stream (/events) and
// a second connection on which it fetches the results page's live part when told of a
// new version, as the viewer's script does. Each iteration hands the viewer a new
// results version and waits until every browser has fetched it; the time is the figure
// ("every browser has the new version within"). The baseline is the same browsers
// fetching the page without being told (one round of polling). The browsers live in a
// process of their own on the system's poll. Counter: the memory each open browser adds
// to the viewer.
#include <benchmark/benchmark.h>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "bench/FanoutReaders.h"
#include "client/ViewerServer.h"
#include "frame/platform/OpenFileLimit.h"
#include "frame/platform/ReadinessPoll.h"
#include "frame/platform/Sockets.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace zolclient;

struct BrowserCounts {
  std::atomic<bool> Connected{false};
  std::atomic<bool> Failed{false};
  std::atomic<bool> Stop{false};
  // Pushed: fetch when told by the stream. Polled: fetch when Round moves on.
  std::atomic<bool> Polling{false};
  std::atomic<long long> Round{0};
  // The version every browser should fetch, and how many have it.
  std::atomic<int> Target{0};
  std::atomic<long long> Fetched{0};
};

// The results page as the server sends it, with a version number in its table.
std::string ResultsPage(int version, int rows) {
  std::string page =
      "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<zol version=\"1\" id=\"current\" type=\"html\" refresh=\"5\">\n"
      "<html><head><title>Results</title></head><body><h1>Race " +
      std::to_string(version) +
      "</h1><table class=\"results\"><zol_table type=\"race\"><zol_rh type='position'>Pos</zol_rh>"
      "<zol_rh type='no'>No</zol_rh><zol_rh type='name'>Name</zol_rh><zol_rh type='lasttime'>Last lap</zol_rh>";
  for (int row = 1; row <= rows; ++row) {
    page += "<zol_rr><tr><td><zol_rd>" + std::to_string(row) + "</zol_rd></td><td><zol_rd>" +
            std::to_string(row + version) + "</zol_rd></td><td><zol_rd>Driver " + std::to_string(row) +
            "</zol_rd></td><td><zol_rd>1:3" + std::to_string(row % 10) + ".123</zol_rd></td></tr></zol_rr>";
  }
  page += "</zol_table></table></body></html>\n</zol>";
  page += '\0';
  return page;
}

ReceivedPage ResultsVersion(int version) {
  ReceivedPage page;
  page.SiteNumber = 1;
  page.PageNumber = 2;
  page.SequenceHigh = static_cast<BYTE>(version >> 6);
  page.SequenceLow = static_cast<BYTE>(version & 0x3F);
  page.Record.Path = "results/";
  page.Record.Name = "current.zol";
  const std::string text = ResultsPage(version, 30);
  page.Record.Data.assign(text.begin(), text.end());
  return page;
}

// One browser: its event stream and its fetching connection.
struct Browser {
  int Events = -1;
  int Fetch = -1;
  std::string EventText;
  std::string Reply;
  bool Fetching = false;
  bool FetchAgain = false;
  int Holds = 0;  // the version it shows
};

const std::string kFetch = "GET /site/1/results/current.html?part=live HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
const std::string kOpenStream = "GET /events HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: text/event-stream\r\n\r\n";

void StartFetch(Browser& browser) {
  if (browser.Fetching) {
    browser.FetchAgain = true;
    return;
  }
  browser.Fetching = true;
  platform::SendSome(browser.Fetch, kFetch.data(), kFetch.size());
}

// When `reply` holds one whole answer (with its Content-Length), takes it and gives the
// version its heading shows (0 when none); -1 while the answer is not whole.
int TakeWholeReply(std::string& reply) {
  const auto end = reply.find("\r\n\r\n");
  if (end == std::string::npos) return -1;
  const auto length = reply.find("Content-Length: ");
  if (length == std::string::npos || length > end) return -1;
  const std::size_t size = std::stoul(reply.substr(length + 16));
  if (reply.size() < end + 4 + size) return -1;
  const auto heading = reply.find("<h1>Race ", end);
  const int version = heading != std::string::npos && heading < end + 4 + size ? std::atoi(reply.c_str() + heading + 9) : 0;
  reply.erase(0, end + 4 + size);
  return version;
}

int RunBrowsers(std::uint16_t port, std::size_t count, BrowserCounts& counts) {
  platform::RaiseOpenFileLimit();
  std::vector<Browser> browsers(count);
  for (Browser& browser : browsers) {
    // The viewer may not listen yet.
    for (int attempt = 0; attempt < 2000 && browser.Fetch < 0; ++attempt) {
      browser.Fetch = platform::TcpConnect("127.0.0.1", port);
      if (browser.Fetch < 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    // Polling browsers hold no stream.
    if (!counts.Polling.load()) browser.Events = platform::TcpConnect("127.0.0.1", port);
    if (browser.Fetch < 0 || (browser.Events < 0 && !counts.Polling.load())) {
      counts.Failed.store(true);
      return 1;
    }
    if (browser.Events >= 0) platform::SendSome(browser.Events, kOpenStream.data(), kOpenStream.size());
  }
  platform::CReadinessPoll poll;
  for (std::size_t i = 0; i < count; ++i) {
    if (browsers[i].Events >= 0) poll.AddReader(browsers[i].Events, 2 * i + 1);
    poll.AddReader(browsers[i].Fetch, 2 * i + 2);
  }
  counts.Connected.store(true);
  long long round = 0;
  std::vector<platform::CReadinessPoll::Event> events;
  char buffer[65536];
  while (!counts.Stop.load()) {
    if (counts.Polling.load() && counts.Round.load() != round) {
      round = counts.Round.load();
      for (Browser& browser : browsers) StartFetch(browser);
    }
    if (!poll.Wait(5, events)) break;
    for (const auto& event : events) {
      if (event.Token == platform::CReadinessPoll::kWakeToken || !event.Readable) continue;
      Browser& browser = browsers[(event.Token - 1) / 2];
      const bool isStream = event.Token % 2 == 1;
      const long got = platform::ReceiveSome(isStream ? browser.Events : browser.Fetch, buffer, sizeof buffer);
      if (got <= 0) continue;
      if (isStream) {
        browser.EventText.append(buffer, static_cast<std::size_t>(got));
        for (auto at = browser.EventText.find("\n\n"); at != std::string::npos; at = browser.EventText.find("\n\n")) {
          const bool page = browser.EventText.compare(0, 12, "event: page\n") == 0 ||
                            browser.EventText.find("\nevent: page\n") < at;
          browser.EventText.erase(0, at + 2);
          if (page && !counts.Polling.load()) StartFetch(browser);
        }
      } else {
        browser.Reply.append(buffer, static_cast<std::size_t>(got));
        for (int version = TakeWholeReply(browser.Reply); version >= 0; version = TakeWholeReply(browser.Reply)) {
          browser.Fetching = false;
          if (version == counts.Target.load() && browser.Holds != version) counts.Fetched.fetch_add(1);
          browser.Holds = version;
          if (browser.FetchAgain) {
            browser.FetchAgain = false;
            StartFetch(browser);
          }
        }
      }
    }
  }
  for (Browser& browser : browsers) {
    if (browser.Events >= 0) platform::CloseSocket(browser.Events);
    platform::CloseSocket(browser.Fetch);
  }
  return 0;
}

// The viewer with `clients` browsers open; each iteration hands it a new results version.
void RunWithBrowsers(benchmark::State& state, bool polling) {
  const auto clients = static_cast<std::size_t>(state.range(0));
  if (!EnoughFiles(state, 2 * clients)) return;
  void* memory = mmap(nullptr, sizeof(BrowserCounts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    state.SkipWithError("no shared memory");
    return;
  }
  auto* counts = new (memory) BrowserCounts;
  counts->Polling.store(polling);
  const std::uint16_t port = platform::FindFreeTcpPort();
  const pid_t child = fork();
  if (child == 0) _exit(RunBrowsers(port, clients, *counts));
  {
    CViewerPages pages;
    CViewerServer viewer(pages);
    std::string error;
    int version = 1;
    pages.OnPacket();
    pages.OnPage(ResultsVersion(version));
    const long long residentBefore = ResidentBytes();
    if (!viewer.Start("127.0.0.1", port, error)) {
      state.SkipWithError(error.c_str());
    } else {
      const auto deadline = Clock::now() + std::chrono::seconds(60);
      while (!counts->Connected.load() && !counts->Failed.load() && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
      // Let every stream be taken and answered.
      std::this_thread::sleep_for(std::chrono::seconds(2));
      if (!counts->Connected.load()) state.SkipWithError("the browsers could not connect");
      state.counters["resident_per_browser_B"] =
          static_cast<double>(ResidentBytes() - residentBefore) / static_cast<double>(clients);
      double slowest = 0;
      long long expected = 0;
      for (auto _ : state) {
        if (!counts->Connected.load()) break;
        const auto start = Clock::now();
        // Polling browsers are sent to fetch once the version is there; the others are
        // told by their stream.
        counts->Target.store(++version);
        pages.OnPage(ResultsVersion(version));
        if (polling) counts->Round.fetch_add(1);
        expected += static_cast<long long>(clients);
        const auto limit = Clock::now() + std::chrono::seconds(30);
        while (counts->Fetched.load() < expected && Clock::now() < limit) std::this_thread::yield();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        slowest = std::max(slowest, seconds);
        state.SetIterationTime(seconds);
        if (counts->Fetched.load() < expected) {
          state.SkipWithError("not every browser had the new version within 30 s");
          break;
        }
        // The next version comes a moment later, as on a race day.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
      }
      state.counters["slowest_s"] = slowest;
    }
    counts->Stop.store(true);
    waitpid(child, nullptr, 0);
    viewer.Stop();
  }
  munmap(memory, sizeof(BrowserCounts));
}

void BM_ViewerPush(benchmark::State& state) { RunWithBrowsers(state, false); }
BENCHMARK(BM_ViewerPush)->Arg(1000)->Iterations(20)->Unit(benchmark::kMillisecond)->UseManualTime();

void BM_ViewerPush_Baseline(benchmark::State& state) { RunWithBrowsers(state, true); }
BENCHMARK(BM_ViewerPush_Baseline)->Arg(1000)->Iterations(20)->Unit(benchmark::kMillisecond)->UseManualTime();

}  // namespace
