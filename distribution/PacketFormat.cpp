#include "distribution/PacketFormat.h"

#include <array>

namespace wire {

namespace {

std::array<WORD, 256> MakeChecksumTable() {
  std::array<WORD, 256> table{};
  for (unsigned i = 0; i < 256; ++i) {
    unsigned value = i << 8;
    for (int bit = 0; bit < 8; ++bit) {
      const bool out = (value & 0x8000) != 0;
      value = (value << 1) & 0xFFFF;
      if (out) value ^= 0x1021;
    }
    table[i] = static_cast<WORD>(value);
  }
  return table;
}

const std::array<WORD, 256> kChecksumTable = MakeChecksumTable();

bool IsReserved(BYTE b) { return b == kEscape || b == kStartMark || b == kEndMark; }

}  // namespace

WORD PacketChecksum(const BYTE* data, std::size_t length) {
  unsigned reg = 0xFFFF;
  for (std::size_t i = 0; i < length; ++i) {
    reg = kChecksumTable[reg >> 8] ^ ((reg << 8) & 0xFFFF) ^ data[i];
  }
  return static_cast<WORD>(reg);
}

void InsertEscapes(std::vector<BYTE>& bytes) {
  std::size_t reserved = 0;
  for (BYTE b : bytes) reserved += IsReserved(b) ? 1 : 0;
  if (reserved == 0) return;
  std::vector<BYTE> escaped;
  escaped.reserve(bytes.size() + reserved);
  for (BYTE b : bytes) {
    if (IsReserved(b)) {
      escaped.push_back(kEscape);
      escaped.push_back(static_cast<BYTE>(b + 0x20));
    } else {
      escaped.push_back(b);
    }
  }
  bytes.swap(escaped);
}

bool RemoveEscapes(const BYTE* data, std::size_t length, std::vector<BYTE>& out) {
  out.clear();
  out.reserve(length);
  for (std::size_t i = 0; i < length; ++i) {
    if (data[i] != kEscape) {
      out.push_back(data[i]);
      continue;
    }
    if (i + 1 >= length) return false;
    const BYTE next = data[++i];
    if (next < 0xAD || next > 0xAF) return false;
    out.push_back(static_cast<BYTE>(next - 0x20));
  }
  return true;
}

void StoreChecksum(BYTE* packet, WORD checksum) {
  packet[kChecksumOffset] = static_cast<BYTE>(checksum & 0x3F);
  packet[kChecksumOffset + 1] = static_cast<BYTE>((checksum >> 6) & 0x3F);
  packet[kChecksumOffset + 2] = static_cast<BYTE>((checksum >> 12) & 0x0F);
}

WORD LoadChecksum(const BYTE* packet) {
  return static_cast<WORD>((packet[kChecksumOffset] & 0x3F) | ((packet[kChecksumOffset + 1] & 0x3F) << 6) |
                           ((packet[kChecksumOffset + 2] & 0x0F) << 12));
}

}  // namespace wire
