// The data manager link inside a real host with the real module: a data manager in
// another process (here a socket of the test) connects, is told to the module, speaks
// in frames and goes; bad frames and a second data manager are turned away, and the
// module's rule that a local data manager displaces a remote one holds across the link
// and the peers in the host.
#include "host/DataManagerLink.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "data/DataEncoder.h"
#include "frame/platform/Interfaces.h"
#include "frame/platform/Sockets.h"
#include "host/DataManagerStandIn.h"
#include "host/LinkFrame.h"
#include "host/ModuleHost.h"
#include "testing/TempDir.h"
#include "testing/WaitUntil.h"

namespace {

using Clock = std::chrono::steady_clock;

// A data manager at the other end of the link: a socket of the test, every read and
// wait bounded in time.
class LinkTestPeer {
 public:
  explicit LinkTestPeer(std::uint16_t port, int receiveBufferBytes = 0, int maxSegmentBytes = 0) {
    Socket = maxSegmentBytes > 0
                 ? platform::TcpConnectWithSmallSegments("127.0.0.1", port, receiveBufferBytes, maxSegmentBytes)
                 : platform::TcpConnect("127.0.0.1", port);
  }
  ~LinkTestPeer() { Close(); }
  LinkTestPeer(const LinkTestPeer&) = delete;
  LinkTestPeer& operator=(const LinkTestPeer&) = delete;

  bool Connected() const { return Socket >= 0; }
  void Close() {
    platform::CloseSocket(Socket);
    Socket = -1;
  }

  bool SendBytes(const std::vector<BYTE>& bytes) {
    return platform::SendAllWithin(Socket, bytes.data(), bytes.size(), 5000) == platform::SendAllResult::Sent;
  }
  bool Send(CModuleMessage* message) {
    std::unique_ptr<CModuleMessage> owned(message);
    return SendBytes(linkframe::Encode(*owned));
  }

  // The next frame within `seconds`; nothing when the time ran out or the link ended.
  std::optional<linkframe::Frame> NextFrame(double seconds) {
    const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
    linkframe::Frame frame;
    while (true) {
      if (Decoder.Next(frame) == linkframe::CFrameDecoder::Result::Frame) {
        IDs.push_back(frame.ID);
        return frame;
      }
      if (Ended) return std::nullopt;
      const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
      if (left <= 0 || !platform::WaitReadable(Socket, static_cast<long>(left))) return std::nullopt;
      BYTE chunk[65536];
      const long got = platform::ReceiveSome(Socket, chunk, sizeof chunk);
      if (got <= 0) {
        Ended = true;
        continue;
      }
      Decoder.Feed(chunk, static_cast<std::size_t>(got));
    }
  }
  // Reads frames until one with `id` arrives; false after `seconds`.
  bool WaitForID(WORD id, double seconds = 10) {
    const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
    while (Clock::now() < deadline) {
      const auto frame = NextFrame(std::chrono::duration<double>(deadline - Clock::now()).count());
      if (!frame) return false;
      if (frame->ID == id) return true;
    }
    return false;
  }
  // True when the link ends (zolhost closes it) within `seconds`; frames on the way are read.
  bool WaitForEnd(double seconds = 10) {
    const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
    while (!Ended && Clock::now() < deadline) NextFrame(std::chrono::duration<double>(deadline - Clock::now()).count());
    return Ended;
  }
  const std::vector<WORD>& ReceivedIDs() const { return IDs; }

 private:
  int Socket = -1;
  linkframe::CFrameDecoder Decoder;
  bool Ended = false;
  std::vector<WORD> IDs;
};

// A data manager inside the host, on a computer the test chooses; it writes down what
// the module sends it and answers nothing.
class RecordingPeer : public CHostPeer {
 public:
  explicit RecordingPeer(DWORD computer) : Computer(computer) {}
  WORD PeerClass() const override { return kDataManagerClass; }
  DWORD PeerInstance() const override { return 0; }
  DWORD PeerComputer() const override { return Computer; }
  std::vector<CModuleMessage*> Receive(CModuleMessage& message) override {
    std::lock_guard<std::mutex> guard(Lock);
    IDs.push_back(message.ID);
    return {};
  }
  std::vector<WORD> ReceivedIDs() const {
    std::lock_guard<std::mutex> guard(Lock);
    return IDs;
  }

 private:
  const DWORD Computer;
  mutable std::mutex Lock;
  std::vector<WORD> IDs;
};

HostOptions OptionsFor(const TempDir& appdir, bool verbose = false) {
  HostOptions options;
  options.ModulePath = std::string(ZOL_BINARY_DIR) + "/libzolserver.so";
  options.ApplicationDirectory = appdir.Path();
  options.Verbose = verbose;
  return options;
}

DWORD Address(const char* dotted) {
  std::uint32_t address = 0;
  platform::ParseDottedAddress(dotted, address);
  return address;
}

int CountLines(const std::string& log, const std::string& part) {
  int count = 0;
  for (std::size_t at = log.find(part); at != std::string::npos; at = log.find(part, at + 1)) ++count;
  return count;
}

// A host with the module and a link on a port the system picks, stderr captured.
struct Running {
  explicit Running(const TempDir& appdir, bool verbose = false, DataManagerLinkSettings settings = {})
      : Host(OptionsFor(appdir, verbose)), Link(Host, std::move(settings)) {}
  bool Start(std::string& error) {
    if (!Host.Load()) {
      error = Host.Error();
      return false;
    }
    testing::internal::CaptureStderr();
    Capturing = true;
    if (!Host.Start()) {
      error = Host.Error();
      return false;
    }
    return Link.Start(error);
  }
  // Stops link and host and returns the log.
  std::string Finish() {
    Link.Stop();
    Host.Stop();
    if (!Capturing) return "";
    Capturing = false;
    return testing::internal::GetCapturedStderr();
  }
  ~Running() { Finish(); }

  CModuleHost Host;
  CDataManagerLink Link;
  bool Capturing = false;
};

}  // namespace

TEST(DataManagerLink, LoopbackAndOwnAddressAreTheLocalComputer) {
  const DWORD local = Address("192.168.7.3");
  EXPECT_EQ(LinkPeerComputer(Address("127.0.0.1"), local), local);
  EXPECT_EQ(LinkPeerComputer(Address("127.1.2.3"), local), local);
  EXPECT_EQ(LinkPeerComputer(local, local), local);
  EXPECT_EQ(LinkPeerComputer(Address("192.168.7.4"), local), Address("192.168.7.4"));
  EXPECT_EQ(LinkPeerComputer(Address("10.0.0.1"), local), Address("10.0.0.1"));
}

TEST(DataManagerLinkThread, PeerIsToldToTheModuleAndSpeaksInFrames) {
  TempDir appdir;
  Running running(appdir, true);
  std::string error;
  // Read before the module runs: reading the race sets the time zone up, as the module's
  // clock does on its thread.
  CDataManagerStandIn standIn(0, platform::LocalIPv4Address());
  ASSERT_TRUE(standIn.LoadRaceFile(std::string(ZOL_SOURCE_DIR) + "/examples/race.json", error)) << error;
  ASSERT_TRUE(running.Start(error)) << error;

  LinkTestPeer peer(running.Link.Port());
  ASSERT_TRUE(peer.Connected());
  // The module hears of a local data manager and asks to connect: message 0, the connect
  // parameter 0 as an int.
  const auto request = peer.NextFrame(10);
  ASSERT_TRUE(request.has_value());
  EXPECT_EQ(request->ID, 0);
  EXPECT_EQ(request->Payload, std::vector<BYTE>(4, 0));
  // From here the stand-in answers each request, as zoldatamanager does: connected, the
  // snapshot, the view list.
  bool allViews = false;
  linkframe::Frame frame = *request;
  for (int round = 0; round < 20 && !allViews; ++round) {
    std::unique_ptr<CModuleMessage> message(linkframe::ToMessage(frame));
    for (CModuleMessage* reply : standIn.OnMessage(*message)) ASSERT_TRUE(peer.Send(reply));
    if (frame.ID == 0x8020) {
      allViews = true;
      break;
    }
    const auto next = peer.NextFrame(10);
    ASSERT_TRUE(next.has_value()) << "after " << frame.ID;
    frame = *next;
  }
  EXPECT_TRUE(allViews);
  const std::vector<WORD> start(peer.ReceivedIDs().begin(), peer.ReceivedIDs().begin() + 3);
  EXPECT_EQ(start, (std::vector<WORD>{0, 2, 0x8020}));
  EXPECT_TRUE(running.Link.PeerConnected());

  // The peer goes: the module hears that the data manager is gone, and asks the host for
  // all modules again.
  peer.Close();
  ASSERT_TRUE(WaitUntil([&] { return !running.Link.PeerConnected(); }, 10));
  // A peer that comes again is asked to connect again, and takes a fresh snapshot.
  LinkTestPeer again(running.Link.Port());
  ASSERT_TRUE(again.WaitForID(0));
  ASSERT_TRUE(again.Send(DataEncoder::Connected()));
  EXPECT_TRUE(again.WaitForID(2));
  const std::string log = running.Finish();
  // Connect, disconnect, connect, and the second let go when the link stops.
  EXPECT_EQ(CountLines(log, "data manager link: peer 127.0.0.1:"), 4) << log;
  EXPECT_EQ(CountLines(log, " connected (computer " + platform::DottedAddress(platform::LocalIPv4Address()) + ")"), 2)
      << log;
  EXPECT_EQ(CountLines(log, " disconnected"), 1) << log;
  EXPECT_NE(log.find("module of class 5 on computer " + platform::DottedAddress(platform::LocalIPv4Address()) + " gone"),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("message out: id 0x0001 to class 0"), std::string::npos) << log;
  EXPECT_EQ(log.find("exception"), std::string::npos) << log;
}

namespace {

// Sends `bytes`, then expects zolhost to close the link with one line holding `line`; a
// proper peer afterwards is asked to connect again.
void ExpectClosedWithOneLine(const std::vector<BYTE>& bytes, bool closeAfter, const std::string& line) {
  TempDir appdir;
  Running running(appdir);
  std::string error;
  ASSERT_TRUE(running.Start(error)) << error;
  {
    LinkTestPeer bad(running.Link.Port());
    ASSERT_TRUE(bad.WaitForID(0));
    ASSERT_TRUE(bad.SendBytes(bytes));
    if (closeAfter) {
      bad.Close();
    } else {
      EXPECT_TRUE(bad.WaitForEnd(10)) << "zolhost kept the link";
    }
    ASSERT_TRUE(WaitUntil([&] { return !running.Link.PeerConnected(); }, 10));
  }
  LinkTestPeer good(running.Link.Port());
  EXPECT_TRUE(good.WaitForID(0));
  ASSERT_TRUE(good.Send(DataEncoder::Connected()));
  EXPECT_TRUE(good.WaitForID(2));
  const std::string log = running.Finish();
  EXPECT_EQ(CountLines(log, line), 1) << log;
  // Connect, the close, connect, the let-go at the stop: one line each and nothing more.
  EXPECT_EQ(CountLines(log, "data manager link: "), 4) << log;
  EXPECT_EQ(log.find("exception"), std::string::npos) << log;
}

}  // namespace

TEST(DataManagerLinkThread, FrameLengthOf4GBClosesTheLinkWithOneLine) {
  ExpectClosedWithOneLine({0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00}, false,
                          "frame length 4294967295 is above the limit of 67108864; link closed");
}

TEST(DataManagerLinkThread, FrameLengthBelowTwoClosesTheLinkWithOneLine) {
  ExpectClosedWithOneLine({0x01, 0x00, 0x00, 0x00, 0x00}, false, "frame length 1 is below 2; link closed");
}

TEST(DataManagerLinkThread, GarbageClosesTheLinkWithOneLine) {
  const std::string text = "GET / HTTP/1.1\r\nHost: x\r\n\r\n";
  ExpectClosedWithOneLine(std::vector<BYTE>(text.begin(), text.end()), false, "is above the limit of 67108864; link closed");
}

TEST(DataManagerLinkThread, FrameCutShortClosesTheLinkWithOneLine) {
  // A frame of 100 bytes after the length, of which 10 come, then the peer is gone.
  std::vector<BYTE> bytes(14, 0xAB);
  const BYTE head[] = {100, 0, 0, 0, 0x02, 0x00};
  std::copy(std::begin(head), std::end(head), bytes.begin());
  ExpectClosedWithOneLine(bytes, true, "broke off inside a frame (14 bytes of 104 held); link closed");
}

TEST(DataManagerLinkThread, SecondDataManagerIsRefusedAndTheFirstGoesOn) {
  TempDir appdir;
  Running running(appdir);
  std::string error;
  ASSERT_TRUE(running.Start(error)) << error;
  LinkTestPeer first(running.Link.Port());
  ASSERT_TRUE(first.WaitForID(0));
  {
    LinkTestPeer second(running.Link.Port());
    ASSERT_TRUE(second.Connected());
    EXPECT_TRUE(second.WaitForEnd(10)) << "the second data manager was kept";
    // Told why before the close: the refusal frame and nothing else.
    EXPECT_EQ(second.ReceivedIDs(), std::vector<WORD>{linkframe::kRefusedID});
  }
  ASSERT_TRUE(first.Send(DataEncoder::Connected()));
  EXPECT_TRUE(first.WaitForID(2));
  EXPECT_TRUE(running.Link.PeerConnected());
  const std::string log = running.Finish();
  EXPECT_EQ(CountLines(log, "refused: data manager 127.0.0.1:"), 1) << log;
  EXPECT_EQ(CountLines(log, "data manager link: "), 3) << log;  // connect, refused, let go at the stop
}

TEST(DataManagerLinkThread, PeerThatTakesNothingIsLetGoAfterTheWriteTime) {
  TempDir appdir;
  DataManagerLinkSettings settings;
  settings.WriteTimeoutMilliseconds = 300;
  Running running(appdir, false, settings);
  std::string error;
  ASSERT_TRUE(running.Start(error)) << error;
  // A peer with a tiny window that never reads: each "connected" it sends makes the
  // module send an all-data request, until the socket takes no more.
  LinkTestPeer stuck(running.Link.Port(), 1024, 536);
  ASSERT_TRUE(stuck.Connected());
  std::vector<BYTE> burst;
  {
    std::unique_ptr<CModuleMessage> connected(DataEncoder::Connected());
    const std::vector<BYTE> one = linkframe::Encode(*connected);
    for (int i = 0; i < 50000; ++i) burst.insert(burst.end(), one.begin(), one.end());
  }
  // The link reads on while the message thread waits on the write; the burst goes in.
  stuck.SendBytes(burst);
  const auto started = Clock::now();
  ASSERT_TRUE(WaitUntil([&] { return !running.Link.PeerConnected(); }, 30));
  // The message thread went on: the module still ticks.
  const auto ticks = running.Host.TimerTicks();
  EXPECT_TRUE(WaitUntil([&] { return running.Host.TimerTicks() > ticks + 2; }, 10));
  const double seconds = std::chrono::duration<double>(Clock::now() - started).count();
  const std::string log = running.Finish();
  EXPECT_EQ(CountLines(log, "did not take message 0x0002 within 300 ms; link closed"), 1) << log;
  EXPECT_EQ(CountLines(log, "data manager link: "), 2) << log;  // connect and the close
  EXPECT_LT(seconds, 30) << log;
}

TEST(DataManagerLinkThread, LocalDataManagerDisplacesARemoteOneOnTheLink) {
  TempDir appdir;
  DataManagerLinkSettings settings;
  const DWORD remote = Address("10.0.0.254");
  settings.ComputerOf = [remote](std::uint32_t) { return remote; };
  Running running(appdir, true, settings);
  std::string error;
  ASSERT_TRUE(running.Start(error)) << error;
  LinkTestPeer peer(running.Link.Port());
  ASSERT_TRUE(peer.WaitForID(0));
  ASSERT_TRUE(peer.Send(DataEncoder::Connected()));
  ASSERT_TRUE(peer.WaitForID(2));

  // A data manager on this computer comes: the remote one is told to disconnect (1), the
  // local one is asked to connect (0).
  auto local = std::make_shared<RecordingPeer>(platform::LocalIPv4Address());
  ASSERT_NE(running.Host.AttachPeer(local), 0);
  EXPECT_TRUE(peer.WaitForID(1));
  EXPECT_TRUE(WaitUntil([&] { return local->ReceivedIDs() == std::vector<WORD>{0}; }, 10));
  // When the remote one then goes, the module stays with the local one.
  peer.Close();
  ASSERT_TRUE(WaitUntil([&] { return !running.Link.PeerConnected(); }, 10));
  const std::string log = running.Finish();
  EXPECT_EQ(local->ReceivedIDs(), std::vector<WORD>{0}) << log;
  EXPECT_NE(log.find("connected (computer 10.0.0.254)"), std::string::npos) << log;
  EXPECT_EQ(log.find("exception"), std::string::npos) << log;
}

TEST(DataManagerLinkThread, RemoteDataManagerOnTheLinkNeverDisplacesALocalOne) {
  TempDir appdir;
  DataManagerLinkSettings settings;
  settings.ComputerOf = [](std::uint32_t) { return Address("10.0.0.254"); };
  Running running(appdir, false, settings);
  auto local = std::make_unique<RecordingPeer>(platform::LocalIPv4Address());
  RecordingPeer& inHost = *local;
  running.Host.AddPeer(std::move(local));
  std::string error;
  ASSERT_TRUE(running.Start(error)) << error;
  ASSERT_TRUE(WaitUntil([&] { return inHost.ReceivedIDs() == std::vector<WORD>{0}; }, 10));
  {
    LinkTestPeer remote(running.Link.Port());
    ASSERT_TRUE(WaitUntil([&] { return running.Link.PeerConnected(); }, 10));
    // The module ignores it: nothing comes over the link.
    EXPECT_FALSE(remote.NextFrame(1.0).has_value());
    EXPECT_TRUE(remote.ReceivedIDs().empty());
  }
  ASSERT_TRUE(WaitUntil([&] { return !running.Link.PeerConnected(); }, 10));
  // Its going is ignored too: the local one was asked to connect once and stays.
  EXPECT_FALSE(WaitUntil([&] { return inHost.ReceivedIDs().size() > 1; }, 1));
  running.Finish();
  EXPECT_EQ(inHost.ReceivedIDs(), std::vector<WORD>{0});
}

TEST(DataManagerLinkThread, LocalPeerOnTheLinkBesideTheLocalStandInGetsNothing) {
  // Both on this computer: the module keeps the connection it has, and its messages to
  // this computer go to the data manager that was there first.
  TempDir appdir;
  Running running(appdir);
  auto local = std::make_unique<RecordingPeer>(platform::LocalIPv4Address());
  RecordingPeer& inHost = *local;
  running.Host.AddPeer(std::move(local));
  std::string error;
  ASSERT_TRUE(running.Start(error)) << error;
  ASSERT_TRUE(WaitUntil([&] { return inHost.ReceivedIDs() == std::vector<WORD>{0}; }, 10));
  LinkTestPeer onLink(running.Link.Port());
  ASSERT_TRUE(WaitUntil([&] { return running.Link.PeerConnected(); }, 10));
  // "Connected" from the link reaches the module as the data manager's; its all-data
  // request goes to the data manager it connected to.
  ASSERT_TRUE(onLink.Send(DataEncoder::Connected()));
  EXPECT_TRUE(WaitUntil([&] { return inHost.ReceivedIDs() == std::vector<WORD>{0, 2}; }, 10));
  EXPECT_FALSE(onLink.NextFrame(0.5).has_value());
  running.Finish();
}

namespace {

// Short times, so that the watch over the peer can be seen within a test's seconds.
DataManagerLinkSettings QuickWatch() {
  DataManagerLinkSettings settings;
  settings.FirstFrameTimeoutMilliseconds = 300;
  settings.KeepAliveIntervalMilliseconds = 200;
  settings.SilenceTimeoutMilliseconds = 1000;
  return settings;
}

}  // namespace

TEST(DataManagerLinkThread, ConnectionWithoutAFirstFrameIsLetGoWithOneLine) {
  TempDir appdir;
  Running running(appdir, false, QuickWatch());
  std::string error;
  ASSERT_TRUE(running.Start(error)) << error;
  const auto connected = Clock::now();
  LinkTestPeer silent(running.Link.Port());
  ASSERT_TRUE(silent.Connected());
  EXPECT_TRUE(silent.WaitForEnd(10)) << "a silent connection held the link";
  const double seconds = std::chrono::duration<double>(Clock::now() - connected).count();
  EXPECT_GE(seconds, 0.25);
  EXPECT_LT(seconds, 3.0);
  ASSERT_TRUE(WaitUntil([&] { return !running.Link.PeerConnected(); }, 10));
  // The link is free again: the next data manager is asked to connect.
  LinkTestPeer good(running.Link.Port());
  ASSERT_TRUE(good.SendBytes(linkframe::KeepAliveFrame()));
  EXPECT_TRUE(good.WaitForID(0));
  const std::string log = running.Finish();
  EXPECT_EQ(CountLines(log, "sent no valid frame within 0.3 s; link closed"), 1) << log;
  EXPECT_EQ(CountLines(log, "data manager link: "), 4) << log;  // connect, close, connect, let go
}

TEST(DataManagerLinkThread, KeepAliveFramesHoldAQuietLinkAndNeverReachTheModule) {
  TempDir appdir;
  Running running(appdir, true, QuickWatch());
  std::string error;
  ASSERT_TRUE(running.Start(error)) << error;
  LinkTestPeer peer(running.Link.Port());
  ASSERT_TRUE(peer.SendBytes(linkframe::KeepAliveFrame()));
  ASSERT_TRUE(peer.WaitForID(0));
  // The peer says nothing but keep-alives for more than twice the silence time; the
  // module, which waits for "connected", sends nothing, so zolhost sends keep-alives too.
  const auto until = Clock::now() + std::chrono::milliseconds(2500);
  auto lastSent = Clock::now();
  while (Clock::now() < until) {
    ASSERT_TRUE(peer.SendBytes(linkframe::KeepAliveFrame()));
    lastSent = Clock::now();
    peer.NextFrame(0.3);
  }
  EXPECT_TRUE(running.Link.PeerConnected());
  const auto& ids = peer.ReceivedIDs();
  EXPECT_GE(std::count(ids.begin(), ids.end(), linkframe::kKeepAliveID), 5) << ids.size();
  EXPECT_EQ(std::count(ids.begin(), ids.end(), WORD{0}), 1);
  // Then it falls silent without closing: lost after the silence time, and the module
  // hears the data manager go.
  EXPECT_TRUE(peer.WaitForEnd(10)) << "a silent peer held the link";
  const double seconds = std::chrono::duration<double>(Clock::now() - lastSent).count();
  EXPECT_GE(seconds, 0.9);
  EXPECT_LT(seconds, 3.0);
  ASSERT_TRUE(WaitUntil([&] { return !running.Link.PeerConnected(); }, 10));
  const std::string log = running.Finish();
  EXPECT_EQ(CountLines(log, "lost: nothing came for 1 s; link closed"), 1) << log;
  EXPECT_NE(log.find("module of class 5 on computer " + platform::DottedAddress(platform::LocalIPv4Address()) + " gone"),
            std::string::npos)
      << log;
  // No keep-alive reached the module.
  EXPECT_EQ(log.find("message in: id 0xFFFF"), std::string::npos) << log;
  EXPECT_EQ(log.find("exception"), std::string::npos) << log;
}

TEST(DataManagerLinkThread, KeepAliveBeforeEachMessageLeavesTheMessagesAsSent) {
  TempDir appdir;
  Running running(appdir, true, QuickWatch());
  std::string error;
  ASSERT_TRUE(running.Start(error)) << error;
  LinkTestPeer peer(running.Link.Port());
  ASSERT_TRUE(peer.SendBytes(linkframe::KeepAliveFrame()));
  ASSERT_TRUE(peer.WaitForID(0));
  // A keep-alive glued to the front of "connected": the module still takes it and asks
  // for all data.
  std::vector<BYTE> bytes = linkframe::KeepAliveFrame();
  {
    std::unique_ptr<CModuleMessage> connected(DataEncoder::Connected());
    const std::vector<BYTE> frame = linkframe::Encode(*connected);
    bytes.insert(bytes.end(), frame.begin(), frame.end());
  }
  ASSERT_TRUE(peer.SendBytes(bytes));
  EXPECT_TRUE(peer.WaitForID(2));
  const std::string log = running.Finish();
  EXPECT_NE(log.find("message in: id 0x0000 from class 5"), std::string::npos) << log;
  EXPECT_EQ(log.find("message in: id 0xFFFF"), std::string::npos) << log;
}
