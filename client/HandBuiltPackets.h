// Test helper: builds packets by the wire rules, step by step, so that tests of the
// receiving side do not depend on the sender's code and can break any step on purpose.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <string>
#include <vector>

#include "distribution/PacketFormat.h"
#include "frame/Types.h"

namespace handbuilt {

using Bytes = std::vector<BYTE>;

// Appends `count` bytes. The room is made first and the bytes copied one by one: g++ 12
// at -O3 takes the vector's own growing inserts here for overflows, falsely.
inline void AppendBytes(Bytes& out, const BYTE* bytes, std::size_t count) {
  const std::size_t at = out.size();
  out.resize(at + count);
  for (std::size_t i = 0; i < count; ++i) out[at + i] = bytes[i];
}

inline void AppendBytes(Bytes& out, const Bytes& more) { AppendBytes(out, more.data(), more.size()); }

// The little-endian bytes of a value appended to `out`.
template <std::size_t Count>
inline void PutLittleEndian(Bytes& out, DWORD value) {
  BYTE bytes[Count];
  for (std::size_t i = 0; i < Count; ++i) bytes[i] = static_cast<BYTE>(value >> (8 * i));
  AppendBytes(out, bytes, Count);
}

inline void PutWord(Bytes& out, WORD value) { PutLittleEndian<2>(out, value); }

inline void PutDword(Bytes& out, DWORD value) { PutLittleEndian<4>(out, value); }

inline void PutText(Bytes& out, const std::string& text) {
  PutWord(out, static_cast<WORD>(text.size()));
  const auto* bytes = reinterpret_cast<const BYTE*>(text.data());
  AppendBytes(out, bytes, text.size());
}

inline Bytes PageRecordBytes(const std::string& path, const std::string& name, DWORD isTemplate,
                             const Bytes& data) {
  Bytes record;
  record.reserve(2 + 2 + path.size() + 2 + name.size() + 8 + data.size());
  PutWord(record, 1);
  PutText(record, path);
  PutText(record, name);
  PutDword(record, isTemplate);
  PutDword(record, static_cast<DWORD>(data.size()));
  AppendBytes(record, data);
  return record;
}

// gzip wrapper, default level, as the sender compresses.
inline Bytes Gzip(const Bytes& plain) {
  Bytes out(2 * plain.size() + 64);
  z_stream stream{};
  deflateInit2(&stream, -1, 8, 31, 8, 0);
  stream.next_in = const_cast<BYTE*>(plain.data());
  stream.avail_in = static_cast<uInt>(plain.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

// PlainSize, CompressedSize, then the compressed bytes; not yet escaped.
inline Bytes PageStream(DWORD plainSize, DWORD compressedSize, const Bytes& compressed) {
  Bytes stream;
  PutDword(stream, plainSize);
  PutDword(stream, compressedSize);
  AppendBytes(stream, compressed);
  return stream;
}

inline Bytes PageStreamOf(const Bytes& record) {
  const Bytes compressed = Gzip(record);
  return PageStream(static_cast<DWORD>(record.size()), static_cast<DWORD>(compressed.size()), compressed);
}

// Escapes the stream and cuts it into checksummed blocks of `packetSize` bytes.
inline std::vector<Bytes> CutPackets(DWORD pageKey, BYTE sequenceHigh, BYTE sequenceLow, Bytes stream,
                                     std::size_t packetSize = 128) {
  wire::InsertEscapes(stream);
  std::vector<Bytes> packets;
  std::size_t offset = 0;
  DWORD number = 0;
  std::size_t remaining = stream.size();
  while (remaining != 0) {
    Bytes id;
    PutDword(id, wire::MakePacketID(pageKey, number, sequenceLow));
    wire::InsertEscapes(id);
    const std::size_t capacity = packetSize - (id.size() + 7);
    const std::size_t chunk = capacity < remaining ? capacity : remaining;
    Bytes block(packetSize, 0);
    block[0] = wire::kStartMark;
    block[1] = sequenceHigh;
    block[2] = static_cast<BYTE>((id.size() << 1) | (chunk == remaining ? 1 : 0));
    std::copy(id.begin(), id.end(), block.begin() + 6);
    std::copy(stream.begin() + static_cast<std::ptrdiff_t>(offset),
              stream.begin() + static_cast<std::ptrdiff_t>(offset + chunk),
              block.begin() + 6 + static_cast<std::ptrdiff_t>(id.size()));
    if (packetSize > 127) block[127] = wire::kEndMark;
    wire::StoreChecksum(block.data(), wire::PacketChecksum(block.data(), block.size()));
    packets.push_back(block);
    offset += chunk;
    remaining -= chunk;
    ++number;
  }
  return packets;
}

inline std::vector<Bytes> PagePackets(DWORD site, DWORD page, BYTE sequenceHigh, BYTE sequenceLow,
                                      const std::string& path, const std::string& name, const Bytes& data,
                                      std::size_t packetSize = 128, DWORD level = 0, DWORD isTemplate = 0) {
  return CutPackets(wire::MakePageKey(site, page, level), sequenceHigh, sequenceLow,
                    PageStreamOf(PageRecordBytes(path, name, isTemplate, data)), packetSize);
}

// Recomputes the checksum of a block after a test changed it on purpose.
inline void Reseal(Bytes& block) {
  block[3] = block[4] = block[5] = 0;
  wire::StoreChecksum(block.data(), wire::PacketChecksum(block.data(), block.size()));
}

inline Bytes Join(const std::vector<Bytes>& packets) {
  Bytes all;
  for (const Bytes& p : packets) AppendBytes(all, p);
  return all;
}

inline Bytes TextBytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

// `count` bytes that look random and are the same for the same seed.
inline Bytes SeededBytes(std::size_t count, unsigned seed) {
  Bytes data(count);
  unsigned x = seed;
  for (auto& b : data) {
    x = x * 1103515245u + 12345u;
    b = static_cast<BYTE>(x >> 16);
  }
  return data;
}

}  // namespace handbuilt
