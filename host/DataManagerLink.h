// The data manager link: zolhost listens on a TCP port for one data manager in another
// process. While one is connected the module is told of a module of class 5, instance 0,
// on the peer's computer; every message the module sends to it goes out as one frame
// (host/LinkFrame.h) and every frame it sends reaches the module as a class-5 message on
// the message thread. When it goes, the module hears that the module is gone.
//
// A link thread accepts and reads; the module's messages are written on the host's
// message thread, each write bounded in time. A bad frame length, a peer that breaks off
// inside a frame or a write that does not finish closes the link with one log line; a
// second data manager while one is connected is accepted, sent a refusal frame and closed
// at once. A peer that sends no valid first frame within 5 s, or nothing at all for 10 s,
// is let go the same way; when the module has sent nothing for 2 s the link sends a
// keep-alive frame. Keep-alive frames from the peer never reach the module.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "frame/Types.h"
#include "host/ModuleHost.h"

struct DataManagerLinkSettings {
  // The IPv4 address (dotted) and port to listen on; port 0 lets the system pick one.
  std::string Address = "127.0.0.1";
  std::uint16_t Port = 0;
  // How long one write to the peer may take before the link is closed.
  int WriteTimeoutMilliseconds = 5000;
  // A peer that sends no whole, valid frame this long after it connected is let go, so
  // that a connection that stays silent cannot hold the link.
  int FirstFrameTimeoutMilliseconds = 5000;
  // When nothing else was written for this long, a keep-alive frame goes out.
  int KeepAliveIntervalMilliseconds = 2000;
  // A peer from which nothing came for this long is lost: the link is closed.
  int SilenceTimeoutMilliseconds = 10000;
  // The computer on which the module is told the peer runs, from the peer's IPv4 address
  // (network byte order). Empty: LinkPeerComputer with this computer's address.
  std::function<DWORD(std::uint32_t)> ComputerOf;
};

// The computer of a peer at `peerAddress`: a peer on the loopback network, or at this
// computer's own address, is on the local computer (`localComputer`); any other is on the
// computer of its address. Both in network byte order, as the module holds computers.
DWORD LinkPeerComputer(std::uint32_t peerAddress, DWORD localComputer);

class CLinkPeer;

class CDataManagerLink {
 public:
  // The host must outlive the link (or the link be stopped first).
  CDataManagerLink(CModuleHost& host, DataManagerLinkSettings settings);
  ~CDataManagerLink();
  CDataManagerLink(const CDataManagerLink&) = delete;
  CDataManagerLink& operator=(const CDataManagerLink&) = delete;

  // Binds and listens, then starts the link thread; false with a one-line reason.
  bool Start(std::string& error);
  // Ends the link thread, lets a connected peer go (the module hears of it while the host
  // still runs) and closes the port.
  void Stop();

  // The port listened on, once started.
  std::uint16_t Port() const { return ListenPort; }
  // True while a data manager is connected.
  bool PeerConnected() const { return Connected.load(); }

 private:
  void Run();
  void Accept();
  void ReadFromPeer();
  // Lets a peer go that sent no first frame or fell silent; otherwise keeps the link alive.
  void WatchPeer();
  // Lets the connected peer go; `line` is logged unless the peer's end was logged already.
  void ClosePeer(const std::string& line);

  CModuleHost& Host;
  DataManagerLinkSettings Settings;
  int ListenSocket = -1;
  std::uint16_t ListenPort = 0;
  std::atomic<bool> Stopping{false};
  std::atomic<bool> Connected{false};
  std::thread Thread;

  // The connected peer; only the link thread (and Stop, after it) touch these.
  std::shared_ptr<CLinkPeer> Peer;
  int PeerSocket = -1;
  int PeerHandle = 0;
  std::string PeerName;
  struct Reading;
  std::unique_ptr<Reading> Read;
};
