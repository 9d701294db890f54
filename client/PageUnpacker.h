// Turns the collected chunks of one page version into the page record: un-escape, read
// the two sizes, gunzip, parse. Every length is checked against what is really there.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "frame/Types.h"

namespace zolclient {

// No page is believed to be larger than this before compression.
inline constexpr DWORD kMaxPlainSize = 64u * 1024u * 1024u;
// Deflate cannot shrink data by more than about 1032 to 1; anything beyond is impossible.
inline constexpr DWORD kMaxDeflateRatio = 1032;
// Type, version, two name lengths, IsTemplate and data length.
inline constexpr std::size_t kMinRecordSize = 14;
// A gzip member has a 10-byte header and an 8-byte trailer.
inline constexpr std::size_t kMinGzipSize = 18;

struct PageRecord {
  std::string Path;
  std::string Name;
  DWORD IsTemplate = 0;
  std::vector<BYTE> Data;
};

enum class UnpackResult {
  Ok,
  BadEscape,       // an escape byte followed by something else, or cut off
  BadLength,       // sizes that the packets cannot hold, or beyond the limits
  BadCompression,  // the gzip stream does not give PlainSize bytes
  BadRecord,       // the page record's fields do not add up to PlainSize
};

const char* DescribeUnpackResult(UnpackResult result);

// `escaped` is the concatenation of all chunks of a version, the last one with its
// filler; `lastCapacity` is the capacity of the last packet (its filler is shorter).
UnpackResult UnpackPageStream(const std::vector<BYTE>& escaped, std::size_t lastCapacity, PageRecord& record);

// Gunzips exactly `compressedSize` bytes into exactly `plainSize` bytes.
bool GunzipExact(const BYTE* compressed, std::size_t compressedSize, std::size_t plainSize,
                 std::vector<BYTE>& plain);

// Parses a page record that must fill `length` bytes exactly.
bool ParsePageRecord(const BYTE* bytes, std::size_t length, PageRecord& record);

}  // namespace zolclient
