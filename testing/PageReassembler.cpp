#include "testing/PageReassembler.h"

#include <zlib.h>

#include <cstring>

#include "distribution/PacketFormat.h"

namespace {

DWORD ReadDword(const BYTE* p) {
  return static_cast<DWORD>(p[0]) | (static_cast<DWORD>(p[1]) << 8) | (static_cast<DWORD>(p[2]) << 16) |
         (static_cast<DWORD>(p[3]) << 24);
}

bool Gunzip(const BYTE* data, std::size_t length, std::size_t plainSize, std::vector<BYTE>& out) {
  out.assign(plainSize, 0);
  z_stream stream{};
  if (inflateInit2(&stream, 31) != Z_OK) return false;
  stream.next_in = const_cast<Bytef*>(data);
  stream.avail_in = static_cast<uInt>(length);
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  const int result = inflate(&stream, Z_FINISH);
  const bool ok = result == Z_STREAM_END && stream.total_out == plainSize;
  inflateEnd(&stream);
  return ok;
}

}  // namespace

void CTestReassembler::FeedStream(const BYTE* data, std::size_t length) {
  Pending.insert(Pending.end(), data, data + length);
  std::size_t at = 0;
  while (true) {
    while (at < Pending.size() && Pending[at] != wire::kStartMark) ++at;
    if (Pending.size() - at < PacketSize) break;
    if (FeedBlock(Pending.data() + at)) {
      at += PacketSize;
    } else {
      ++at;  // look for the next start mark
    }
  }
  Pending.erase(Pending.begin(), Pending.begin() + static_cast<std::ptrdiff_t>(at));
}

bool CTestReassembler::FeedBlock(const BYTE* source) {
  std::vector<BYTE> block(source, source + PacketSize);
  if (block[0] != wire::kStartMark || (PacketSize > wire::kEndMarkIndex && block[wire::kEndMarkIndex] != wire::kEndMark)) {
    ++DroppedBlocks;
    return false;
  }
  const WORD stated = wire::LoadChecksum(block.data());
  block[3] = block[4] = block[5] = 0;
  if (wire::PacketChecksum(block.data(), PacketSize) != stated) {
    ++DroppedBlocks;
    return false;
  }
  const std::size_t headerLength = (block[2] >> 1) & 0x0F;
  std::vector<BYTE> idBytes;
  if (headerLength < 4 || headerLength > 8 ||
      !wire::RemoveEscapes(block.data() + 6, headerLength, idBytes) || idBytes.size() != 4) {
    ++DroppedBlocks;
    return false;
  }
  const DWORD packetId = ReadDword(idBytes.data());
  const DWORD identity = packetId & wire::kPageIdentityMask;
  const DWORD number = wire::PacketNumber(packetId);
  const BYTE low = static_cast<BYTE>(wire::SequenceLowOf(packetId));
  const BYTE high = block[1];

  Collecting& page = Pages[identity];
  if (!page.Started || page.SequenceHigh != high || page.SequenceLow != low) {
    page = Collecting{};
    page.Started = true;
    page.SequenceHigh = high;
    page.SequenceLow = low;
  } else if (number < page.LastNumber && page.LastNumber - number > 2048) {
    ++page.Epoch;
  }
  page.LastNumber = number;
  const DWORD index = page.Epoch * 4096 + number;
  const std::size_t capacity = PacketSize - (headerLength + 7);
  page.Chunks[index].assign(block.begin() + 6 + static_cast<std::ptrdiff_t>(headerLength),
                            block.begin() + 6 + static_cast<std::ptrdiff_t>(headerLength + capacity));
  if ((block[2] & wire::kFlagLastPacket) != 0) {
    page.HaveLast = true;
    page.LastIndex = index;
  }
  if (page.HaveLast && page.Chunks.size() == page.LastIndex + 1) {
    Finish(identity, page);
    Pages.erase(identity);
  }
  return true;
}

void CTestReassembler::Finish(DWORD identity, Collecting& page) {
  std::vector<BYTE> escaped;
  for (auto& chunk : page.Chunks) escaped.insert(escaped.end(), chunk.second.begin(), chunk.second.end());
  std::vector<BYTE> stream;
  wire::RemoveEscapes(escaped.data(), escaped.size(), stream);
  if (stream.size() < 8) {
    ++BadPages;
    return;
  }
  const DWORD plainSize = ReadDword(stream.data());
  const DWORD compressedSize = ReadDword(stream.data() + 4);
  std::vector<BYTE> record;
  if (stream.size() < 8u + compressedSize || !Gunzip(stream.data() + 8, compressedSize, plainSize, record) ||
      record.size() < 16 || record[0] != 1 || record[1] != 0) {
    ++BadPages;
    return;
  }
  ReceivedPage out;
  out.PageIdentity = identity;
  out.SequenceHigh = page.SequenceHigh;
  out.SequenceLow = page.SequenceLow;
  out.Packets = page.Chunks.size();
  std::size_t at = 2;
  const std::size_t pathLength = record[at] | (record[at + 1] << 8);
  at += 2;
  out.Path.assign(reinterpret_cast<const char*>(record.data() + at), pathLength);
  at += pathLength;
  const std::size_t nameLength = record[at] | (record[at + 1] << 8);
  at += 2;
  out.Name.assign(reinterpret_cast<const char*>(record.data() + at), nameLength);
  at += nameLength;
  out.IsTemplate = ReadDword(record.data() + at);
  at += 4;
  const DWORD dataLength = ReadDword(record.data() + at);
  at += 4;
  if (record.size() != at + dataLength) {
    ++BadPages;
    return;
  }
  out.Data.assign(record.begin() + static_cast<std::ptrdiff_t>(at), record.end());
  Completed.push_back(std::move(out));
}
