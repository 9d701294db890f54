// The recording zolclient writes with --record and plays back from replay:FILE: what
// the source delivered, read by read, with the moment each read came.
//
// All numbers are little-endian. A file is a header, then records until the end:
//
//   header (20 bytes)
//     0   8  magic "ZOLREC\r\n"
//     8   2  format version, 1
//     10  1  source kind: 0 a byte stream (TCP, serial), 1 datagrams (UDP)
//     11  1  0
//     12  8  wall-clock milliseconds since 1970 (UTC) when recording began; for people
//
//   record (17 bytes and the data)
//     0   8  microseconds since recording began; never less than the record before
//     8   4  length of the data, at most kMaxRecordLength
//     12  1  kind: 0 data (one read of a stream, or one datagram),
//                  1 a new connection, length 0: the stream starts afresh after it
//     13  N  the data
//     13+N 4 CRC-32 (the zlib one) of the 13 head bytes and the data
//
// Anything else where a record should begin is damage: the reader stops there and says
// at which byte and which record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "frame/Types.h"

namespace zolclient {

inline constexpr char kRecordingMagic[8] = {'Z', 'O', 'L', 'R', 'E', 'C', '\r', '\n'};
inline constexpr std::uint16_t kRecordingVersion = 1;
inline constexpr std::size_t kRecordingHeaderSize = 20;
inline constexpr std::size_t kRecordHeadSize = 13;
inline constexpr std::size_t kRecordCheckSize = 4;
inline constexpr std::uint32_t kMaxRecordLength = std::uint32_t{1} << 20;

enum class RecordKind : BYTE { Data = 0, NewConnection = 1 };

struct RecordedRead {
  std::uint64_t Microseconds = 0;
  RecordKind Kind = RecordKind::Data;
  std::vector<BYTE> Bytes;
};

// The header and a record as they are stored; for the writer, tests and fuzz seeds.
std::vector<BYTE> RecordingHeader(bool datagrams, std::uint64_t wallMilliseconds, std::uint16_t version = kRecordingVersion);
void AppendRecord(std::vector<BYTE>& out, std::uint64_t microseconds, RecordKind kind, const BYTE* data,
                  std::size_t length);

// Writes a recording. Each record goes to the system in one write as it comes, so that a
// stop of the program loses nothing. After a failed write nothing more is written and
// the file is cut back to its last whole record.
class CRecordingWriter {
 public:
  CRecordingWriter() = default;
  CRecordingWriter(const CRecordingWriter&) = delete;
  CRecordingWriter& operator=(const CRecordingWriter&) = delete;
  ~CRecordingWriter();

  // Makes (or replaces) the file and writes the header. On failure `error` is one line.
  bool Open(const std::string& path, bool datagrams, std::string& error);
  // A stream's bytes longer than kMaxRecordLength are split over records; a datagram
  // that long cannot be recorded (no datagram source delivers one).
  void WriteData(std::uint64_t microseconds, const BYTE* data, std::size_t length);
  void WriteNewConnection(std::uint64_t microseconds);

  // The one line that tells of a failed write, once; empty otherwise.
  std::string TakeFailure();
  bool Stopped() const { return Failed; }
  std::uint64_t RecordsWritten() const { return Records; }

 private:
  void Write(std::uint64_t microseconds, RecordKind kind, const BYTE* data, std::size_t length);

  std::string Path;
  bool Datagrams = false;
  int File = -1;
  std::uint64_t Size = 0;  // bytes of whole records and header written
  std::uint64_t Records = 0;
  std::uint64_t Latest = 0;
  bool Failed = false;
  std::string Failure;
  std::vector<BYTE> Scratch;
};

// Reads a recording record by record, holding at most one record and a read-ahead.
class CRecordingReader {
 public:
  CRecordingReader() = default;
  CRecordingReader(const CRecordingReader&) = delete;
  CRecordingReader& operator=(const CRecordingReader&) = delete;
  ~CRecordingReader();

  // Opens the file and reads its header. On failure (no such file, not a recording,
  // another format version) `error` is one line.
  bool Open(const std::string& path, std::string& error);
  // The same over bytes already in memory; `name` stands for the file in messages.
  bool OpenBytes(std::vector<BYTE> bytes, const std::string& name, std::string& error);

  bool IsDatagram() const { return Datagrams; }
  std::uint64_t WallMilliseconds() const { return Wall; }

  // The next record; false at the end of the recording or at damage.
  bool Next(RecordedRead& record);
  // Once Next returned false: empty at a clean end, else one line that says where the
  // damage begins ("the recording F is damaged at byte N (record K): why; played up to there").
  const std::string& Damage() const { return DamageText; }
  std::uint64_t RecordsRead() const { return Records; }
  // What the reader holds in memory, for the test that a huge length is not believed.
  std::size_t HeldBytes() const { return Buffer.capacity(); }

 private:
  bool ReadHeader(std::string& error);
  // Makes `wanted` bytes from Begin available; false when the file ends first.
  bool Fill(std::size_t wanted);
  std::size_t Available() const { return Buffer.size() - Begin; }
  bool Damaged(const std::string& why);

  std::string Name;
  int File = -1;
  bool AtEnd = false;  // the file gave all it has
  std::vector<BYTE> Buffer;
  std::size_t Begin = 0;
  std::uint64_t Offset = 0;  // of Buffer[Begin] in the file
  bool Datagrams = false;
  std::uint64_t Wall = 0;
  std::uint64_t Records = 0;
  std::uint64_t Latest = 0;
  bool Over = false;
  std::string DamageText;
};

}  // namespace zolclient
