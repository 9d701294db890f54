// Collects the chunks of each page by its identity and version and, once a version is
// complete, unpacks it into a page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/PacketScanner.h"
#include "client/PageUnpacker.h"
#include "frame/Types.h"

namespace zolclient {

// Chunks waiting for the rest of their version, over all pages, are kept below this.
inline constexpr std::size_t kMaxPendingBytes = 64u * 1024u * 1024u;

// A packet number has twelve bits, so a page of more than 4096 packets numbers them
// 0 to 4095 again and again. Over a byte stream the packets of a page come in order, so a
// step from near the top of the range (within this many numbers of it) to near its
// bottom, before the page's last packet, starts the next round of numbers.
inline constexpr DWORD kPacketNumberRange = 4096;
inline constexpr DWORD kWrapWindow = 256;
// A step back by at most this many numbers, where no wrap is possible, is a packet
// a little out of order (datagrams); a longer one is a new turn of the carousel.
inline constexpr DWORD kReorderWindow = 64;

struct ReceivedPage {
  DWORD PageIdentity = 0;  // PacketID AND 0xFFFC0000
  DWORD SiteNumber = 0;
  DWORD PageNumber = 0;
  DWORD Level = 0;
  BYTE SequenceHigh = 0;
  BYTE SequenceLow = 0;
  PageRecord Record;
};

struct AssemblyCounters {
  std::uint64_t Packets = 0;
  std::uint64_t Duplicates = 0;         // a packet number of the collected version seen again
  std::uint64_t RepeatsOfComplete = 0;  // packets of a version that was already delivered
  std::uint64_t VersionsReplaced = 0;   // unfinished collections replaced by another version
  std::uint64_t CollectionsDropped = 0; // unfinished collections given up to stay within memory
  std::uint64_t Inconsistent = 0;       // a version whose last packet contradicts its other numbers
  std::uint64_t PagesComplete = 0;      // page versions delivered
  std::uint64_t BadEscape = 0;
  std::uint64_t BadLength = 0;
  std::uint64_t BadCompression = 0;
  std::uint64_t BadRecord = 0;
};

class CPageAssembler {
 public:
  using Sink = std::function<void(const ReceivedPage&)>;

  // Takes one checked packet; calls `sink` when it completes a new page version.
  void Add(const ScannedPacket& packet, const Sink& sink);

  const AssemblyCounters& Counters() const { return Stats; }
  // Page identities of which at least one version was delivered.
  std::size_t DistinctCompletePages() const { return Delivered.size(); }
  std::size_t PendingBytes() const { return Pending; }

  // Forgets which versions were delivered, so that every page is taken again: after a
  // reconnection the server may have restarted and counts its versions from the start.
  void ForgetDeliveredVersions();
  // The same for the pages of one site but `keepIdentity`: a rebuilt site numbers its
  // pages afresh and starts their versions again, so an old version pair means nothing.
  void ForgetDeliveredVersionsOfSite(DWORD siteNumber, DWORD keepIdentity);

 private:
  struct Collection {
    bool Active = false;
    BYTE High = 0;
    BYTE Low = 0;
    std::map<std::uint64_t, std::vector<BYTE>> Chunks;  // by position: round * 4096 + packet number
    long long LastPosition = -1;  // position of the last packet, once it came
    bool HasPrevious = false;      // the fields below describe the packet taken before
    DWORD PreviousNumber = 0;
    bool PreviousWasLast = false;
    std::uint64_t Round = 0;       // how often the packet numbers wrapped before this packet
    std::size_t Bytes = 0;
    bool HasDelivered = false;
    BYTE DeliveredHigh = 0;
    BYTE DeliveredLow = 0;
  };

  void Forget(Collection& collection);
  // Where a packet with this number stands in its page version, counting the wraps.
  static std::uint64_t Position(Collection& collection, DWORD number, bool isLast);
  void DropAllUnfinished();
  void TryComplete(DWORD identity, Collection& collection, const Sink& sink);

  std::unordered_map<DWORD, Collection> Pages;
  std::set<DWORD> Delivered;
  std::size_t Pending = 0;
  AssemblyCounters Stats;
};

}  // namespace zolclient
