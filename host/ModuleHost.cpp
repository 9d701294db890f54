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
    Package.WriteLog(std::string("exception in ") + what + ": " + e->Describe());
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
  const WORD peerClass = peer->PeerClass();
  Peers[peerClass] = std::move(peer);
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
  std::lock_guard<std::mutex> guard(Lock);
  Queue.clear();
}

void CModuleHost::SendFunction(CModuleMessage* message) {
  {
    std::lock_guard<std::mutex> guard(Lock);
    Queue.push_back({std::unique_ptr<CModuleMessage>(message), false});
  }
  Wake.notify_all();
}

void CModuleHost::PostFromPeer(WORD peerClass, CModuleMessage* message) {
  std::unique_ptr<CModuleMessage> owned(message);
  owned->Class = peerClass;
  {
    std::lock_guard<std::mutex> guard(Lock);
    if (Stopping) return;
    Queue.push_back({std::move(owned), true});
  }
  Wake.notify_all();
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
  for (const auto& entry : Peers) {
    if (entry.second->PeerTimerInterval() > 0) PeerDeadlines[entry.first] = Clock::now();
  }
  std::unique_lock<std::mutex> guard(Lock);
  while (!Stopping) {
    if (!Queue.empty()) {
      QueuedMessage next = std::move(Queue.front());
      Queue.pop_front();
      guard.unlock();
      if (next.FromPeer) {
        DeliverToModule(std::move(next.Message));
      } else {
        Dispatch(std::move(next.Message));
      }
      guard.lock();
      continue;
    }
    guard.unlock();
    const auto nextPeerTimer = RunDuePeerTimers(Clock::now());
    guard.lock();
    if (!Queue.empty() || Stopping) continue;
    if (Interval <= 0) {
      if (PeerDeadlines.empty()) {
        Wake.wait(guard);
      } else {
        Wake.wait_until(guard, nextPeerTimer);
      }
      nextTick = Clock::now() + std::chrono::milliseconds(Interval);
      continue;
    }
    const bool peerFirst = !PeerDeadlines.empty() && nextPeerTimer < nextTick;
    if (Wake.wait_until(guard, peerFirst ? nextPeerTimer : nextTick) == std::cv_status::timeout && !peerFirst) {
      ++Ticks;
      nextTick += std::chrono::milliseconds(Interval);
      // After a long stall the timer goes on from now rather than catching up.
      if (nextTick < Clock::now()) nextTick = Clock::now() + std::chrono::milliseconds(Interval);
      guard.unlock();
      CallModule("OnTimer", [&] { Module->OnTimer(); });
      guard.lock();
    }
  }
}

std::chrono::steady_clock::time_point CModuleHost::RunDuePeerTimers(std::chrono::steady_clock::time_point now) {
  auto earliest = std::chrono::steady_clock::time_point::max();
  for (auto& [peerClass, deadline] : PeerDeadlines) {
    CHostPeer& peer = *Peers.at(peerClass);
    if (deadline <= now) {
      const auto interval = std::chrono::milliseconds(peer.PeerTimerInterval());
      deadline += interval;
      // Like the module's timer, a late peer timer goes on from now rather than catching up.
      if (deadline < now) deadline = now + interval;
      std::vector<CModuleMessage*> messages;
      CallModule("a peer's timer", [&] { messages = peer.OnPeerTimer(); });
      for (CModuleMessage* message : messages) {
        message->Class = peerClass;
        DeliverToModule(std::unique_ptr<CModuleMessage>(message));
      }
    }
    earliest = std::min(earliest, deadline);
  }
  return earliest;
}

void CModuleHost::Dispatch(std::unique_ptr<CModuleMessage> message) {
  LogMessage("out", *message, message->TargetClass);
  if (message->TargetClass == kHostClass) {
    HandleHostMessage(*message);
    return;
  }
  auto peer = Peers.find(message->TargetClass);
  if (peer == Peers.end()) {
    if (Options.Verbose) {
      Package.WriteLog("no module of class " + std::to_string(message->TargetClass) + " here: message " +
                       Hex(message->ID) + " dropped");
    }
    return;
  }
  message->Reset();
  for (CModuleMessage* reply : peer->second->Receive(*message)) {
    reply->Class = peer->first;
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
  for (const auto& entry : Peers) {
    const CHostPeer& peer = *entry.second;
    if (Options.Verbose) Package.WriteLog("module of class " + std::to_string(entry.first) + " present");
    CallModule("OnModifyModule", [&] {
      Module->OnModifyModule(peer.PeerClass(), peer.PeerInstance(), peer.PeerComputer(), 1);
    });
  }
}

void CModuleHost::LogMessage(const char* direction, const CModuleMessage& message, WORD peerClass) const {
  if (!Options.Verbose) return;
  Package.WriteLog(std::string("message ") + direction + ": id " + Hex(message.ID) + (direction[0] == 'o' ? " to" : " from") +
                   " class " + std::to_string(peerClass) + ", " + std::to_string(message.GetFilled()) + " bytes");
}
