// Loads the module library, creates the module object and runs its one message thread:
// timer ticks at the interval the module asked for, messages to the host answered here,
// every other message routed to the peer of its target class and computer. Peers are
// added before the start, or come and go while the module runs (an outside data manager
// over its link); the module hears of each through OnModifyModule on the message thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

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

  // A peer that comes while the module runs; safe from any thread. The module hears of it
  // (OnModifyModule, present) on the message thread, in order with everything queued
  // before; from then on it is reported and routed to like the others. Returns the
  // handle for DetachPeer, 0 after Stop (the peer is then not taken).
  int AttachPeer(std::shared_ptr<CHostPeer> peer);
  // The peer of `handle` goes: queued like AttachPeer, the module hears of it (present 0)
  // on the message thread, after everything the peer posted before; messages to it are
  // dropped from then on. The host lets go of the peer there.
  void DetachPeer(int handle);

  // One line in the host's log, as the host writes its own.
  void WriteLog(const std::string& line) const { Package.WriteLog(line); }
  bool Verbose() const { return Options.Verbose; }

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

  // Runs `job` with the module on the message thread, in order with everything queued
  // before, and waits for its end at most `limit`. True once it ran (an exception that
  // left it is logged); false when it did not start within the limit (it is then left
  // out) or the host stopped. Safe from any thread but the message thread. What the job
  // touches must outlive an abandoned wait: capture it by shared pointer.
  bool RunOnMessageThread(std::function<void(CBaseModule&)> job, std::chrono::milliseconds limit);
  // Queues `job` like RunOnMessageThread but returns at once. `done` is called exactly
  // once: with true on the message thread right after the job ran (an exception that left
  // it is logged), or with false when the job will not run because the host stopped (from
  // the thread that stops it, or at once from this call when the host does not run).
  // Safe from any thread.
  void PostToMessageThread(std::function<void(CBaseModule&)> job, std::function<void(bool ran)> done);

  int TimerInterval() const;
  std::uint64_t TimerTicks() const;
  // How late the module's timer call came at worst after its due time: a measure of
  // whether the message thread keeps up.
  std::chrono::microseconds LargestTimerLag() const;

 private:
  // A peer the module has been told of, with its timer.
  struct PeerSlot {
    int Handle = 0;
    std::shared_ptr<CHostPeer> Peer;
    bool HasTimer = false;
    std::chrono::steady_clock::time_point Deadline{};
  };
  // What the message thread handles, in order of arrival: messages the module sent,
  // messages peers posted for it, peers that come and go.
  enum class QueuedKind { FromModule, FromPeer, PeerCame, PeerWent, Call };
  // A job of RunOnMessageThread and the state its caller waits on.
  struct CallState {
    std::function<void(CBaseModule&)> Job;
    // Set for PostToMessageThread: told of the end instead of a waiting caller.
    std::function<void(bool)> Completion;
    std::mutex Lock;
    std::condition_variable Done;
    bool Started = false;
    bool Finished = false;
    bool Abandoned = false;
  };
  struct QueuedMessage {
    std::unique_ptr<CModuleMessage> Message;
    QueuedKind Kind = QueuedKind::FromModule;
    std::shared_ptr<CHostPeer> Peer;
    int Handle = 0;
    std::shared_ptr<CallState> Call;
  };

  void RunMessageThread();
  void Handle(QueuedMessage next);
  void RunCall(CallState& call);
  // Runs the timers of the peers that are due; the earliest next deadline of a peer
  // (the largest time point when no peer has a timer).
  std::chrono::steady_clock::time_point RunDuePeerTimers(std::chrono::steady_clock::time_point now);
  // The peer a message to that class, instance and computer goes to: of the peers of the
  // class on that computer the one of that instance, else the first; the one that came
  // first wins a tie. Null when no peer of the class is on the computer.
  CHostPeer* RouteTo(WORD targetClass, DWORD instance, DWORD computer) const;
  void PeerCame(int handle, std::shared_ptr<CHostPeer> peer);
  void PeerWent(int handle);
  void ReportModule(const CHostPeer& peer, int present);
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
  // The peers in the order they came. Before Start only AddPeer touches it; from then on
  // only the message thread.
  std::vector<PeerSlot> Peers;
  std::string LastError;

  mutable std::mutex Lock;
  std::condition_variable Wake;
  std::deque<QueuedMessage> Queue;
  int NextHandle = 1;
  int Interval = 0;
  std::uint64_t Ticks = 0;
  std::chrono::microseconds LargestLag{0};
  bool Stopping = false;
  std::thread MessageThread;
};
