// The base of everything that sends: a queue of packet copies sorted by key, a sending
// thread, and byte counters that yield a data rate.
#pragma once

#include <array>
#include <cstdint>
#include <atomic>
#include <map>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>

#include "distribution/OutputPage.h"
#include "frame/Types.h"

class CIniFile;
class CKVTHttpRequest;

class CZOLOutputPort {
 public:
  explicit CZOLOutputPort(DWORD id);
  CZOLOutputPort(const CZOLOutputPort&) = delete;
  CZOLOutputPort& operator=(const CZOLOutputPort&) = delete;
  // Frees the queue. A subclass stops its thread in its own destructor.
  virtual ~CZOLOutputPort();

  virtual void LoadSettings(CIniFile& ini, const std::string& section) = 0;
  virtual void SaveSettings(CIniFile& ini, const std::string& section) = 0;
  virtual void Start() = 0;
  // Lowers the flag, waits for the thread, empties the queue and clears the counters.
  virtual void Stop();
  // The sending loop: bursts of PacketsPerBurst packets, PacketDelay milliseconds apart.
  virtual void Run();
  // Copies a page's packets into the queue, unless a version of it still waits there.
  virtual void UpdatePage(DWORD key, BYTE sequence, const PacketBlocks& packets);
  // Drops the queued packets of one site.
  virtual void ClearAllPackets(DWORD siteNumber);
  // The port's row in the overview of stream clients.
  virtual std::string GetStatisticsAsHTML();
  // What the first cell of that row names: the port's type, or a client's address.
  virtual std::string GetConnectionName() const { return TypeName; }
  // Bits per second over the last ten calls; called once a second.
  virtual void DetermineDataRate();
  // The fields of the port's own settings in its editor on the main page.
  virtual std::string GetSettingsAsHTML();
  // What is wrong with the posted editor form, for the page; empty when every value can
  // be taken. A refused form changes nothing.
  virtual std::string CheckPost(const CKVTHttpRequest& request);
  // Applies the posted editor form: 1 when anything changed (the port was stopped and,
  // if asked, started again), 0 when all values stood as they were or were refused.
  virtual BOOL ProcessPost(CKVTHttpRequest& request);
  virtual void SendPacket(const BYTE* packet) = 0;

  // The port's row in the port overview, with its hidden editor row; the forms carry the
  // request's anti-forgery token.
  std::string GetPortAsHTML(const CKVTHttpRequest& request);
  // The state cells of the port's row: green with the state and information texts while
  // it runs, else red "None" with the reason its last start failed, if there is one.
  std::string GetStateCellsAsHTML();
  // Why the last start failed ("cannot listen on TCP port 51000: address in use"); empty
  // when it did not fail. Set by the sending thread too, so kept under a lock.
  std::string GetFailureReason() const;

  // The packet with the lowest key, or null; the caller frees it with delete[].
  BYTE* PopPacket();
  void Clear();
  // Hands a composed line to the host's log.
  void WriteLog(const std::string& line);

  DWORD GetID() const { return ID; }
  const std::string& GetTypeName() const { return TypeName; }
  const std::string& GetInfoLine1() const { return InfoLine1; }
  const std::string& GetInfoLine2() const { return InfoLine2; }
  int IsRunning() const { return Running.load(); }
  // The socket or device handle; -1 when none is open.
  int GetPortHandle() const { return Handle; }
  DWORD GetType() const { return Type; }
  int GetSentBytes() const { return SentBytes.load(); }
  int GetQueuedBytes() const { return QueuedBytes.load(); }
  int GetPacketsPerBurst() const { return PacketsPerBurst; }
  long long GetTotalBytes() const { return TotalBytes; }
  DWORD GetDataRate() const { return DataRate; }
  int GetSampleIndex() const { return SampleIndex; }
  // Snapshots of the maps, taken under the queue lock.
  std::map<DWORD, BYTE> GetInQueue();
  std::map<DWORD, BYTE> GetPageSequences();
  virtual std::size_t GetQueueLength();
  // The queue key of a page key and a packet number.
  static std::uint64_t QueueKey(DWORD pageKey, DWORD packetNumber) {
    return (static_cast<std::uint64_t>(pageKey) << 32) | packetNumber;
  }

 protected:
  struct Sample {
    int Bytes = 0;
    KVTTIME Time = 0;
  };

  // Starts the sending thread on Run.
  void StartThread();
  // Waits until a thread that ended by itself is gone.
  void JoinThread();
  // The pause between two bursts; PacketDelay milliseconds.
  virtual void PauseBetweenBursts();
  // After one packet went (or was tried): the queue counter falls, the sent one grows.
  void CountPacketSent();
  void CountBytesSent(int bytes);
  // Frees every queued block and empties the maps.
  void ClearQueue();
  // Records why a start failed and logs it; a start that works clears it with "".
  void SetFailureReason(const std::string& reason);

  DWORD ID = 0;
  std::string TypeName;
  std::string InfoLine1;
  std::string InfoLine2;
  std::atomic<int> Running{0};
  int Handle = -1;
  DWORD Type = 0;
  std::atomic<int> SentBytes{0};
  std::atomic<int> QueuedBytes{0};
  int PacketsPerBurst = 1;
  long long TotalBytes = 0;
  std::array<Sample, 10> Samples{};
  int SampleIndex = 0;
  DWORD DataRate = 0;
  std::counting_semaphore<100000> StopSemaphore{0};
  std::mutex QueueMutex;
  // Keyed by the page key in the high half and the packet number in the low half: the
  // order is level, page, site, packet number, and a page of more than 4096 packets
  // keeps every packet apart (the packet number on the wire has only 12 bits).
  std::map<std::uint64_t, BYTE*> Queue;
  std::map<DWORD, BYTE> InQueue;
  std::map<DWORD, BYTE> PageSequences;
  std::thread Thread;

 private:
  mutable std::mutex FailureMutex;
  std::string FailureReason;
};
