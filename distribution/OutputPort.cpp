#include "distribution/OutputPort.h"

#include <cstring>
#include <vector>

#include "distribution/PacketFormat.h"
#include "distribution/ZOLServer.h"
#include "frame/Clock.h"
#include "frame/KVTException.h"
#include "frame/Package.h"
#include "frame/platform/Time.h"

CZOLOutputPort::CZOLOutputPort(DWORD id) : ID(id) {}

CZOLOutputPort::~CZOLOutputPort() {
  JoinThread();
  ClearQueue();
}

void CZOLOutputPort::StartThread() {
  JoinThread();
  Thread = std::thread([this] { Run(); });
}

void CZOLOutputPort::JoinThread() {
  if (Thread.joinable()) Thread.join();
}

void CZOLOutputPort::ClearQueue() {
  std::lock_guard<std::mutex> lock(QueueMutex);
  for (auto& entry : Queue) delete[] entry.second;
  Queue.clear();
  InQueue.clear();
}

void CZOLOutputPort::Stop() {
  Guarded("CZOLOutputPort::Stop()", [&] {
    if (Running.load() != 0) {
      Running.store(0);
      StopSemaphore.acquire();
      JoinThread();
    }
    ClearQueue();
    Clear();
  });
}

void CZOLOutputPort::PauseBetweenBursts() { platform::SleepMilliseconds(PacketDelay); }

void CZOLOutputPort::CountPacketSent() { CountBytesSent(static_cast<int>(PacketSize)); }

void CZOLOutputPort::CountBytesSent(int bytes) {
  int queued = QueuedBytes.load();
  while (!QueuedBytes.compare_exchange_weak(queued, queued > bytes ? queued - bytes : 0)) {
  }
  SentBytes.fetch_add(bytes);
}

void CZOLOutputPort::Run() {
  while (Running.load() != 0) {
    for (int i = 0; i < PacketsPerBurst; ++i) {
      BYTE* packet = PopPacket();
      if (packet == nullptr) break;
      SendPacket(packet);
      delete[] packet;
      CountPacketSent();
    }
    PauseBetweenBursts();
  }
  StopSemaphore.release();
}

void CZOLOutputPort::UpdatePage(DWORD key, BYTE sequence, const PacketBlocks& packets) {
  Guarded("CZOLOutputPort::UpdatePage()", [&] {
    // A page without packets has nothing to send and must not block its key.
    if (Running.load() == 0 || packets.empty()) return;
    std::lock_guard<std::mutex> lock(QueueMutex);
    BYTE& queued = InQueue[key];
    if (queued != 0) return;  // the waiting version goes out; a newer one comes by its repeat
    queued = 1;
    PageSequences[key] = sequence;
    DWORD n = 0;
    for (const BYTE* source : packets) {
      BYTE* copy = new BYTE[PacketSize];
      std::memcpy(copy, source, PacketSize);
      BYTE*& slot = Queue[QueueKey(key, n)];
      delete[] slot;
      slot = copy;
      ++n;
    }
    QueuedBytes.fetch_add(static_cast<int>(n * PacketSize));
  });
}

BYTE* CZOLOutputPort::PopPacket() {
  return Guarded("CZOLOutputPort::PopPacket()", [&]() -> BYTE* {
    std::lock_guard<std::mutex> lock(QueueMutex);
    if (Queue.empty()) return nullptr;
    auto first = Queue.begin();
    BYTE* packet = first->second;
    const DWORD pageKey = static_cast<DWORD>(first->first >> 32) & wire::kPageIdentityMask;
    if ((packet[2] & wire::kFlagLastPacket) != 0) InQueue[pageKey] = 0;
    Queue.erase(first);
    return packet;
  });
}

void CZOLOutputPort::ClearAllPackets(DWORD siteNumber) {
  Guarded("CZOLOutputPort::ClearAllPackets()", [&] {
    std::lock_guard<std::mutex> lock(QueueMutex);
    if (Queue.empty()) return;
    for (auto it = InQueue.begin(); it != InQueue.end();) {
      it = wire::SiteNumber(it->first) == siteNumber ? InQueue.erase(it) : std::next(it);
    }
    int dropped = 0;
    for (auto it = Queue.begin(); it != Queue.end();) {
      if (wire::SiteNumber(static_cast<DWORD>(it->first >> 32)) == siteNumber) {
        delete[] it->second;
        it = Queue.erase(it);
        dropped += static_cast<int>(PacketSize);
      } else {
        ++it;
      }
    }
    int queued = QueuedBytes.load();
    while (!QueuedBytes.compare_exchange_weak(queued, queued - dropped)) {
    }
  });
}

void CZOLOutputPort::Clear() {
  Guarded("CZOLOutputPort::Clear()", [&] {
    SentBytes.store(0);
    TotalBytes = 0;
    QueuedBytes.store(0);
    SampleIndex = 0;
    DataRate = 0;
    Samples.fill(Sample{});
  });
}

void CZOLOutputPort::DetermineDataRate() {
  Guarded("CZOLOutputPort::DetermineDataRate()", [&] {
    const KVTTIME now = GetKVTTimeOfDay();
    const int sent = SentBytes.exchange(0);
    Samples[SampleIndex] = Sample{sent, now};
    TotalBytes += sent;
    if (++SampleIndex >= 10) SampleIndex = 0;
    long long sum = 0;
    for (const Sample& sample : Samples) sum += sample.Bytes;
    const KVTTIME dt = now - Samples[SampleIndex].Time;
    if (dt > 0) DataRate = static_cast<DWORD>(sum * 1000000LL * 8 / dt);
  });
}

void CZOLOutputPort::SetFailureReason(const std::string& reason) {
  Guarded("CZOLOutputPort::SetFailureReason()", [&] {
    {
      std::lock_guard<std::mutex> lock(FailureMutex);
      FailureReason = reason;
    }
    if (!reason.empty()) WriteLog(TypeName + " (ID " + std::to_string(ID) + ") did not start: " + reason + ".");
  });
}

std::string CZOLOutputPort::GetFailureReason() const {
  std::lock_guard<std::mutex> lock(FailureMutex);
  return FailureReason;
}

void CZOLOutputPort::WriteLog(const std::string& line) {
  Guarded("CZOLOutputPort::WriteLog()", [&] { ModuleLog(line); });
}

std::map<DWORD, BYTE> CZOLOutputPort::GetInQueue() {
  std::lock_guard<std::mutex> lock(QueueMutex);
  return InQueue;
}

std::map<DWORD, BYTE> CZOLOutputPort::GetPageSequences() {
  std::lock_guard<std::mutex> lock(QueueMutex);
  return PageSequences;
}

std::size_t CZOLOutputPort::GetQueueLength() {
  std::lock_guard<std::mutex> lock(QueueMutex);
  return Queue.size();
}
