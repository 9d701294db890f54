// A site with a real TCP port and a client reading the socket: a page changed twice
// before one timer tick reaches the client as one new version, with the later content.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "client/PageReceiver.h"
#include "distribution/TCPIPServer.h"
#include "frame/platform/Sockets.h"
#include "site/ZOLServerSite.h"
#include "testing/ModuleFixture.h"
#include "testing/PacketSizeScope.h"
#include "testing/WaitUntil.h"

namespace {

// The client side on its own thread: the client library's scanner and assembler fed from
// the socket; every completed page version is kept.
class SocketClient {
 public:
  explicit SocketClient(std::uint16_t port) : Socket(platform::TcpConnect("127.0.0.1", port)) {}
  ~SocketClient() {
    Stop.store(true);
    if (Thread.joinable()) Thread.join();
    platform::CloseSocket(Socket);
  }
  bool Connected() const { return Socket >= 0; }
  void Begin() {
    Thread = std::thread([this] { Loop(); });
  }
  std::vector<zolclient::ReceivedPage> PagesNamed(const std::string& name) {
    std::lock_guard<std::mutex> lock(Mutex);
    std::vector<zolclient::ReceivedPage> found;
    for (const zolclient::ReceivedPage& page : Pages) {
      if (page.Record.Name == name) found.push_back(page);
    }
    return found;
  }

 private:
  void Loop() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::vector<BYTE> buffer(65536);
    while (!Stop.load() && std::chrono::steady_clock::now() < deadline) {
      if (!platform::WaitReadable(Socket, 50000)) continue;
      const long got = platform::ReceiveSome(Socket, buffer.data(), buffer.size());
      if (got <= 0) break;
      Receiver.FeedStream(buffer.data(), static_cast<std::size_t>(got));
      std::vector<zolclient::ReceivedPage> completed = Receiver.TakePages();
      std::lock_guard<std::mutex> lock(Mutex);
      Pages.insert(Pages.end(), completed.begin(), completed.end());
    }
  }

  int Socket;
  zolclient::CPageReceiver Receiver{128};
  std::atomic<bool> Stop{false};
  std::thread Thread;
  std::mutex Mutex;
  std::vector<zolclient::ReceivedPage> Pages;
};

std::string Text(const zolclient::ReceivedPage& page) {
  return std::string(page.Record.Data.begin(), page.Record.Data.end());
}

unsigned VersionNumber(BYTE high, BYTE low) { return high * 64u + low; }

// Keeps the carousel's own repeat out of the next tick, so that the tick sends only what changed.
void NotDueAtTheNextTick(COutputPage* page) {
  while (page->GetRepeatCountdown() == 0) page->ShouldRepeat();
}

}  // namespace

TEST(SiteChangePort, TwoChangesWithinOneSecondReachTheClientAsOneNewVersionWithTheSecondContent) {
  PacketSizeScope size(128);
  PackageScope scope;
  TempDir folder;
  folder.Write("a.html", "<p>first</p>");
  const std::string root = folder.Path() + "/";

  CZOLTCPIPServer port(1);
  port.SetPort(platform::FindFreeTcpPort());
  ASSERT_NE(port.GetPort(), 0u);
  port.Start();
  ASSERT_TRUE(WaitUntil([&] { return port.IsRunning() != 0; }));
  {
    CZOLServerSite site(1, nullptr);
    site.PortAdd(&port);
    site.Build(root, -1, 1);
    COutputPage* page = nullptr;
    for (const auto& [number, candidate] : site.GetPages()) {
      if (candidate->GetFilename() == "a.html") page = candidate;
    }
    ASSERT_NE(page, nullptr);

    SocketClient client(static_cast<std::uint16_t>(port.GetPort()));
    ASSERT_TRUE(client.Connected());
    ASSERT_TRUE(WaitUntil([&] { return port.GetClientCount() == 1; }));
    client.Begin();

    // The first tick sends the version the build made.
    NotDueAtTheNextTick(page);
    site.OnTimerEvent();
    ASSERT_TRUE(WaitUntil([&] { return !client.PagesNamed("a.html").empty(); }));
    const zolclient::ReceivedPage first = client.PagesNamed("a.html").front();
    EXPECT_EQ(Text(first), "<p>first</p>");
    EXPECT_EQ(first.SequenceLow, page->GetSequenceLow());
    EXPECT_EQ(first.SequenceHigh, page->GetSequenceHigh());

    // Two changes of the file, each imported and announced, before the next tick.
    folder.Write("a.html", "<p>second</p>");
    ASSERT_TRUE(page->FileImport(root));
    page->NotifyPageUpdated();
    folder.Write("a.html", "<p>third and last</p>");
    ASSERT_TRUE(page->FileImport(root));
    page->NotifyPageUpdated();
    EXPECT_EQ(site.GetUpdatedPages().size(), 1u);
    NotDueAtTheNextTick(page);
    site.OnTimerEvent();

    ASSERT_TRUE(WaitUntil([&] { return client.PagesNamed("a.html").size() >= 2; }));
    const unsigned afterTwoChanges = VersionNumber(page->GetSequenceHigh(), page->GetSequenceLow());
    // One more change in a later second marks the end: the stream is ordered, so whatever
    // the second tick sent of the page came before the marker.
    folder.Write("a.html", "<p>marker</p>");
    ASSERT_TRUE(page->FileImport(root));
    page->NotifyPageUpdated();
    NotDueAtTheNextTick(page);
    site.OnTimerEvent();
    ASSERT_TRUE(WaitUntil([&] {
      const auto seen = client.PagesNamed("a.html");
      return !seen.empty() && Text(seen.back()) == "<p>marker</p>";
    }));

    const std::vector<zolclient::ReceivedPage> versions = client.PagesNamed("a.html");
    ASSERT_EQ(versions.size(), 3u);
    const unsigned firstVersion = VersionNumber(first.SequenceHigh, first.SequenceLow);
    EXPECT_EQ(Text(versions[1]), "<p>third and last</p>");
    EXPECT_EQ(VersionNumber(versions[1].SequenceHigh, versions[1].SequenceLow), firstVersion + 1);
    EXPECT_EQ(afterTwoChanges, firstVersion + 1) << "the site built the page once for both changes";
    EXPECT_EQ(VersionNumber(versions[2].SequenceHigh, versions[2].SequenceLow), firstVersion + 2);
    for (const zolclient::ReceivedPage& version : versions) EXPECT_EQ(version.PageIdentity, first.PageIdentity);
  }
  port.Stop();
}
