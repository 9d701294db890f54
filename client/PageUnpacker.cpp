#include "client/PageUnpacker.h"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <limits>

#include "distribution/PacketFormat.h"
#include "frame/KVTException.h"

namespace zolclient {

namespace {

DWORD ReadDword(const BYTE* p) {
  return static_cast<DWORD>(p[0]) | (static_cast<DWORD>(p[1]) << 8) | (static_cast<DWORD>(p[2]) << 16) |
         (static_cast<DWORD>(p[3]) << 24);
}

WORD ReadWord(const BYTE* p) { return static_cast<WORD>(p[0] | (p[1] << 8)); }

// Reads fields front to back and refuses to step past the end.
class RecordReader {
 public:
  RecordReader(const BYTE* bytes, std::size_t length) : Bytes(bytes), Length(length) {}
  bool Take(std::size_t count, const BYTE*& at) {
    if (count > Length - Offset) return false;
    at = Bytes + Offset;
    Offset += count;
    return true;
  }
  bool AtEnd() const { return Offset == Length; }

 private:
  const BYTE* Bytes;
  std::size_t Length;
  std::size_t Offset = 0;
};

}  // namespace

const char* DescribeUnpackResult(UnpackResult result) {
  switch (result) {
    case UnpackResult::Ok: return "ok";
    case UnpackResult::BadEscape: return "bad escape";
    case UnpackResult::BadLength: return "impossible length";
    case UnpackResult::BadCompression: return "bad compressed stream";
    case UnpackResult::BadRecord: return "bad page record";
  }
  return "unknown";
}

bool GunzipExact(const BYTE* compressed, std::size_t compressedSize, std::size_t plainSize,
                 std::vector<BYTE>& plain) {
  return Guarded("GunzipExact()", [&] {
    if (compressedSize > std::numeric_limits<uInt>::max() || plainSize > std::numeric_limits<uInt>::max()) {
      return false;
    }
    plain.assign(plainSize, 0);
    z_stream stream{};
    // 15 window bits plus 16: a gzip wrapper and nothing else.
    if (inflateInit2(&stream, 15 + 16) != Z_OK) return false;
    // One spare byte of room shows a stream that would give more than plainSize.
    BYTE spare = 0;
    stream.next_in = const_cast<BYTE*>(compressed);
    stream.avail_in = static_cast<uInt>(compressedSize);
    stream.next_out = plainSize > 0 ? plain.data() : &spare;
    stream.avail_out = static_cast<uInt>(plainSize);
    int result = inflate(&stream, Z_FINISH);
    if (result == Z_BUF_ERROR && stream.avail_out == 0 && plainSize > 0) {
      stream.next_out = &spare;
      stream.avail_out = 1;
      result = inflate(&stream, Z_FINISH);
    }
    const bool exact = result == Z_STREAM_END && stream.total_out == plainSize && stream.avail_in == 0;
    inflateEnd(&stream);
    return exact;
  });
}

bool ParsePageRecord(const BYTE* bytes, std::size_t length, PageRecord& record) {
  return Guarded("ParsePageRecord()", [&] {
    RecordReader reader(bytes, length);
    const BYTE* at = nullptr;
    if (!reader.Take(2, at) || at[0] != 1 || at[1] != 0) return false;
    if (!reader.Take(2, at)) return false;
    const WORD pathLength = ReadWord(at);
    if (!reader.Take(pathLength, at)) return false;
    record.Path.assign(reinterpret_cast<const char*>(at), pathLength);
    if (!reader.Take(2, at)) return false;
    const WORD nameLength = ReadWord(at);
    if (!reader.Take(nameLength, at)) return false;
    record.Name.assign(reinterpret_cast<const char*>(at), nameLength);
    if (!reader.Take(4, at)) return false;
    record.IsTemplate = ReadDword(at);
    if (!reader.Take(4, at)) return false;
    const DWORD dataLength = ReadDword(at);
    if (!reader.Take(dataLength, at)) return false;
    record.Data.assign(at, at + dataLength);
    return reader.AtEnd();
  });
}

UnpackResult UnpackPageStream(const std::vector<BYTE>& escaped, std::size_t lastCapacity, PageRecord& record) {
  return Guarded("UnpackPageStream()", [&] {
    std::vector<BYTE> stream;
    if (!wire::RemoveEscapes(escaped.data(), escaped.size(), stream)) return UnpackResult::BadEscape;
    if (stream.size() < 8) return UnpackResult::BadLength;
    const DWORD plainSize = ReadDword(stream.data());
    const DWORD compressedSize = ReadDword(stream.data() + 4);
    if (compressedSize > stream.size() - 8) return UnpackResult::BadLength;
    // What stands behind the stream can only be the last packet's filler: shorter than
    // that packet's capacity, and all zero.
    const std::size_t filler = stream.size() - 8 - compressedSize;
    if (filler >= lastCapacity) return UnpackResult::BadLength;
    if (!std::all_of(stream.end() - static_cast<std::ptrdiff_t>(filler), stream.end(),
                     [](BYTE b) { return b == 0; })) {
      return UnpackResult::BadLength;
    }
    if (plainSize < kMinRecordSize || plainSize > kMaxPlainSize) return UnpackResult::BadLength;
    if (compressedSize < kMinGzipSize) return UnpackResult::BadLength;
    if (static_cast<std::uint64_t>(plainSize) > static_cast<std::uint64_t>(compressedSize) * kMaxDeflateRatio) {
      return UnpackResult::BadLength;
    }
    std::vector<BYTE> plain;
    if (!GunzipExact(stream.data() + 8, compressedSize, plainSize, plain)) return UnpackResult::BadCompression;
    if (!ParsePageRecord(plain.data(), plain.size(), record)) return UnpackResult::BadRecord;
    return UnpackResult::Ok;
  });
}

}  // namespace zolclient
