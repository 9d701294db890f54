// Loads the module library, creates the module object and runs its one message thread:
// timer ticks at the interval the module asked for, messages to the host answered here,
// every other message routed to the peer of its target class.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "frame/BaseModule.h"
#include "frame/ModuleEntry.h"
#include "frame/Package.h"
#include "frame/platform/SharedLibrary.h"
#include "host/HostOptions.h"
#include "host/HostPeer.h"

class CModuleHost : public CSendTarget {
 public:
  explicit CModuleHost(HostOptions options);
  ~CModuleHost() override;

  // Loads the library and reads its information record; false with Error() set.
  bool Load();
  const ModuleInformation& Information() const { return Info; }
  const std::string& Error() const { return LastError; }

  // Adds a module the host reports to the loaded one; call before Start.
  void AddPeer(std::unique_ptr<CHostPeer> peer);

  // Hands over the package, creates the module, connects the send path, initializes it,
  // reports the peers and starts the message thread. False when the module could not be
  // created.
  bool Start();
  // Ends the message thread and destroys the module (so its ports stop).
  void Stop();

  void SendFunction(CModuleMessage* message) override;

  // Queues a message that a peer sends of its own accord (not as a reply); it reaches
  // the module on the message thread, in order with everything else queued, with Class
  // set to `peerClass`. Safe from any thread; the host owns the message. After Stop the
  // message is freed unread.
  void PostFromPeer(WORD peerClass, CModuleMessage* message);

  int TimerInterval() const;
  std::uint64_t TimerTicks() const;

 private:
  void RunMessageThread();
  // Runs the timers of the peers that are due; the earliest next deadline of a peer.
  std::chrono::steady_clock::time_point RunDuePeerTimers(std::chrono::steady_clock::time_point now);
  void Dispatch(std::unique_ptr<CModuleMessage> message);
  void HandleHostMessage(CModuleMessage& message);
  void ReportModules();
  void DeliverToModule(std::unique_ptr<CModuleMessage> message);
  void LogMessage(const char* direction, const CModuleMessage& message, WORD peerClass) const;
  // Runs one call into the module; an exception that leaves it is logged, never fatal.
  template <class Call>
  void CallModule(const char* what, Call&& call);

  HostOptions Options;
  platform::SharedLibrary Library;
  ModuleInformation Info{};
  CPackage Package;
  CBaseModule* Module = nullptr;
  std::map<WORD, std::unique_ptr<CHostPeer>> Peers;
  // When each peer's timer is next due, by peer class; only peers with a timer.
  std::map<WORD, std::chrono::steady_clock::time_point> PeerDeadlines;
  std::string LastError;

  mutable std::mutex Lock;
  std::condition_variable Wake;
  // What the message thread handles, in order of arrival: messages the module sent, and
  // messages peers posted for it (FromPeer).
  struct QueuedMessage {
    std::unique_ptr<CModuleMessage> Message;
    bool FromPeer = false;
  };
  std::deque<QueuedMessage> Queue;
  int Interval = 0;
  std::uint64_t Ticks = 0;
  bool Stopping = false;
  std::thread MessageThread;
};
