// Finds packets in what a port delivers: a byte stream (TCP, serial), where packets are
// found by their start mark, or datagrams (multicast), where each datagram is one packet.
// Every block is checked (end mark, checksum, header fields) before its chunk is handed on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "frame/Types.h"

namespace zolclient {

inline constexpr std::size_t kDefaultPacketSize = 128;
inline constexpr std::size_t kMinPacketSize = 16;
inline constexpr std::size_t kMaxPacketSize = 128;

// One checked packet. `Chunk` holds every byte from behind the packet identifier up to
// the capacity, so the last packet of a page brings its filler along.
struct ScannedPacket {
  DWORD PacketID = 0;
  BYTE SequenceHigh = 0;
  bool IsLast = false;
  std::vector<BYTE> Chunk;
};

struct ScanCounters {
  std::uint64_t Good = 0;
  std::uint64_t BadChecksum = 0;
  std::uint64_t BadEndMark = 0;
  std::uint64_t BadHeader = 0;     // checksum right, but flags or identifier impossible
  std::uint64_t BadSize = 0;       // a datagram that is not one packet long
  std::uint64_t Resyncs = 0;       // times the stream was out of step and searched for a start mark
  std::uint64_t SkippedBytes = 0;  // bytes passed over while searching
  std::uint64_t TruncatedBytes = 0;  // bytes of an unfinished block thrown away by Reset
};

class CPacketScanner {
 public:
  using Sink = std::function<void(const ScannedPacket&)>;

  // `packetSize` must lie between kMinPacketSize and kMaxPacketSize.
  explicit CPacketScanner(std::size_t packetSize = kDefaultPacketSize);

  // Byte-stream mode: appends the bytes and hands every complete good packet to `sink`.
  // An unfinished block at the end waits for the next call.
  void Feed(const BYTE* data, std::size_t length, const Sink& sink);

  // Datagram mode: the datagram must be exactly one packet.
  void FeedDatagram(const BYTE* data, std::size_t length, const Sink& sink);

  // Forgets an unfinished block, as when a new connection starts at a packet boundary.
  void Reset();

  // Checks one block of PacketSize bytes; fills `packet` when it is good.
  enum class BlockState { Good, BadChecksum, BadEndMark, BadHeader };
  BlockState CheckBlock(const BYTE* block, ScannedPacket& packet) const;

  // Told of every block checked, good or not, before a good one goes to the sink (for
  // zolclient --trace). `packet` is filled only when the block is good.
  using BlockWatcher = std::function<void(const BYTE* block, BlockState state, const ScannedPacket& packet)>;
  void WatchBlocks(BlockWatcher watcher) { Watcher = std::move(watcher); }

  const ScanCounters& Counters() const { return Stats; }
  std::size_t PacketSize() const { return Size; }

 private:
  void Count(BlockState state);

  std::size_t Size;
  std::vector<BYTE> Pending;
  bool InStep = true;
  ScanCounters Stats;
  BlockWatcher Watcher;
};

}  // namespace zolclient
