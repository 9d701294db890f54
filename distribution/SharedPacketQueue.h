// The packets of a page version copied once and shared read-only by every client of a
// TCP port, and a client's queue of them. A client holds references, so the memory of a
// port grows with the pages waiting, not with clients times pages.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <vector>

#include "distribution/OutputPage.h"
#include "frame/Types.h"
#include "frame/platform/Sockets.h"

class CSharedPageVersion {
 public:
  CSharedPageVersion(DWORD key, BYTE sequence, const PacketBlocks& packets, std::size_t packetSize);

  DWORD GetKey() const { return Key; }
  BYTE GetSequence() const { return Sequence; }
  std::size_t GetPacketSize() const { return PacketSize; }
  std::size_t GetPacketCount() const { return PacketCount; }
  const BYTE* GetBytes() const { return Bytes.data(); }

 private:
  DWORD Key;
  BYTE Sequence;
  std::size_t PacketSize;
  std::size_t PacketCount;
  std::vector<BYTE> Bytes;
};

using SharedPageVersion = std::shared_ptr<const CSharedPageVersion>;

// Pages by key, lowest first, each from its next packet on: the order in which packets
// leave is that of a queue of single packets sorted by page key and packet number. The
// rest of a packet that a send cut short goes before anything else, so the stream never
// breaks inside a packet. Not locked: its owner keeps it under its own lock.
class CSharedPacketQueue {
 public:
  // Queues the version, unless a version of that page still waits: that one goes out, a
  // newer one comes with the page's next repeat. True when queued.
  bool Add(const SharedPageVersion& version);
  // Drops the waiting pages of one site; the rest of a cut packet stays. The bytes dropped.
  std::size_t DropSite(DWORD siteNumber);
  void Clear();
  // The bytes to send next, in order, in at most `most` spans; how many were filled.
  std::size_t NextSpans(platform::ByteSpan* spans, std::size_t most) const;
  // The first `bytes` of what NextSpans gave have gone out.
  void Consume(std::size_t bytes);

  std::size_t GetQueuedBytes() const { return QueuedBytes; }
  // Packets not yet begun, and the cut one if any.
  std::size_t GetPacketCount() const;
  bool Holds(DWORD key) const { return Pages.count(key) != 0; }
  bool IsEmpty() const { return QueuedBytes == 0; }

 private:
  struct Waiting {
    SharedPageVersion Version;
    std::size_t NextPacket = 0;
  };
  std::map<DWORD, Waiting> Pages;
  SharedPageVersion Cut;
  std::size_t CutFrom = 0;
  std::size_t CutTo = 0;
  std::size_t QueuedBytes = 0;
};
