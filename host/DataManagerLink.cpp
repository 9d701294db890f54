#include "host/DataManagerLink.h"

#include <chrono>
#include <cstdio>
#include <utility>
#include <vector>

#include "frame/platform/Interfaces.h"
#include "frame/platform/Sockets.h"
#include "host/LinkFrame.h"

namespace {

constexpr const char* kLog = "data manager link: ";
// How long the link thread waits at a time, so that Stop is seen soon.
constexpr long kPollMicroseconds = 100000;
constexpr std::size_t kReadChunk = 64 * 1024;

using Clock = std::chrono::steady_clock;

long long MillisecondsSince(Clock::time_point then) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - then).count();
}

std::string Seconds(int milliseconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%g s", milliseconds / 1000.0);
  return text;
}

std::string Hex(unsigned value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%04X", value);
  return text;
}

}  // namespace

DWORD LinkPeerComputer(std::uint32_t peerAddress, DWORD localComputer) {
  if (platform::IsLoopbackAddress(peerAddress) || peerAddress == localComputer) return localComputer;
  return peerAddress;
}

// The connected data manager as the host sees it: a module of class 5 whose messages
// are written to the socket. It answers nothing itself; what the data manager sends
// comes through the link thread.
class CLinkPeer : public CHostPeer {
 public:
  CLinkPeer(CModuleHost& host, int socket, DWORD computer, std::string name, int writeTimeoutMilliseconds)
      : Host(host), Socket(socket), Computer(computer), Name(std::move(name)), WriteTimeout(writeTimeoutMilliseconds) {}

  WORD PeerClass() const override { return kDataManagerClass; }
  DWORD PeerInstance() const override { return 0; }
  DWORD PeerComputer() const override { return Computer; }

  std::vector<CModuleMessage*> Receive(CModuleMessage& message) override {
    // The IDs of the link's own frames are not the module's to send.
    if (linkframe::IsLinkControl(message.ID)) return {};
    std::lock_guard<std::mutex> guard(WriteLock);
    if (Socket < 0 || Ended.load()) return {};
    Write(linkframe::Encode(message), "message " + Hex(message.ID));
    return {};
  }

  // Sends a keep-alive frame when nothing was written for `intervalMilliseconds`. A write
  // under way (the lock is held) says enough by itself, so the link thread never waits
  // for the message thread here.
  void KeepAliveIfIdle(int intervalMilliseconds) {
    std::unique_lock<std::mutex> guard(WriteLock, std::try_to_lock);
    if (!guard.owns_lock() || Socket < 0 || Ended.load()) return;
    if (MillisecondsSince(LastWrite) < intervalMilliseconds) return;
    Write(linkframe::KeepAliveFrame(), "a keep-alive frame");
  }

  // Marks the link as ended; true for the one call that ended it, which logs why.
  bool End() { return !Ended.exchange(true); }

  // Lets go of the socket; a write under way finishes (or times out) first.
  void CloseSocket() {
    std::lock_guard<std::mutex> guard(WriteLock);
    platform::CloseWithoutWaiting(Socket);
    Socket = -1;
  }

 private:
  // Writes one frame with WriteLock held; closes the link when it does not go out in time.
  void Write(const std::vector<BYTE>& frame, const std::string& what) {
    switch (platform::SendAllWithin(Socket, frame.data(), frame.size(), WriteTimeout)) {
      case platform::SendAllResult::Sent:
        LastWrite = Clock::now();
        break;
      case platform::SendAllResult::Failed:
        Fail("peer " + Name + ": writing " + what + " failed; link closed");
        break;
      case platform::SendAllResult::TimedOut:
        Fail("peer " + Name + " did not take " + what + " within " + std::to_string(WriteTimeout) + " ms; link closed");
        break;
    }
  }

  void Fail(const std::string& reason) {
    if (End()) Host.WriteLog(kLog + reason);
    // The link thread sees the end of the stream and lets the peer go.
    platform::ShutdownBothWays(Socket);
  }

  CModuleHost& Host;
  std::mutex WriteLock;
  int Socket;
  const DWORD Computer;
  const std::string Name;
  const int WriteTimeout;
  std::atomic<bool> Ended{false};
  // Guarded by WriteLock.
  Clock::time_point LastWrite = Clock::now();
};

struct CDataManagerLink::Reading {
  linkframe::CFrameDecoder Decoder;
  std::vector<BYTE> Chunk = std::vector<BYTE>(kReadChunk);
  Clock::time_point ConnectedAt = Clock::now();
  Clock::time_point LastHeard = Clock::now();
  bool ValidFrameSeen = false;
};

CDataManagerLink::CDataManagerLink(CModuleHost& host, DataManagerLinkSettings settings)
    : Host(host), Settings(std::move(settings)) {
  if (!Settings.ComputerOf) {
    const DWORD local = platform::LocalIPv4Address();
    Settings.ComputerOf = [local](std::uint32_t address) { return LinkPeerComputer(address, local); };
  }
}

CDataManagerLink::~CDataManagerLink() { Stop(); }

bool CDataManagerLink::Start(std::string& error) {
  const std::string where = Settings.Address + ":" + std::to_string(Settings.Port);
  ListenSocket = platform::OpenTcpSocket();
  if (ListenSocket < 0) {
    error = "cannot open a socket for the data manager link";
    return false;
  }
  platform::SetReuseAddress(ListenSocket, true);
  if (!platform::BindAddress(ListenSocket, Settings.Address, Settings.Port) || !platform::Listen(ListenSocket, 4)) {
    platform::CloseSocket(ListenSocket);
    ListenSocket = -1;
    error = "cannot listen for the data manager on " + where;
    return false;
  }
  ListenPort = platform::LocalPort(ListenSocket);
  if (Host.Verbose()) Host.WriteLog(std::string(kLog) + "listening on " + Settings.Address + ":" + std::to_string(ListenPort));
  Thread = std::thread([this] { Run(); });
  return true;
}

void CDataManagerLink::Stop() {
  Stopping = true;
  if (Thread.joinable()) Thread.join();
  if (Peer) ClosePeer("peer " + PeerName + " let go: the link stops");
  platform::CloseSocket(ListenSocket);
  ListenSocket = -1;
}

void CDataManagerLink::Run() {
  while (!Stopping) {
    bool listenReadable = false;
    bool peerReadable = false;
    const int ready = platform::WaitListenAndPeer(ListenSocket, PeerSocket, kPollMicroseconds, listenReadable, peerReadable);
    if (ready < 0) {
      Host.WriteLog(std::string(kLog) + "waiting on the port failed; the link stops");
      break;
    }
    if (peerReadable) ReadFromPeer();
    if (Peer) WatchPeer();
    if (listenReadable) Accept();
  }
}

void CDataManagerLink::Accept() {
  std::uint32_t address = 0;
  std::uint16_t port = 0;
  const int socket = platform::AcceptConnectionFrom(ListenSocket, address, port);
  if (socket < 0) return;
  const std::string name = platform::DottedAddress(address) + ":" + std::to_string(port);
  if (Peer) {
    // Told why before the close, so that it can tell a refusal from a lost link.
    const std::vector<BYTE> refused = linkframe::RefusedFrame();
    platform::SendWithoutWaiting(socket, refused.data(), refused.size());
    platform::ShutdownDrainClose(socket);
    Host.WriteLog(std::string(kLog) + "peer " + name + " refused: data manager " + PeerName + " is connected");
    return;
  }
  const DWORD computer = Settings.ComputerOf(address);
  PeerSocket = socket;
  PeerName = name;
  Read = std::make_unique<Reading>();
  Peer = std::make_shared<CLinkPeer>(Host, socket, computer, name, Settings.WriteTimeoutMilliseconds);
  Connected = true;
  Host.WriteLog(std::string(kLog) + "peer " + name + " connected (computer " + platform::DottedAddress(computer) + ")");
  PeerHandle = Host.AttachPeer(Peer);
}

void CDataManagerLink::ReadFromPeer() {
  const long got = platform::ReceiveSome(PeerSocket, Read->Chunk.data(), Read->Chunk.size());
  if (got <= 0) {
    linkframe::CFrameDecoder& decoder = Read->Decoder;
    if (got < 0) {
      ClosePeer("peer " + PeerName + " disconnected: the connection broke");
    } else if (decoder.InsideFrame()) {
      const std::uint32_t length = decoder.PendingLength();
      ClosePeer("peer " + PeerName + " broke off inside a frame (" + std::to_string(decoder.Buffered()) + " bytes of " +
                (length > 0 ? std::to_string(length + 4) : std::string("a frame")) + " held); link closed");
    } else {
      ClosePeer("peer " + PeerName + " disconnected");
    }
    return;
  }
  Read->LastHeard = Clock::now();
  Read->Decoder.Feed(Read->Chunk.data(), static_cast<std::size_t>(got));
  linkframe::Frame frame;
  while (true) {
    const auto result = Read->Decoder.Next(frame);
    if (result == linkframe::CFrameDecoder::Result::NeedMore) break;
    if (result == linkframe::CFrameDecoder::Result::Error) {
      ClosePeer("peer " + PeerName + ": " + Read->Decoder.Error() + "; link closed");
      return;
    }
    Read->ValidFrameSeen = true;
    // The link's own frames end here: a keep-alive has done its work by arriving.
    if (linkframe::IsLinkControl(frame.ID)) continue;
    Host.PostFromPeer(kDataManagerClass, linkframe::ToMessage(frame));
  }
}

void CDataManagerLink::WatchPeer() {
  if (!Read->ValidFrameSeen && MillisecondsSince(Read->ConnectedAt) >= Settings.FirstFrameTimeoutMilliseconds) {
    ClosePeer("peer " + PeerName + " sent no valid frame within " + Seconds(Settings.FirstFrameTimeoutMilliseconds) +
              "; link closed");
    return;
  }
  if (MillisecondsSince(Read->LastHeard) >= Settings.SilenceTimeoutMilliseconds) {
    ClosePeer("peer " + PeerName + " lost: nothing came for " + Seconds(Settings.SilenceTimeoutMilliseconds) +
              "; link closed");
    return;
  }
  Peer->KeepAliveIfIdle(Settings.KeepAliveIntervalMilliseconds);
}

void CDataManagerLink::ClosePeer(const std::string& line) {
  if (Peer->End()) Host.WriteLog(kLog + line);
  // The module hears of it after every frame the peer sent before.
  Host.DetachPeer(PeerHandle);
  Peer->CloseSocket();
  Peer.reset();
  Read.reset();
  PeerSocket = -1;
  PeerHandle = 0;
  Connected = false;
}
