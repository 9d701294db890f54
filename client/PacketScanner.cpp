#include "client/PacketScanner.h"

#include <algorithm>
#include <array>

#include "distribution/PacketFormat.h"
#include "frame/KVTException.h"

namespace zolclient {

CPacketScanner::CPacketScanner(std::size_t packetSize) : Size(packetSize) {
  Guarded("CPacketScanner::CPacketScanner()", [&] {
    if (packetSize < kMinPacketSize || packetSize > kMaxPacketSize) ThrowKVT("packet size");
    Pending.reserve(2 * kMaxPacketSize);
  });
}

CPacketScanner::BlockState CPacketScanner::CheckBlock(const BYTE* block, ScannedPacket& packet) const {
  return Guarded("CPacketScanner::CheckBlock()", [&] {
    if (block[0] != wire::kStartMark) return BlockState::BadHeader;
    if (Size > wire::kEndMarkIndex && block[wire::kEndMarkIndex] != wire::kEndMark) {
      return BlockState::BadEndMark;
    }
    // The three checksum bytes carry six, six and four bits; anything above is foreign.
    const BYTE* sum = block + wire::kChecksumOffset;
    if (sum[0] > 0x3F || sum[1] > 0x3F || sum[2] > 0x0F) return BlockState::BadChecksum;
    std::array<BYTE, kMaxPacketSize> copy{};
    std::copy(block, block + Size, copy.begin());
    std::fill(copy.begin() + wire::kChecksumOffset, copy.begin() + wire::kChecksumOffset + 3, BYTE{0});
    if (wire::PacketChecksum(copy.data(), Size) != wire::LoadChecksum(block)) return BlockState::BadChecksum;

    const BYTE sequenceHigh = block[1];
    const BYTE flags = block[2];
    if (sequenceHigh >= 0x80 || flags >= 0x20) return BlockState::BadHeader;
    const std::size_t idLength = (flags >> 1) & 0x0F;
    if (idLength < 4 || idLength > 8) return BlockState::BadHeader;
    std::vector<BYTE> id;
    if (!wire::RemoveEscapes(block + wire::kHeaderBytes, idLength, id) || id.size() != 4) {
      return BlockState::BadHeader;
    }
    const std::size_t begin = wire::kHeaderBytes + idLength;
    const std::size_t capacity = Size - (idLength + 7);
    packet.PacketID = static_cast<DWORD>(id[0]) | (static_cast<DWORD>(id[1]) << 8) |
                      (static_cast<DWORD>(id[2]) << 16) | (static_cast<DWORD>(id[3]) << 24);
    packet.SequenceHigh = sequenceHigh;
    packet.IsLast = (flags & wire::kFlagLastPacket) != 0;
    packet.Chunk.assign(block + begin, block + begin + capacity);
    return BlockState::Good;
  });
}

void CPacketScanner::Count(BlockState state) {
  switch (state) {
    case BlockState::Good: ++Stats.Good; break;
    case BlockState::BadChecksum: ++Stats.BadChecksum; break;
    case BlockState::BadEndMark: ++Stats.BadEndMark; break;
    case BlockState::BadHeader: ++Stats.BadHeader; break;
  }
}

void CPacketScanner::Feed(const BYTE* data, std::size_t length, const Sink& sink) {
  Guarded("CPacketScanner::Feed()", [&] {
    Pending.insert(Pending.end(), data, data + length);
    std::size_t start = 0;
    ScannedPacket packet;
    while (start < Pending.size()) {
      if (Pending[start] != wire::kStartMark) {
        const auto found = std::find(Pending.begin() + static_cast<std::ptrdiff_t>(start), Pending.end(),
                                     wire::kStartMark);
        const std::size_t next = static_cast<std::size_t>(found - Pending.begin());
        Stats.SkippedBytes += next - start;
        if (InStep) ++Stats.Resyncs;
        InStep = false;
        start = next;
        continue;
      }
      if (Pending.size() - start < Size) break;
      const BlockState state = CheckBlock(Pending.data() + start, packet);
      Count(state);
      if (Watcher) Watcher(Pending.data() + start, state, packet);
      if (state == BlockState::Good) {
        InStep = true;
        start += Size;
        sink(packet);
      } else {
        // A 0x8E never stands inside a good packet, so the next one can begin right behind.
        if (InStep) ++Stats.Resyncs;
        InStep = false;
        ++Stats.SkippedBytes;
        start += 1;
      }
    }
    Pending.erase(Pending.begin(), Pending.begin() + static_cast<std::ptrdiff_t>(start));
  });
}

void CPacketScanner::FeedDatagram(const BYTE* data, std::size_t length, const Sink& sink) {
  Guarded("CPacketScanner::FeedDatagram()", [&] {
    if (length != Size) {
      ++Stats.BadSize;
      return;
    }
    ScannedPacket packet;
    const BlockState state = CheckBlock(data, packet);
    Count(state);
    if (Watcher) Watcher(data, state, packet);
    if (state == BlockState::Good) sink(packet);
  });
}

void CPacketScanner::Reset() {
  Guarded("CPacketScanner::Reset()", [&] {
    Stats.TruncatedBytes += Pending.size();
    Pending.clear();
    InStep = true;
  });
}

}  // namespace zolclient
