// The wire format shared by the sender and every receiver: reserved byte values, the
// escapes, the packet header fields, the packet identifier bits and the packet checksum.
#pragma once

#include <cstddef>
#include <vector>

#include "frame/Types.h"

namespace wire {

inline constexpr BYTE kEscape = 0x8D;
inline constexpr BYTE kStartMark = 0x8E;
inline constexpr BYTE kEndMark = 0x8F;
// The end mark stands at this index whatever the packet size; below 128 it is left out.
inline constexpr std::size_t kEndMarkIndex = 127;
inline constexpr std::size_t kHeaderBytes = 6;  // start, sequence high, flags, 3 checksum bytes
inline constexpr std::size_t kChecksumOffset = 3;

inline constexpr BYTE kFlagLastPacket = 0x01;

// Page identity inside a packet identifier; the rest is packet number and SequenceLow.
inline constexpr DWORD kPageIdentityMask = 0xFFFC0000;

// A page number has nine bits: a site holds pages 0 to 511.
inline constexpr DWORD kLastPageNumber = 0x1FF;

constexpr DWORD MakePageKey(DWORD siteNumber, DWORD pageNumber, DWORD level) {
  return (level << 30) | ((pageNumber & kLastPageNumber) << 21) | ((siteNumber & 0x7) << 18);
}
constexpr DWORD PageLevel(DWORD key) { return key >> 30; }
constexpr DWORD PageNumber(DWORD key) { return (key >> 21) & kLastPageNumber; }
constexpr DWORD SiteNumber(DWORD key) { return (key >> 18) & 0x7; }
constexpr DWORD PacketNumber(DWORD packetId) { return (packetId >> 6) & 0xFFF; }
constexpr DWORD SequenceLowOf(DWORD packetId) { return packetId & 0x3F; }
constexpr DWORD MakePacketID(DWORD pageKey, DWORD packetNumber, DWORD sequenceLow) {
  return pageKey | ((packetNumber & 0xFFF) << 6) | (sequenceLow & 0x3F);
}

// The packet checksum: a 16-bit CRC with register start 0xFFFF, the byte entering at the
// low end behind the table step, no final XOR.
WORD PacketChecksum(const BYTE* data, std::size_t length);

// Puts 0x8D before each 0x8D, 0x8E or 0x8F and adds 0x20 to that byte.
void InsertEscapes(std::vector<BYTE>& bytes);

// The inverse of InsertEscapes. Returns false when an escape is followed by a byte
// other than 0xAD, 0xAE or 0xAF, or ends the input; `out` then holds what was decoded.
bool RemoveEscapes(const BYTE* data, std::size_t length, std::vector<BYTE>& out);

// Splits a checksum into the three six-bit header bytes, and joins them again.
void StoreChecksum(BYTE* packet, WORD checksum);
WORD LoadChecksum(const BYTE* packet);

}  // namespace wire
