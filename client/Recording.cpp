#include "client/Recording.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "frame/KVTException.h"
#include "frame/platform/ErrorText.h"
#include "frame/platform/FileStream.h"
#include "frame/platform/Time.h"

namespace zolclient {

namespace {

// Read-ahead of the reader; a record longer than this is read whole all the same.
constexpr std::size_t kReadAhead = 65536;

void PutLittle(std::vector<BYTE>& out, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<BYTE>(value >> (8 * i)));
}

std::uint64_t GetLittle(const BYTE* in, int bytes) {
  std::uint64_t value = 0;
  for (int i = bytes - 1; i >= 0; --i) value = value << 8 | in[i];
  return value;
}

// Why a file call failed, in words that fit files (the platform's words fit devices).
std::string FileErrorText(int error) {
  switch (error) {
    case ENOENT:
      return "no such file or directory";
    case EISDIR:
      return "a folder";
    case EINVAL:
      return "not a regular file";
    default:
      return platform::ErrorText(error);
  }
}

std::uint32_t Checksum(const BYTE* data, std::size_t length) {
  uLong crc = crc32(0L, Z_NULL, 0);
  // zlib takes at most a uInt at a time; a record is far below that.
  crc = crc32(crc, data, static_cast<uInt>(length));
  return static_cast<std::uint32_t>(crc);
}

}  // namespace

std::vector<BYTE> RecordingHeader(bool datagrams, std::uint64_t wallMilliseconds, std::uint16_t version) {
  std::vector<BYTE> header(kRecordingMagic, kRecordingMagic + sizeof kRecordingMagic);
  PutLittle(header, version, 2);
  header.push_back(datagrams ? 1 : 0);
  header.push_back(0);
  PutLittle(header, wallMilliseconds, 8);
  return header;
}

void AppendRecord(std::vector<BYTE>& out, std::uint64_t microseconds, RecordKind kind, const BYTE* data,
                  std::size_t length) {
  const std::size_t start = out.size();
  PutLittle(out, microseconds, 8);
  PutLittle(out, length, 4);
  out.push_back(static_cast<BYTE>(kind));
  if (length > 0) out.insert(out.end(), data, data + length);
  PutLittle(out, Checksum(out.data() + start, out.size() - start), 4);
}

// ---- writer

CRecordingWriter::~CRecordingWriter() { platform::CloseFile(File); }

bool CRecordingWriter::Open(const std::string& path, bool datagrams, std::string& error) {
  return Guarded("CRecordingWriter::Open()", [&] {
    platform::CloseFile(File);
    Path = path;
    Datagrams = datagrams;
    File = platform::CreateFileForWriting(path);
    if (File == platform::kNoFile) {
      error = "cannot make the recording " + path + " (" + FileErrorText(platform::LastError()) + ")";
      return false;
    }
    const platform::WallTime now = platform::NowWallTime();
    const std::uint64_t wall = static_cast<std::uint64_t>(now.Seconds) * 1000u + static_cast<std::uint64_t>(now.Milliseconds);
    const std::vector<BYTE> header = RecordingHeader(datagrams, wall);
    if (!platform::WriteToFile(File, header.data(), header.size())) {
      error = "cannot write the recording " + path + " (" + FileErrorText(platform::LastError()) + ")";
      platform::CloseFile(File);
      File = platform::kNoFile;
      return false;
    }
    Size = header.size();
    return true;
  });
}

void CRecordingWriter::WriteData(std::uint64_t microseconds, const BYTE* data, std::size_t length) {
  Guarded("CRecordingWriter::WriteData()", [&] {
    if (length == 0) return;
    if (Datagrams) {
      if (length > kMaxRecordLength) ThrowKVT("CRecordingWriter::WriteData()", "a datagram longer than a record");
      Write(microseconds, RecordKind::Data, data, length);
      return;
    }
    for (std::size_t at = 0; at < length; at += kMaxRecordLength) {
      Write(microseconds, RecordKind::Data, data + at, std::min<std::size_t>(kMaxRecordLength, length - at));
    }
  });
}

void CRecordingWriter::WriteNewConnection(std::uint64_t microseconds) {
  Guarded("CRecordingWriter::WriteNewConnection()",
          [&] { Write(microseconds, RecordKind::NewConnection, nullptr, 0); });
}

std::string CRecordingWriter::TakeFailure() { return std::exchange(Failure, std::string()); }

void CRecordingWriter::Write(std::uint64_t microseconds, RecordKind kind, const BYTE* data, std::size_t length) {
  if (Failed || File == platform::kNoFile) return;
  // The reader refuses a time that goes back; the clock never does, but the caller's
  // arithmetic is not this class's to trust.
  Latest = std::max(Latest, microseconds);
  Scratch.clear();
  AppendRecord(Scratch, Latest, kind, data, length);
  if (platform::WriteToFile(File, Scratch.data(), Scratch.size())) {
    Size += Scratch.size();
    ++Records;
    return;
  }
  const std::string why = FileErrorText(platform::LastError());
  Failed = true;
  // A part of a record would read as damage; the records before it stay whole.
  platform::TruncateFile(File, Size);
  Failure = "cannot write the recording " + Path + " (" + why + "); it ends after " + std::to_string(Records) +
            " records, and receiving goes on";
}

// ---- reader

CRecordingReader::~CRecordingReader() { platform::CloseFile(File); }

bool CRecordingReader::Open(const std::string& path, std::string& error) {
  return Guarded("CRecordingReader::Open()", [&] {
    platform::CloseFile(File);
    Name = path;
    File = platform::OpenFileForReading(path);
    if (File == platform::kNoFile) {
      error = "cannot open the recording " + path + " (" + FileErrorText(platform::LastError()) + ")";
      return false;
    }
    return ReadHeader(error);
  });
}

bool CRecordingReader::OpenBytes(std::vector<BYTE> bytes, const std::string& name, std::string& error) {
  return Guarded("CRecordingReader::OpenBytes()", [&] {
    platform::CloseFile(File);
    File = platform::kNoFile;
    Name = name;
    Buffer = std::move(bytes);
    return ReadHeader(error);
  });
}

bool CRecordingReader::ReadHeader(std::string& error) {
  Begin = 0;
  Offset = 0;
  Records = 0;
  Latest = 0;
  Over = false;
  DamageText.clear();
  AtEnd = File == platform::kNoFile;
  const bool whole = Fill(kRecordingHeaderSize);
  const std::size_t have = std::min(Available(), sizeof kRecordingMagic);
  if (have < sizeof kRecordingMagic || std::memcmp(Buffer.data() + Begin, kRecordingMagic, have) != 0) {
    error = Name + " is not a recording made with --record";
    return false;
  }
  if (!whole) {
    error = "the recording " + Name + " is cut short within its header";
    return false;
  }
  const BYTE* header = Buffer.data() + Begin;
  const std::uint64_t version = GetLittle(header + 8, 2);
  if (version != kRecordingVersion) {
    error = Name + " is a recording of format version " + std::to_string(version) + "; this zolclient reads version " +
            std::to_string(kRecordingVersion);
    return false;
  }
  if (header[10] > 1 || header[11] != 0) {
    error = "the recording " + Name + " has a damaged header (source kind " + std::to_string(header[10]) + ", " +
            std::to_string(header[11]) + ")";
    return false;
  }
  Datagrams = header[10] == 1;
  Wall = GetLittle(header + 12, 8);
  Begin += kRecordingHeaderSize;
  Offset += kRecordingHeaderSize;
  return true;
}

bool CRecordingReader::Fill(std::size_t wanted) {
  while (Available() < wanted) {
    if (AtEnd) return false;
    if (Begin > 0) {
      Buffer.erase(Buffer.begin(), Buffer.begin() + static_cast<std::ptrdiff_t>(Begin));
      Begin = 0;
    }
    const std::size_t have = Buffer.size();
    const std::size_t room = std::max(kReadAhead, wanted - have);
    Buffer.resize(have + room);
    const long got = platform::ReadFromFile(File, Buffer.data() + have, room);
    Buffer.resize(have + static_cast<std::size_t>(std::max(got, 0L)));
    if (got <= 0) AtEnd = true;
  }
  return true;
}

bool CRecordingReader::Damaged(const std::string& why) {
  Over = true;
  DamageText = "the recording " + Name + " is damaged at byte " + std::to_string(Offset) + " (record " +
               std::to_string(Records + 1) + "): " + why + "; played up to there";
  return false;
}

bool CRecordingReader::Next(RecordedRead& record) {
  return Guarded("CRecordingReader::Next()", [&] {
    if (Over) return false;
    if (!Fill(kRecordHeadSize)) {
      if (Available() == 0) {
        Over = true;
        return false;
      }
      return Damaged("the file ends within the record's head");
    }
    const BYTE* head = Buffer.data() + Begin;
    const std::uint64_t microseconds = GetLittle(head, 8);
    const std::uint64_t length = GetLittle(head + 8, 4);
    const BYTE kind = head[12];
    if (kind > static_cast<BYTE>(RecordKind::NewConnection)) {
      return Damaged("unknown record kind " + std::to_string(kind));
    }
    if (length > kMaxRecordLength) {
      return Damaged("length " + std::to_string(length) + " is above the limit of " + std::to_string(kMaxRecordLength));
    }
    if (kind == static_cast<BYTE>(RecordKind::NewConnection) && length != 0) {
      return Damaged("a new-connection record with " + std::to_string(length) + " bytes");
    }
    const std::size_t whole = kRecordHeadSize + static_cast<std::size_t>(length) + kRecordCheckSize;
    if (!Fill(whole)) return Damaged("the file ends within the record");
    const BYTE* at = Buffer.data() + Begin;
    const std::uint64_t stored = GetLittle(at + kRecordHeadSize + length, 4);
    if (Checksum(at, whole - kRecordCheckSize) != stored) return Damaged("its checksum does not match");
    if (microseconds < Latest) {
      return Damaged("its time, " + std::to_string(microseconds) + " us, is earlier than that of the record before");
    }
    record.Microseconds = microseconds;
    record.Kind = static_cast<RecordKind>(kind);
    record.Bytes.assign(at + kRecordHeadSize, at + kRecordHeadSize + length);
    Latest = microseconds;
    Begin += whole;
    Offset += whole;
    ++Records;
    return true;
  });
}

}  // namespace zolclient
