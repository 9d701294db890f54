// A serial line at its real rate: a pseudo-terminal whose reader takes no more than a
// 115200-baud line carries (11,520 bytes a second). The port must not outrun the line,
// or the purge before each packet destroys what the line has not taken yet.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "distribution/PacketFormat.h"
#include "distribution/SerialPort.h"
#include "frame/platform/SerialLine.h"
#include "site/ZOLServerSite.h"
#include "testing/LogCapture.h"
#include "testing/ModuleFixture.h"
#include "testing/PacketSizeScope.h"
#include "testing/PageReassembler.h"
#include "testing/TempDir.h"
#include "testing/WaitUntil.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZOL_UNDER_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZOL_UNDER_SANITIZER 1
#endif
#endif
#ifndef ZOL_UNDER_SANITIZER
#define ZOL_UNDER_SANITIZER 0
#endif

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kLineBytesPerSecond = 11520.0;  // 115200 baud, ten bits a byte
constexpr int kComNumber = 6;

struct PseudoTerminal {
  PseudoTerminal() { Ok = platform::OpenPseudoTerminal(Controller, Device, Name); }
  ~PseudoTerminal() {
    platform::CloseSerial(Controller);
    platform::CloseSerial(Device);
  }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;
  bool Ok = false;
  int Controller = -1, Device = -1;
  std::string Name;
};

// Reads the controller side of a pseudo-terminal no faster than the line: a byte may be
// taken once the line has had the time for it, and an idle line builds up no credit
// beyond one packet's worth.
class PacedLineReader {
 public:
  explicit PacedLineReader(int controller) : Controller(controller), Thread([this] { Run(); }) {}
  ~PacedLineReader() {
    Stopping.store(true);
    Thread.join();
  }
  PacedLineReader(const PacedLineReader&) = delete;
  PacedLineReader& operator=(const PacedLineReader&) = delete;

  std::vector<BYTE> Bytes() const {
    std::lock_guard<std::mutex> lock(Mutex);
    return Received;
  }
  // The time between the first byte and the last one read so far.
  double Span() const {
    std::lock_guard<std::mutex> lock(Mutex);
    return Received.empty() ? 0.0 : std::chrono::duration<double>(LastAt - FirstAt).count();
  }

 private:
  void Run() {
    constexpr double kMostCredit = 128.0;
    double credit = 0.0;
    Clock::time_point last = Clock::now();
    BYTE buffer[256];
    while (!Stopping.load()) {
      const Clock::time_point now = Clock::now();
      credit = std::min(kMostCredit, credit + kLineBytesPerSecond * std::chrono::duration<double>(now - last).count());
      last = now;
      if (credit < 1.0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        continue;
      }
      const long n = platform::ReadSerial(Controller, buffer, static_cast<std::size_t>(credit), 5);
      if (n <= 0) continue;
      credit -= static_cast<double>(n);
      std::lock_guard<std::mutex> lock(Mutex);
      if (Received.empty()) FirstAt = now;
      LastAt = Clock::now();
      Received.insert(Received.end(), buffer, buffer + n);
    }
  }

  int Controller;
  std::atomic<bool> Stopping{false};
  mutable std::mutex Mutex;
  std::vector<BYTE> Received;
  Clock::time_point FirstAt{};
  Clock::time_point LastAt{};
  std::thread Thread;
};

// The bytes of a stream that belong to blocks the receiver accepts, found as a stream
// receiver finds them: by the start mark, one byte on when a block fails its checks.
std::size_t BytesInWholePackets(const std::vector<BYTE>& stream, std::size_t packetSize) {
  CTestReassembler receiver(packetSize);
  std::size_t accepted = 0;
  std::size_t at = 0;
  while (at + packetSize <= stream.size()) {
    if (receiver.FeedBlock(stream.data() + at)) {
      accepted += packetSize;
      at += packetSize;
    } else {
      ++at;
    }
  }
  return accepted;
}

std::string Words(unsigned seed, std::size_t length) {
  std::string text;
  unsigned state = seed * 2654435761u + 1u;
  while (text.size() < length) {
    state = state * 1103515245u + 12345u;
    const std::size_t wordLength = 2 + (state >> 16) % 9;
    for (std::size_t i = 0; i < wordLength; ++i) {
      state = state * 1103515245u + 12345u;
      text += static_cast<char>('a' + (state >> 16) % 26);
    }
    text += ' ';
  }
  return text;
}

// A small site of templates that all come round every six seconds: an index that
// includes four parts of some kilobytes each, and the schedule every site has.
void WriteSmallSite(const TempDir& root) {
  constexpr int kParts = 4;
  std::string index = "<zol version=\"1\" id=\"index\" type=\"html\" pagetype=\"index\" repeat=\"6\">\n<html><body>\n";
  for (int part = 1; part <= kParts; ++part) {
    index += "<zol_include file=\"part" + std::to_string(part) + ".zol\" path=\"pages/\"/>\n";
    root.Write("pages/part" + std::to_string(part) + ".zol",
               "<zol version=\"1\" id=\"part" + std::to_string(part) +
                   "\" type=\"html\" pagetype=\"part\" repeat=\"6\">\n<div><p>" +
                   Words(static_cast<unsigned>(part), 6000) + "</p></div>\n</zol>\n");
  }
  index += "</body></html>\n</zol>\n";
  root.Write("index.zol", index);
  root.Write("results/schedule.zol",
             "<zol version=\"1\" id=\"schedule\" type=\"html\" pagetype=\"schedule\" repeat=\"6\">\n"
             "<p>No runs today.</p>\n</zol>\n");
}

bool HasPage(const CTestReassembler& receiver, const COutputPage& page) {
  return std::any_of(receiver.Completed.begin(), receiver.Completed.end(), [&](const ReceivedPage& got) {
    return got.PageIdentity == (page.GetPageKey() & wire::kPageIdentityMask) && got.Data == page.GetData();
  });
}

}  // namespace

// A client that starts listening to a running server receives the whole site within the
// site's longest repeat plus the time its packets take on the line, and what the line
// carries is whole packets, not the remains of purged ones.
TEST(SerialPortPacedLine, ALineReadAtItsRateCarriesWholePacketsAndTheWholeSite) {
  if (ZOL_UNDER_SANITIZER) GTEST_SKIP() << "takes up to nine seconds of real line time";
  PackageScope scope;
  PacketSizeScope size(128, 1);
  PseudoTerminal line;
  ASSERT_TRUE(line.Ok);
  for (int i = 1; i <= CZOLSerialPort::kHighestComPort; ++i) {
    scope.Package.ComPorts[i] = i == kComNumber ? line.Name : "/nonexistent/zol-tty" + std::to_string(i);
  }
  TempDir root;
  WriteSmallSite(root);

  // The carousel has turned for a while before the line opens, as it has when a client
  // starts listening to a running server: every page now comes round within its repeat.
  CZOLSerialPort port(1);
  port.SetComPort(kComNumber);
  port.SetBaudRate(115200);
  CZOLServerSite site(1, nullptr);
  site.PortAdd(&port);
  site.Build(root.Path() + "/", -1, 0);
  for (int beat = 0; beat < 60; ++beat) site.OnTimerEvent();

  DWORD longestRepeat = 0;
  std::size_t siteBytes = 0;
  std::vector<const COutputPage*> pages;
  for (const auto& [number, page] : site.GetPages()) {
    siteBytes += page->GetPackets().size() * PacketSize;
    if (number == 0) continue;  // the information page changes every second
    longestRepeat = std::max(longestRepeat, page->GetRepeat());
    pages.push_back(page);
  }
  ASSERT_GE(pages.size(), 6u);  // the index, four parts and the schedule
  ASSERT_LE(longestRepeat, 6u);
  ASSERT_GE(siteBytes, 3u * 4096u);  // several times what a pseudo-terminal's own buffer holds
  const double siteSeconds = static_cast<double>(siteBytes) / kLineBytesPerSecond;

  port.Start();
  ASSERT_EQ(port.IsRunning(), 1);
  PacedLineReader reader(line.Controller);
  const Clock::time_point start = Clock::now();
  // The bound: the longest repeat, the site's time on the line and one beat of the site
  // (it turns once a second), twice over, as a loaded machine runs the beats late.
  const auto deadline = start + std::chrono::duration_cast<Clock::duration>(
                                    std::chrono::duration<double>(2 * (longestRepeat + siteSeconds + 1.0)));
  Clock::time_point nextBeat = start;
  bool complete = false;
  Clock::time_point completeAt{};
  CTestReassembler client(PacketSize);
  std::size_t fed = 0;
  while (!complete && Clock::now() < deadline) {
    const Clock::time_point now = Clock::now();
    if (now >= nextBeat) {
      site.OnTimerEvent();
      nextBeat += std::chrono::seconds(1);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const std::vector<BYTE> bytes = reader.Bytes();
    client.FeedStream(bytes.data() + fed, bytes.size() - fed);
    fed = bytes.size();
    complete = std::all_of(pages.begin(), pages.end(), [&](const COutputPage* page) { return HasPage(client, *page); });
    if (complete) completeAt = Clock::now();
  }
  port.Stop();
  site.PortRemove(&port);
  const std::vector<BYTE> carried = reader.Bytes();
  const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();

  const std::size_t whole = BytesInWholePackets(carried, PacketSize);
  const double wholeShare =
      carried.empty() ? 0.0 : static_cast<double>(whole) / static_cast<double>(carried.size());
  std::cout << "line: " << carried.size() << " bytes in " << elapsed << " s, " << whole << " in whole packets ("
            << 100.0 * wholeShare << "%); site " << siteBytes << " bytes (" << siteSeconds << " s at the line rate), "
            << "longest repeat " << longestRepeat << " s; the client had the whole site after "
            << (complete ? std::chrono::duration<double>(completeAt - start).count() : -1.0) << " s"
            << std::endl;
  EXPECT_GE(wholeShare, 0.95);
  EXPECT_TRUE(complete) << "pages complete at the late client: " << client.Completed.size();
}

// With more queued than the line carries, the line is busy from the first byte to the
// last, and nearly all of it carries whole packets: the port leaves no gaps, and the
// purge before each packet finds nothing left to drop.
TEST(SerialPortPacedLine, ABusyLineCarriesWholePacketsNearlyAllTheTime) {
  if (ZOL_UNDER_SANITIZER) GTEST_SKIP() << "takes some seconds of real line time";
  PacketSizeScope size(128, 1);
  PseudoTerminal line;
  ASSERT_TRUE(line.Ok);
  LogCapturePackage package;
  for (int i = 1; i <= CZOLSerialPort::kHighestComPort; ++i) {
    package.ComPorts[i] = i == kComNumber ? line.Name : "/nonexistent/zol-tty" + std::to_string(i);
  }
  InstalledPackage scope(&package);
  std::vector<std::unique_ptr<COutputPage>> pages;
  std::size_t queuedBytes = 0;
  for (DWORD n = 0; n < 20; ++n) {
    auto page = std::make_unique<COutputPage>(1, 10 + n, 0, 10, "", "busy" + std::to_string(n) + ".bin");
    std::vector<BYTE> data(1100);
    unsigned state = n + 1;
    for (BYTE& byte : data) {
      state = state * 1103515245u + 12345u;
      byte = static_cast<BYTE>(state >> 16);  // does not compress
    }
    page->SetData(data);
    page->BuildPackets();
    queuedBytes += page->GetPackets().size() * PacketSize;
    pages.push_back(std::move(page));
  }
  const double queuedSeconds = static_cast<double>(queuedBytes) / kLineBytesPerSecond;
  ASSERT_GE(queuedSeconds, 1.5);

  CZOLSerialPort port(1);
  port.SetComPort(kComNumber);
  port.SetBaudRate(115200);
  port.Start();
  ASSERT_EQ(port.IsRunning(), 1);
  PacedLineReader reader(line.Controller);
  for (const auto& page : pages) port.UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
  // Everything goes once; the bound leaves the line half as long again.
  const bool all = WaitUntil([&] { return reader.Bytes().size() >= queuedBytes; },
                             static_cast<int>(queuedSeconds * 1.5) + 2);
  port.Stop();
  const std::vector<BYTE> carried = reader.Bytes();
  const double span = reader.Span();
  const std::size_t whole = BytesInWholePackets(carried, PacketSize);
  const double lineBytes = kLineBytesPerSecond * span;
  const double share = lineBytes > 0.0 ? static_cast<double>(whole) / lineBytes : 0.0;
  std::cout << "busy line: " << queuedBytes << " bytes queued (" << queuedSeconds << " s at the line rate), "
            << carried.size() << " carried in " << span << " s, " << whole << " in whole packets: " << 100.0 * share
            << "% of what the line could carry" << std::endl;
  EXPECT_TRUE(all);
  EXPECT_EQ(whole, queuedBytes);
  EXPECT_GE(share, 0.95);
  CTestReassembler client(PacketSize);
  client.FeedStream(carried.data(), carried.size());
  EXPECT_EQ(client.Completed.size(), pages.size());
}
