#include "host/ModuleHost.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <utility>

#include "frame/KVTException.h"
#include "frame/platform/Interfaces.h"
#include "frame/platform/Paths.h"

namespace {

std::string Hex(unsigned value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%04X", value);
  return text;
}

}  // namespace

CModuleHost::CModuleHost(HostOptions options) : Options(std::move(options)) {}

CModuleHost::~CModuleHost() { Stop(); }

template <class Call>
void CModuleHost::CallModule(const char* what, Call&& call) {
  try {
    call();
  } catch (CKVTException* e) {
    Package.WriteLog(std::string("exception in ") + what + ": " + e->DescribeWithReason());
    delete e;
  } catch (const std::exception& e) {
    Package.WriteLog(std::string("exception in ") + what + ": " + e.what());
  }
}

bool CModuleHost::Load() {
  if (!Library.Open(Options.ModulePath)) {
    LastError = "cannot load module " + Options.ModulePath + ": " + Library.Error();
    return false;
  }
  auto getInformation = reinterpret_cast<GetModuleInformationFunction>(Library.Find("GetModuleInformation"));
  auto setPackage = reinterpret_cast<SetPackageFunction>(Library.Find("SetPackage"));
  if (getInformation == nullptr || setPackage == nullptr) {
    LastError = "not a module: " + Options.ModulePath + " lacks GetModuleInformation or SetPackage";
    return false;
  }
  getInformation(&Info);
  if (Info.CreateModule == nullptr) {
    LastError = "not a module: " + Options.ModulePath + " names no factory";
    return false;
  }
  return true;
}

void CModuleHost::AddPeer(std::unique_ptr<CHostPeer> peer) {
  std::lock_guard<std::mutex> guard(Lock);
  PeerSlot slot;
  slot.Handle = NextHandle++;
  slot.Peer = std::move(peer);
  Peers.push_back(std::move(slot));
}

int CModuleHost::AttachPeer(std::shared_ptr<CHostPeer> peer) {
  int handle = 0;
  {
    std::lock_guard<std::mutex> guard(Lock);
    if (Stopping) return 0;
    handle = NextHandle++;
    QueuedMessage entry;
    entry.Kind = QueuedKind::PeerCame;
    entry.Peer = std::move(peer);
    entry.Handle = handle;
    Queue.push_back(std::move(entry));
  }
  Wake.notify_all();
  return handle;
}

void CModuleHost::DetachPeer(int handle) {
  {
    std::lock_guard<std::mutex> guard(Lock);
    if (Stopping) return;
    QueuedMessage entry;
    entry.Kind = QueuedKind::PeerWent;
    entry.Handle = handle;
    Queue.push_back(std::move(entry));
  }
  Wake.notify_all();
}

bool CModuleHost::Start() {
  // Relative site roots are joined to it as they stand, so it must not be relative itself.
  Package.ApplicationDirectory = platform::AbsolutePath(Options.ApplicationDirectory);
  Package.LocalAddress = platform::LocalIPv4Address();
  Package.ComPorts = Options.ComPorts;
  Package.CodePage = Options.CodePage;
  if (!Options.LanguageFile.empty() && !Package.LoadLanguageFile(Options.LanguageFile)) {
    Package.WriteLog("cannot read language file " + Options.LanguageFile + "; built-in texts are used");
  }
  auto setPackage = reinterpret_cast<SetPackageFunction>(Library.Find("SetPackage"));
  setPackage(&Package);

  CallModule("CreateModule", [&] { Module = Info.CreateModule(); });
  if (Module == nullptr) {
    LastError = "the module could not be created";
    return false;
  }
  Module->SendTarget = this;
  CallModule("Initialize", [&] { Module->Initialize(); });
  ReportModules();
  MessageThread = std::thread([this] { RunMessageThread(); });
  return true;
}

void CModuleHost::Stop() {
  {
    std::lock_guard<std::mutex> guard(Lock);
    Stopping = true;
  }
  Wake.notify_all();
  if (MessageThread.joinable()) MessageThread.join();
  if (Module != nullptr) {
    CallModule("the destructor", [&] { delete Module; });
    Module = nullptr;
  }
  std::deque<QueuedMessage> left;
  {
    std::lock_guard<std::mutex> guard(Lock);
    left.swap(Queue);
  }
  // Callers still waiting for a job are told at once that it will not run; outside the
  // host's lock, as a completion may take locks of its own.
  for (QueuedMessage& entry : left) {
    if (entry.Kind != QueuedKind::Call) continue;
    {
      std::lock_guard<std::mutex> callGuard(entry.Call->Lock);
      entry.Call->Finished = true;
    }
    entry.Call->Done.notify_all();
    if (entry.Call->Completion) CallModule("the end of a web request", [&] { entry.Call->Completion(false); });
  }
}

void CModuleHost::SendFunction(CModuleMessage* message) {
  {
    std::lock_guard<std::mutex> guard(Lock);
    QueuedMessage entry;
    entry.Message.reset(message);
    Queue.push_back(std::move(entry));
  }
  Wake.notify_all();
}

void CModuleHost::PostFromPeer(WORD peerClass, CModuleMessage* message) {
  std::unique_ptr<CModuleMessage> owned(message);
  owned->Class = peerClass;
  {
    std::lock_guard<std::mutex> guard(Lock);
    if (Stopping) return;
    QueuedMessage entry;
    entry.Message = std::move(owned);
    entry.Kind = QueuedKind::FromPeer;
    Queue.push_back(std::move(entry));
  }
  Wake.notify_all();
}

bool CModuleHost::RunOnMessageThread(std::function<void(CBaseModule&)> job, std::chrono::milliseconds limit) {
  auto call = std::make_shared<CallState>();
  call->Job = std::move(job);
  {
    std::lock_guard<std::mutex> guard(Lock);
    if (Stopping || Module == nullptr) return false;
    QueuedMessage entry;
    entry.Kind = QueuedKind::Call;
    entry.Call = call;
    Queue.push_back(std::move(entry));
  }
  Wake.notify_all();
  std::unique_lock<std::mutex> guard(call->Lock);
  if (call->Done.wait_for(guard, limit, [&] { return call->Finished; })) return call->Started;
  // Not started in time: it is left out. Started but not done: its objects are shared,
  // so the caller may go.
  if (!call->Started) call->Abandoned = true;
  return false;
}

void CModuleHost::PostToMessageThread(std::function<void(CBaseModule&)> job, std::function<void(bool ran)> done) {
  auto call = std::make_shared<CallState>();
  call->Job = std::move(job);
  call->Completion = std::move(done);
  {
    std::lock_guard<std::mutex> guard(Lock);
    if (!Stopping && Module != nullptr) {
      QueuedMessage entry;
      entry.Kind = QueuedKind::Call;
      entry.Call = call;
      Queue.push_back(std::move(entry));
      call.reset();
    }
  }
  if (call) {
    if (call->Completion) call->Completion(false);
    return;
  }
  Wake.notify_all();
}

void CModuleHost::RunCall(CallState& call) {
  {
    std::lock_guard<std::mutex> guard(call.Lock);
    if (call.Abandoned) return;
    call.Started = true;
  }
  CallModule("a web request", [&] { call.Job(*Module); });
  {
    std::lock_guard<std::mutex> guard(call.Lock);
    call.Finished = true;
  }
  call.Done.notify_all();
  if (call.Completion) CallModule("the end of a web request", [&] { call.Completion(true); });
}

int CModuleHost::TimerInterval() const {
  std::lock_guard<std::mutex> guard(Lock);
  return Interval;
}

std::uint64_t CModuleHost::TimerTicks() const {
  std::lock_guard<std::mutex> guard(Lock);
  return Ticks;
}

void CModuleHost::RunMessageThread() {
  using Clock = std::chrono::steady_clock;
  auto nextTick = Clock::now();
  for (PeerSlot& slot : Peers) {
    slot.HasTimer = slot.Peer->PeerTimerInterval() > 0;
    slot.Deadline = Clock::now();
  }
  std::unique_lock<std::mutex> guard(Lock);
  while (!Stopping) {
    // A due tick goes before the queue, so that a flood of messages cannot hold the
    // module's timer back.
    if (Interval > 0 && Clock::now() >= nextTick) {
      const auto late = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - nextTick);
      LargestLag = std::max(LargestLag, late);
      ++Ticks;
      nextTick += std::chrono::milliseconds(Interval);
      // After a long stall the timer goes on from now rather than catching up.
      if (nextTick < Clock::now()) nextTick = Clock::now() + std::chrono::milliseconds(Interval);
      guard.unlock();
      CallModule("OnTimer", [&] { Module->OnTimer(); });
      guard.lock();
      continue;
    }
    if (!Queue.empty()) {
      QueuedMessage next = std::move(Queue.front());
      Queue.pop_front();
      guard.unlock();
      Handle(std::move(next));
      guard.lock();
      continue;
    }
    guard.unlock();
    const auto nextPeerTimer = RunDuePeerTimers(Clock::now());
    guard.lock();
    if (!Queue.empty() || Stopping) continue;
    const bool anyPeerTimer = nextPeerTimer != Clock::time_point::max();
    if (Interval <= 0) {
      if (!anyPeerTimer) {
        Wake.wait(guard);
      } else {
        Wake.wait_until(guard, nextPeerTimer);
      }
      nextTick = Clock::now() + std::chrono::milliseconds(Interval);
      continue;
    }
    const bool peerFirst = anyPeerTimer && nextPeerTimer < nextTick;
    Wake.wait_until(guard, peerFirst ? nextPeerTimer : nextTick);
  }
}

std::chrono::microseconds CModuleHost::LargestTimerLag() const {
  std::lock_guard<std::mutex> guard(Lock);
  return LargestLag;
}

void CModuleHost::Handle(QueuedMessage next) {
  switch (next.Kind) {
    case QueuedKind::FromModule:
      Dispatch(std::move(next.Message));
      break;
    case QueuedKind::FromPeer:
      DeliverToModule(std::move(next.Message));
      break;
    case QueuedKind::PeerCame:
      PeerCame(next.Handle, std::move(next.Peer));
      break;
    case QueuedKind::PeerWent:
      PeerWent(next.Handle);
      break;
    case QueuedKind::Call:
      RunCall(*next.Call);
      break;
  }
}

std::chrono::steady_clock::time_point CModuleHost::RunDuePeerTimers(std::chrono::steady_clock::time_point now) {
  auto earliest = std::chrono::steady_clock::time_point::max();
  // By index: a peer's messages reach the module, which only queues what it sends, so
  // the list does not change under the walk.
  for (std::size_t i = 0; i < Peers.size(); ++i) {
    PeerSlot& slot = Peers[i];
    if (!slot.HasTimer) continue;
    CHostPeer& peer = *slot.Peer;
    if (slot.Deadline <= now) {
      const auto interval = std::chrono::milliseconds(peer.PeerTimerInterval());
      slot.Deadline += interval;
      // Like the module's timer, a late peer timer goes on from now rather than catching up.
      if (slot.Deadline < now) slot.Deadline = now + interval;
      std::vector<CModuleMessage*> messages;
      CallModule("a peer's timer", [&] { messages = peer.OnPeerTimer(); });
      for (CModuleMessage* message : messages) {
        message->Class = peer.PeerClass();
        DeliverToModule(std::unique_ptr<CModuleMessage>(message));
      }
    }
    earliest = std::min(earliest, Peers[i].Deadline);
  }
  return earliest;
}

CHostPeer* CModuleHost::RouteTo(WORD targetClass, DWORD instance, DWORD computer) const {
  CHostPeer* onComputer = nullptr;
  for (const PeerSlot& slot : Peers) {
    CHostPeer& peer = *slot.Peer;
    if (peer.PeerClass() != targetClass || peer.PeerComputer() != computer) continue;
    if (peer.PeerInstance() == instance) return &peer;
    if (onComputer == nullptr) onComputer = &peer;
  }
  return onComputer;
}

void CModuleHost::PeerCame(int handle, std::shared_ptr<CHostPeer> peer) {
  PeerSlot slot;
  slot.Handle = handle;
  slot.Peer = std::move(peer);
  slot.HasTimer = slot.Peer->PeerTimerInterval() > 0;
  slot.Deadline = std::chrono::steady_clock::now();
  Peers.push_back(std::move(slot));
  ReportModule(*Peers.back().Peer, 1);
}

void CModuleHost::PeerWent(int handle) {
  const auto found =
      std::find_if(Peers.begin(), Peers.end(), [&](const PeerSlot& slot) { return slot.Handle == handle; });
  if (found == Peers.end()) return;
  // The module hears of it once the peer is out of the routes: what it sends the peer in
  // answer is dropped.
  const std::shared_ptr<CHostPeer> peer = found->Peer;
  Peers.erase(found);
  ReportModule(*peer, 0);
}

void CModuleHost::Dispatch(std::unique_ptr<CModuleMessage> message) {
  LogMessage("out", *message, message->TargetClass);
  if (message->TargetClass == kHostClass) {
    HandleHostMessage(*message);
    return;
  }
  CHostPeer* peer = RouteTo(message->TargetClass, message->TargetInstance, message->TargetComputer);
  if (peer == nullptr) {
    if (Options.Verbose) {
      Package.WriteLog("no module of class " + std::to_string(message->TargetClass) + " on computer " +
                       platform::IPv4ToText(message->TargetComputer) + " here: message " + Hex(message->ID) +
                       " dropped");
    }
    return;
  }
  message->Reset();
  std::vector<CModuleMessage*> replies;
  CallModule("a peer's answer", [&] { replies = peer->Receive(*message); });
  for (CModuleMessage* reply : replies) {
    reply->Class = peer->PeerClass();
    DeliverToModule(std::unique_ptr<CModuleMessage>(reply));
  }
}

void CModuleHost::DeliverToModule(std::unique_ptr<CModuleMessage> message) {
  LogMessage("in", *message, message->Class);
  message->Reset();
  CallModule("ProcessMessage", [&] { Module->ProcessMessage(message.get()); });
}

void CModuleHost::HandleHostMessage(CModuleMessage& message) {
  message.Reset();
  switch (message.ID) {
    case kMsgGetAllModules:
      ReportModules();
      break;
    case kMsgSetTimerInterval: {
      int interval = 0;
      CallModule("reading the timer interval", [&] { message >> interval; });
      {
        std::lock_guard<std::mutex> guard(Lock);
        Interval = interval > 0 ? interval : 0;
      }
      Package.WriteLog("timer: every " + std::to_string(interval) + " ms");
      break;
    }
    case kMsgEnableWaiting: {
      int enable = 0;
      CallModule("reading the waiting switch", [&] { message >> enable; });
      if (Options.Verbose) Package.WriteLog(std::string("waiting for modules ") + (enable != 0 ? "on" : "off"));
      break;
    }
    default:
      if (Options.Verbose) Package.WriteLog("unknown host message " + Hex(message.ID) + " ignored");
      break;
  }
}

void CModuleHost::ReportModules() {
  // By index, for the same reason as the peer timers.
  for (std::size_t i = 0; i < Peers.size(); ++i) ReportModule(*Peers[i].Peer, 1);
}

void CModuleHost::ReportModule(const CHostPeer& peer, int present) {
  if (Options.Verbose) {
    Package.WriteLog("module of class " + std::to_string(peer.PeerClass()) + " on computer " +
                     platform::IPv4ToText(peer.PeerComputer()) + (present != 0 ? " present" : " gone"));
  }
  const WORD peerClass = peer.PeerClass();
  const DWORD instance = peer.PeerInstance();
  const DWORD computer = peer.PeerComputer();
  CallModule("OnModifyModule", [&] { Module->OnModifyModule(peerClass, instance, computer, present); });
}

void CModuleHost::LogMessage(const char* direction, const CModuleMessage& message, WORD peerClass) const {
  if (!Options.Verbose) return;
  Package.WriteLog(std::string("message ") + direction + ": id " + Hex(message.ID) + (direction[0] == 'o' ? " to" : " from") +
                   " class " + std::to_string(peerClass) + ", " + std::to_string(message.GetFilled()) + " bytes");
}
