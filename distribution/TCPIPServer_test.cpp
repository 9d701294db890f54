#include "distribution/TCPIPServer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>
#include <thread>

#include "distribution/OutputPage.h"
#include "distribution/PacketFormat.h"
#include "frame/IniFile.h"
#include "frame/platform/Sockets.h"
#include "testing/LogCapture.h"
#include "testing/PacketSizeScope.h"
#include "testing/PageReassembler.h"
#include "testing/WaitUntil.h"

namespace {

// True when `line` is prefix, one or more characters of `digits`, then suffix.
bool MatchesNumberLine(const std::string& line, const std::string& prefix, const std::string& digits,
                       const std::string& suffix) {
  if (line.size() <= prefix.size() + suffix.size()) return false;
  if (line.compare(0, prefix.size(), prefix) != 0) return false;
  if (line.compare(line.size() - suffix.size(), suffix.size(), suffix) != 0) return false;
  const std::string middle = line.substr(prefix.size(), line.size() - prefix.size() - suffix.size());
  return middle.find_first_not_of(digits) == std::string::npos;
}

std::vector<BYTE> RandomBytes(std::size_t size, unsigned seed) {
  std::vector<BYTE> out(size);
  std::mt19937 random(seed);
  for (auto& b : out) b = static_cast<BYTE>(random());
  return out;
}

// A test client on its own thread: reads the stream and rebuilds pages until it has
// `pagesWanted`, or closes after `closeAfterBytes`, or gives up after `Seconds` (60
// unless set before Begin).
class Reader {
 public:
  Reader(std::uint16_t port, std::size_t pagesWanted, std::size_t closeAfterBytes = SIZE_MAX)
      : Socket(platform::TcpConnect("127.0.0.1", port)), PagesWanted(pagesWanted), CloseAfter(closeAfterBytes) {}
  ~Reader() {
    Join();
    platform::CloseSocket(Socket);
  }
  bool Connected() const { return Socket >= 0; }
  // Should the accept queue be full, the kernel drops a handshake's last step; one byte
  // from the client is retransmitted and carries it through. The server never reads it.
  void Nudge() { platform::SendSome(Socket, "?", 1); }
  void Begin() {
    Thread = std::thread([this] { Loop(); });
  }
  void Join() {
    if (Thread.joinable()) Thread.join();
  }
  CTestReassembler Receiver{128};
  std::size_t BytesRead = 0;
  int Seconds = 60;

 private:
  void Loop() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(Seconds);
    std::vector<BYTE> buffer(65536);
    while (std::chrono::steady_clock::now() < deadline && Receiver.Completed.size() < PagesWanted) {
      if (!platform::WaitReadable(Socket, 100000)) continue;
      const long got = platform::ReceiveSome(Socket, buffer.data(), buffer.size());
      if (got <= 0) break;
      BytesRead += static_cast<std::size_t>(got);
      Receiver.FeedStream(buffer.data(), static_cast<std::size_t>(got));
      if (BytesRead >= CloseAfter) {
        platform::CloseSocket(Socket);
        Socket = -1;
        break;
      }
    }
  }
  int Socket;
  std::size_t PagesWanted;
  std::size_t CloseAfter;
  std::thread Thread;
};

struct RunningServer {
  LogCapturePackage Package;
  InstalledPackage Scope{&Package};
  std::uint16_t Port = platform::FindFreeTcpPort();
  std::unique_ptr<CZOLTCPIPServer> Server = std::make_unique<CZOLTCPIPServer>(1);
  RunningServer() {
    Server->SetPort(Port);
    Server->Start();
  }
  ~RunningServer() { Server.reset(); }
  bool WaitRunning() {
    return WaitUntil([&] { return Server->IsRunning() != 0; });
  }
  bool WaitClients(std::size_t count) {
    return WaitUntil([&] { return Server->GetClientCount() == count; });
  }
};

// Clients that connect with a small receive buffer and never read: once their sockets
// are full, nothing more leaves the server for them. They ask for small segments, which
// keeps the server's send buffer for each at some tens of kilobytes (on loopback it would
// otherwise take megabytes). Connected one at a time, each accepted before the next, so
// that the accept queue never overflows.
struct StalledClients {
  std::vector<int> Sockets;
  ~StalledClients() {
    for (int socket : Sockets) platform::CloseSocket(socket);
  }
  bool Connect(RunningServer& running, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      const int socket = platform::TcpConnectWithSmallSegments("127.0.0.1", running.Port, 1024, 536);
      if (socket < 0) return false;
      Sockets.push_back(socket);
      if (!running.WaitClients(Sockets.size())) return false;
    }
    return true;
  }
  // True once every one of them has had bytes from the server.
  bool AllReached() const {
    for (int socket : Sockets) {
      if (!platform::WaitReadable(socket, 0)) return false;
    }
    return true;
  }
};

// Reads and drops what comes until the end of the stream or an error, for at most
// `seconds`; true when the end came.
bool StreamEndsWithin(int socket, int seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  std::vector<BYTE> buffer(65536);
  while (std::chrono::steady_clock::now() < deadline) {
    if (!platform::WaitReadable(socket, 100000)) continue;
    if (platform::ReceiveSome(socket, buffer.data(), buffer.size()) <= 0) return true;
  }
  return false;
}

std::unique_ptr<COutputPage> BuiltPage(DWORD pageNumber, std::vector<BYTE> data) {
  auto page = std::make_unique<COutputPage>(1, pageNumber, 1, 10, "", "p" + std::to_string(pageNumber) + ".bin");
  page->SetData(std::move(data));
  page->BuildPackets();
  return page;
}

}  // namespace

TEST(TCPIPServerPort, SeveralReadersGetEveryPageAndOneThatClosesIsRemoved) {
  PacketSizeScope size(128);
  RunningServer running;
  ASSERT_TRUE(running.WaitRunning());
  std::vector<std::unique_ptr<Reader>> readers;
  for (int i = 0; i < 4; ++i) readers.push_back(std::make_unique<Reader>(running.Port, 3));
  readers.push_back(std::make_unique<Reader>(running.Port, 3, 2000));
  for (auto& reader : readers) ASSERT_TRUE(reader->Connected());
  ASSERT_TRUE(running.WaitClients(5));
  for (auto& reader : readers) reader->Begin();

  std::vector<std::unique_ptr<COutputPage>> pages;
  pages.push_back(BuiltPage(1, std::vector<BYTE>(1000, 'x')));
  pages.push_back(BuiltPage(2, RandomBytes(50000, 1)));
  pages.push_back(BuiltPage(3, RandomBytes(300000, 2)));
  for (auto& page : pages) running.Server->UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());

  for (int i = 0; i < 4; ++i) {
    readers[static_cast<std::size_t>(i)]->Join();
    const auto& completed = readers[static_cast<std::size_t>(i)]->Receiver.Completed;
    ASSERT_EQ(completed.size(), 3u) << "reader " << i;
    for (const ReceivedPage& got : completed) {
      const auto& page = *pages[wire::PageNumber(got.PageIdentity) - 1];
      EXPECT_EQ(got.Data, page.GetData());
    }
  }
  // The closed socket goes at the first send that fails. Its share of the pages may all
  // have fitted into the kernel's buffers before it closed, so one more page makes sure.
  auto last = BuiltPage(4, RandomBytes(200000, 3));
  running.Server->UpdatePage(last->GetPageKey(), last->GetSequenceLow(), last->GetPackets());
  EXPECT_TRUE(running.WaitClients(4));  // the one that closed is gone
  const std::vector<std::string> lines = running.Package.GetLines();
  EXPECT_EQ(lines.front(), "Starting TCP/IP server (Port " + std::to_string(running.Port) + ").");
  int accepted = 0, closed = 0;
  for (const std::string& line : lines) {
    accepted += MatchesNumberLine(line, "Accepting Connection (Handle = 0x", "0123456789abcdef", ", IP = 127.0.0.1).");
    closed += MatchesNumberLine(line, "Closing and removing socket (Handle = 0x04", "0123456789ABCDEF", ").");
  }
  EXPECT_EQ(accepted, 5);
  EXPECT_EQ(closed, 1);
  running.Server->Stop();
  EXPECT_EQ(running.Server->GetClientCount(), 0u);
  EXPECT_TRUE(running.Package.HasLine("Stopping TCP/IP server."));
}

TEST(TCPIPServerPort, SeventyClientsConnectingTogetherAllGetThePage) {
  PacketSizeScope size(128);
  RunningServer running;
  ASSERT_TRUE(running.WaitRunning());
  std::vector<std::unique_ptr<Reader>> readers(70);
  {
    std::vector<std::thread> connecting;
    for (std::size_t i = 0; i < readers.size(); ++i) {
      connecting.emplace_back([&, i] {
        // All threads start together; their connects are spread over about a fifth of a
        // second. Truly simultaneous handshakes overflow the accept queue of 10, and the
        // kernel then admits the rest only through its retransmissions, over tens of
        // seconds.
        std::this_thread::sleep_for(std::chrono::milliseconds(3 * i));
        readers[i] = std::make_unique<Reader>(running.Port, 1);
        readers[i]->Nudge();
      });
    }
    for (auto& thread : connecting) thread.join();
  }
  for (auto& reader : readers) ASSERT_TRUE(reader->Connected());
  ASSERT_TRUE(running.WaitClients(70)) << running.Server->GetClientCount();
  for (auto& reader : readers) reader->Begin();
  auto page = BuiltPage(4, RandomBytes(20000, 3));
  running.Server->UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
  for (auto& reader : readers) {
    reader->Join();
    ASSERT_EQ(reader->Receiver.Completed.size(), 1u);
    EXPECT_EQ(reader->Receiver.Completed[0].Data, page->GetData());
  }
  EXPECT_EQ(running.Server->GetClientCount(), 70u);
}

TEST(TCPIPServerPort, AClientThatNeverReadsDoesNotHoldBackTheOthers) {
  PacketSizeScope size(128);
  RunningServer running;
  ASSERT_TRUE(running.WaitRunning());
  const int sleeper = platform::TcpConnect("127.0.0.1", running.Port, 4096);
  ASSERT_GE(sleeper, 0);
  Reader first(running.Port, 1), second(running.Port, 1);
  ASSERT_TRUE(running.WaitClients(3));
  first.Begin();
  second.Begin();
  // Larger than what the socket buffers of the sleeping client can take.
  auto page = BuiltPage(5, RandomBytes(8 * 1024 * 1024, 4));
  running.Server->UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
  first.Join();
  second.Join();
  ASSERT_EQ(first.Receiver.Completed.size(), 1u);
  ASSERT_EQ(second.Receiver.Completed.size(), 1u);
  EXPECT_EQ(first.Receiver.Completed[0].Data, page->GetData());
  EXPECT_EQ(running.Server->GetClientCount(), 3u);  // still there, still waiting
  running.Server->Stop();
  platform::CloseSocket(sleeper);
}

TEST(TCPIPServerPort, ADeadClientWithNothingQueuedLingersUntilTheNextPage) {
  PacketSizeScope size(128);
  RunningServer running;
  ASSERT_TRUE(running.WaitRunning());
  const int client = platform::TcpConnect("127.0.0.1", running.Port);
  ASSERT_GE(client, 0);
  ASSERT_TRUE(running.WaitClients(1));
  platform::CloseSocket(client);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(running.Server->GetClientCount(), 1u);  // never written to, so never noticed
  auto page = BuiltPage(6, RandomBytes(40000, 5));
  running.Server->UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
  EXPECT_TRUE(running.WaitClients(0));
}

TEST(TCPIPServerPort, AfterAFailedSendAClientTakesNoMorePages) {
  PacketSizeScope size(128);
  LogCapturePackage package;
  InstalledPackage scope(&package);
  const int listener = platform::OpenTcpSocket();
  ASSERT_TRUE(platform::BindAnyAddress(listener, 0));
  ASSERT_TRUE(platform::Listen(listener, 10));
  const int peer = platform::TcpConnect("127.0.0.1", platform::LocalPort(listener));
  std::uint32_t address = 0;
  const int served = platform::AcceptConnection(listener, address);
  ASSERT_GE(served, 0);
  CZOLTCPIPSocket client(1, served, address);
  EXPECT_EQ(client.IsRunning(), 1);
  EXPECT_EQ(client.GetTypeName(), "TCP/IP");
  platform::CloseSocket(peer);
  auto page = BuiltPage(7, RandomBytes(40000, 6));
  client.UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
  ASSERT_GT(client.GetQueueLength(), 100u);
  ASSERT_TRUE(WaitUntil([&] {
    client.Write();
    return client.IsConnected() == 0;
  }));
  EXPECT_EQ(client.IsRunning(), 0);
  auto next = BuiltPage(8, RandomBytes(1000, 7));
  const std::size_t before = client.GetQueueLength();
  client.UpdatePage(next->GetPageKey(), next->GetSequenceLow(), next->GetPackets());
  EXPECT_EQ(client.GetQueueLength(), before);
  platform::CloseSocket(listener);
}

TEST(TCPIPServerPort, ATakenPortLeavesTheServerNotRunningAndStartReturns) {
  LogCapturePackage package;
  InstalledPackage scope(&package);
  const int holder = platform::OpenTcpSocket();
  ASSERT_TRUE(platform::BindAnyAddress(holder, 0));
  ASSERT_TRUE(platform::Listen(holder, 1));
  CZOLTCPIPServer server(3);
  server.SetPort(platform::LocalPort(holder));
  server.Start();  // returns at once
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(server.IsRunning(), 0);
  server.Stop();
  EXPECT_EQ(server.IsRunning(), 0);
  EXPECT_FALSE(package.HasLine("Stopping TCP/IP server."));
  platform::CloseSocket(holder);
}

TEST(TCPIPServerPort, AStoppedPortWhoseClientWasConnectedStartsAgainAtOnce) {
  PacketSizeScope size(128);
  RunningServer running;
  ASSERT_TRUE(running.WaitRunning());
  Reader reader(running.Port, 1);
  ASSERT_TRUE(reader.Connected());
  ASSERT_TRUE(running.WaitClients(1));
  reader.Begin();
  auto page = BuiltPage(1, std::vector<BYTE>(500, 'x'));
  running.Server->UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
  reader.Join();
  // The server closes the connection first, so its side waits out the close on the port.
  running.Server->Stop();
  running.Server->Start();
  EXPECT_TRUE(running.WaitRunning()) << "the port must take its number again while the old connection winds down";
  running.Server->Stop();
}

TEST(TCPIPServerPort, TheListenBacklogIsTheLargestTheSystemAllows) {
  // A reconnect storm of thousands of screens must find room in the queue of pending
  // connections. The kernel cuts the asked length to its own limit.
  int systemLimit = platform::LargestListenBacklog();
  if (std::FILE* limit = std::fopen("/proc/sys/net/core/somaxconn", "r")) {
    int value = 0;
    if (std::fscanf(limit, "%d", &value) == 1 && value > 0 && value < systemLimit) systemLimit = value;
    std::fclose(limit);
  }
  EXPECT_GE(platform::LargestListenBacklog(), 128);
  RunningServer running;
  ASSERT_TRUE(running.WaitRunning());
  // The kernel shows a listening socket's backlog in the send-queue column.
  const std::string command = "ss -ltnH 'sport = :" + std::to_string(running.Port) + "' 2>/dev/null";
  std::FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) GTEST_SKIP() << "ss is not available";
  char line[512] = {0};
  const bool got = std::fgets(line, sizeof line, pipe) != nullptr;
  pclose(pipe);
  if (!got) GTEST_SKIP() << "ss printed nothing";
  char state[64] = {0};
  int receiveQueue = -1, sendQueue = -1;
  ASSERT_EQ(std::sscanf(line, "%63s %d %d", state, &receiveQueue, &sendQueue), 3);
  EXPECT_EQ(sendQueue, systemLimit);
}

TEST(TCPIPServerPort, MaxClientsIsReadAndWrittenWithTheOtherKeysAndDefaultsTo256) {
  CIniFile ini("/nonexistent/none.ini");
  ini.Write("port1", "port", 52000);
  ini.Write("port1", "maxclients", 5);
  ini.Write("port2", "maxclients", std::string("none"));
  CZOLTCPIPServer port(4);
  port.LoadSettings(ini, "port1");
  EXPECT_EQ(port.GetPort(), 52000u);
  EXPECT_EQ(port.GetMaxClients(), 5u);
  CZOLTCPIPServer defaults(5), bad(6);
  defaults.LoadSettings(ini, "port9");
  bad.LoadSettings(ini, "port2");  // not a number above 0: the default
  CIniFile out("/nonexistent/out.ini");
  port.SaveSettings(out, "port1");
  defaults.SaveSettings(out, "port9");
  bad.SaveSettings(out, "port2");
  std::string text;
  out.Read("port1", "maxclients", text, "");
  EXPECT_EQ(text, "5");
  out.Read("port9", "maxclients", text, "");
  EXPECT_EQ(text, "256");
  out.Read("port2", "maxclients", text, "");
  EXPECT_EQ(text, "256");
  out.Read("port1", "ID", text, "");
  EXPECT_EQ(text, "4");
  out.Read("port1", "port", text, "");
  EXPECT_EQ(text, "52000");
}

TEST(TCPIPServerPort, AConnectionBeyondMaxClientsIsClosedAtOnceAndLogged) {
  PacketSizeScope size(128);
  LogCapturePackage package;
  InstalledPackage scope(&package);
  CIniFile ini("/nonexistent/none.ini");
  ini.Write("port0", "maxclients", 2);
  const std::uint16_t portNumber = platform::FindFreeTcpPort();
  CZOLTCPIPServer server(1);
  server.LoadSettings(ini, "port0");
  server.SetPort(portNumber);
  server.Start();
  ASSERT_TRUE(WaitUntil([&] { return server.IsRunning() != 0; }));
  auto first = std::make_unique<Reader>(portNumber, 1);
  auto second = std::make_unique<Reader>(portNumber, 1);
  ASSERT_TRUE(WaitUntil([&] { return server.GetClientCount() == 2; }));

  const int third = platform::TcpConnect("127.0.0.1", portNumber);
  ASSERT_GE(third, 0);
  // Closed by the server: the end of the stream (or a reset) comes within the limit.
  ASSERT_TRUE(platform::WaitReadable(third, 5000000));
  char byte = 0;
  EXPECT_LE(platform::ReceiveSome(third, &byte, 1), 0);
  platform::CloseSocket(third);
  EXPECT_EQ(server.GetClientCount(), 2u);
  bool logged = false;
  for (const std::string& line : package.GetLines()) {
    logged = logged || MatchesNumberLine(line, "Refusing connection (Handle = 0x", "0123456789abcdef",
                                         ", IP = 127.0.0.1): 2 clients connected, the most this port takes.");
  }
  EXPECT_TRUE(logged);

  // The two that were let in are served as before.
  first->Begin();
  second->Begin();
  auto page = BuiltPage(9, RandomBytes(30000, 8));
  server.UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
  first->Join();
  second->Join();
  ASSERT_EQ(first->Receiver.Completed.size(), 1u);
  ASSERT_EQ(second->Receiver.Completed.size(), 1u);
  EXPECT_EQ(second->Receiver.Completed[0].Data, page->GetData());

  // Once one of them has gone, there is room again.
  first.reset();
  auto next = BuiltPage(10, RandomBytes(200000, 9));
  server.UpdatePage(next->GetPageKey(), next->GetSequenceLow(), next->GetPackets());
  ASSERT_TRUE(WaitUntil([&] { return server.GetClientCount() == 1; }));
  Reader fourth(portNumber, 1);
  ASSERT_TRUE(fourth.Connected());
  EXPECT_TRUE(WaitUntil([&] { return server.GetClientCount() == 2; }));
  server.Stop();
}

// 70 clients that never read have full sockets and bytes queued. A client that connected
// after them must still be served, and soon.
TEST(TCPIPServerPort, AReaderBehindSeventyStalledClientsGetsWholePagesWithinSeconds) {
  PacketSizeScope size(128);
  RunningServer running;
  ASSERT_TRUE(running.WaitRunning());
  StalledClients stalled;
  ASSERT_TRUE(stalled.Connect(running, 70));
  Reader reader(running.Port, 2);
  ASSERT_TRUE(reader.Connected());
  ASSERT_TRUE(running.WaitClients(71));
  reader.Seconds = 10;
  reader.Begin();
  // Far more than the socket buffers of a stalled client take.
  auto big = BuiltPage(11, RandomBytes(256 * 1024, 10));
  auto small = BuiltPage(12, RandomBytes(2000, 11));
  const auto began = std::chrono::steady_clock::now();
  running.Server->UpdatePage(big->GetPageKey(), big->GetSequenceLow(), big->GetPackets());
  running.Server->UpdatePage(small->GetPageKey(), small->GetSequenceLow(), small->GetPackets());
  reader.Join();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
  std::printf("reader behind 70 stalled clients: %zu of 2 pages after %.3f s\n", reader.Receiver.Completed.size(),
              seconds);
  ASSERT_EQ(reader.Receiver.Completed.size(), 2u) << "bytes read: " << reader.BytesRead;
  for (const ReceivedPage& got : reader.Receiver.Completed) {
    EXPECT_EQ(got.Data, (wire::PageNumber(got.PageIdentity) == 11 ? big : small)->GetData());
  }
  EXPECT_TRUE(WaitUntil([&] { return stalled.AllReached(); }, 10));  // each had its turn, too
  EXPECT_EQ(running.Server->GetClientCount(), 71u);
}

TEST(TCPIPServerPort, StoppingWithSeventyStalledClientsTakesWellUnderASecond) {
  PacketSizeScope size(128);
  RunningServer running;
  ASSERT_TRUE(running.WaitRunning());
  StalledClients stalled;
  ASSERT_TRUE(stalled.Connect(running, 70));
  auto page = BuiltPage(13, RandomBytes(256 * 1024, 12));
  running.Server->UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
  // Every client has had bytes, and holds more that cannot leave.
  ASSERT_TRUE(WaitUntil([&] { return stalled.AllReached(); }, 10));
  const auto began = std::chrono::steady_clock::now();
  running.Server->Stop();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
  std::printf("stopping with 70 stalled clients took %.3f s\n", seconds);
  EXPECT_LT(seconds, 3.0);
  EXPECT_EQ(running.Server->GetClientCount(), 0u);
  // Each stalled client finds its connection ended (or reset) behind the bytes it has.
  for (int socket : stalled.Sockets) EXPECT_TRUE(StreamEndsWithin(socket, 2));
}

TEST(TCPIPServerPort, ThreeHundredClientsConnectingAtOnceEachHaveTheirFirstPacketWithinTwoSeconds) {
  // A network blip: every screen of the circuit connects again in the same instant.
  PacketSizeScope size(128);
  LogCapturePackage package;
  InstalledPackage scope(&package);
  CIniFile ini("/nonexistent/none.ini");
  ini.Write("port0", "maxclients", 1000);
  CZOLTCPIPServer server(1);
  server.LoadSettings(ini, "port0");
  const std::uint16_t port = platform::FindFreeTcpPort();
  server.SetPort(port);
  server.Start();
  ASSERT_TRUE(WaitUntil([&] { return server.IsRunning() != 0; }));
  // The carousel: the page goes out again every 100 ms, as a site's repeats would.
  auto page = BuiltPage(3, RandomBytes(3000, 11));
  std::atomic<bool> feeding{true};
  std::thread carousel([&] {
    while (feeding.load()) {
      server.UpdatePage(page->GetPageKey(), page->GetSequenceLow(), page->GetPackets());
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  });
  constexpr std::size_t kClients = 300;
  std::vector<int> sockets;
  const auto start = std::chrono::steady_clock::now();
  for (std::size_t i = 0; i < kClients; ++i) sockets.push_back(platform::TcpConnect("127.0.0.1", port));
  std::vector<bool> reached(kClients, false);
  std::size_t count = 0;
  const auto deadline = start + std::chrono::seconds(2);
  while (count < kClients && std::chrono::steady_clock::now() < deadline) {
    for (std::size_t i = 0; i < kClients; ++i) {
      if (reached[i] || sockets[i] < 0 || !platform::WaitReadable(sockets[i], 0)) continue;
      BYTE first = 0;
      if (platform::ReceiveSome(sockets[i], &first, 1) == 1) {
        EXPECT_EQ(first, 0x8E) << "client " << i << " did not begin with a packet's start";
        reached[i] = true;
        ++count;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  feeding.store(false);
  carousel.join();
  EXPECT_EQ(std::count(sockets.begin(), sockets.end(), -1), 0) << "connects failed";
  EXPECT_EQ(count, kClients) << "within " << seconds << " s; the server holds " << server.GetClientCount();
  for (int socket : sockets) platform::CloseSocket(socket);
  server.Stop();
}

TEST(TCPIPServerPort, MaxClientsBeyondTheOpenFilesLimitIsSaidInOneLine) {
  EXPECT_EQ(CZOLTCPIPServer::MaxClientsBeyondFileLimit(51000, 256, 1024), "");
  EXPECT_EQ(CZOLTCPIPServer::MaxClientsBeyondFileLimit(51000, 960, 1024), "");
  EXPECT_EQ(CZOLTCPIPServer::MaxClientsBeyondFileLimit(51000, 10000, UINT64_MAX), "");
  EXPECT_EQ(CZOLTCPIPServer::MaxClientsBeyondFileLimit(51000, 10000, 0), "");
  EXPECT_EQ(CZOLTCPIPServer::MaxClientsBeyondFileLimit(51000, 10000, 1024),
            "TCP port 51000: maxclients is 10000, but the open-files limit of 1024 lets about 960 clients in; "
            "raise the limit (LimitNOFILE= in the systemd unit, ulimit -n) for more.");

  // A port whose maxclients no limit reaches says so when it starts.
  LogCapturePackage package;
  InstalledPackage scope(&package);
  CIniFile ini("/nonexistent/none.ini");
  ini.Write("port0", "maxclients", 4000000000u);
  CZOLTCPIPServer server(1);
  server.LoadSettings(ini, "port0");
  server.SetPort(platform::FindFreeTcpPort());
  server.Start();
  ASSERT_TRUE(WaitUntil([&] { return server.IsRunning() != 0; }));
  server.Stop();
  int lines = 0;
  for (const std::string& line : package.GetLines()) {
    if (line.find("maxclients is 4000000000, but the open-files limit of ") != std::string::npos) ++lines;
  }
  EXPECT_EQ(lines, 1);
}
