#include "distribution/OutputPage.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "distribution/DeflateMemory.h"
#include "distribution/PacketFormat.h"
#include "distribution/ZOLServer.h"
#include "frame/KVTException.h"
#include "frame/platform/FileRead.h"

namespace {

void AppendWord(std::vector<BYTE>& out, WORD value) {
  out.push_back(static_cast<BYTE>(value & 0xFF));
  out.push_back(static_cast<BYTE>(value >> 8));
}

void AppendDword(std::vector<BYTE>& out, DWORD value) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<BYTE>((value >> shift) & 0xFF));
}

// gzip-wrapped deflate in one call into `out` from byte `at` on. Returns false unless the
// stream was finished.
bool CompressPageRecord(const std::vector<BYTE>& record, std::vector<BYTE>& out, std::size_t at,
                        DWORD& compressedSize) {
  z_stream stream{};
  stream.zalloc = deflate_memory::Allocate;
  stream.zfree = deflate_memory::Free;
  if (deflateInit2(&stream, -1, 8, 31, 8, 0) != Z_OK) return false;
  stream.next_in = const_cast<Bytef*>(record.data());
  stream.avail_in = static_cast<uInt>(record.size());
  stream.next_out = out.data() + at;
  stream.avail_out = static_cast<uInt>(out.size() - at);
  const int result = deflate(&stream, Z_FINISH);
  const uLong produced = stream.total_out;
  deflateEnd(&stream);
  if (result != Z_STREAM_END) return false;
  compressedSize = static_cast<DWORD>(produced);
  return true;
}

}  // namespace

// ---- COutputPageObserver ------------------------------------------------------------

COutputPageObserver::~COutputPageObserver() {
  const std::vector<COutputPage*> pages = Subjects;
  for (COutputPage* page : pages) page->Detach(this);
  Subjects.clear();
}

void COutputPageObserver::Attach(COutputPage* page) {
  Guarded("COutputPageObserver::Attach()", [&] {
    if (std::find(Subjects.begin(), Subjects.end(), page) == Subjects.end()) Subjects.push_back(page);
    page->Attach(this);
  });
}

void COutputPageObserver::Detach(COutputPage* page) {
  RemoveSubject(page);
  page->Detach(this);
}

void COutputPageObserver::RemoveSubject(COutputPage* page) {
  Guarded("COutputPageObserver::RemoveSubject()", [&] {
    auto found = std::find(Subjects.begin(), Subjects.end(), page);
    if (found != Subjects.end()) Subjects.erase(found);
  });
}

// ---- COutputPage ----------------------------------------------------------------------

COutputPage::COutputPage(DWORD siteNumber, DWORD pageNumber, DWORD level, DWORD repeat, const std::string& path,
                         const std::string& filename) {
  Guarded("COutputPage::COutputPage()", [&] {
    PageKey = wire::MakePageKey(siteNumber, pageNumber, level);
    Repeat = repeat;
    IsTemplate = 0;
    std::string cleanPath = ReplaceAll(path, "\\", "/");
    if (!cleanPath.empty() && cleanPath[0] == '/') cleanPath.erase(0, 1);
    Path = cleanPath;
    SourceFilename = filename;
    SetFilename(filename);
    SequenceLow = SequenceHigh = 0;
    InitialVersion = 1;
    PlainSize = CompressedSize = 0;
    RepeatCountdown = Repeat == 0 ? 0 : pageNumber % Repeat;
  });
}

COutputPage::~COutputPage() {
  const std::vector<COutputPageObserver*> observers = Observers;
  for (COutputPageObserver* observer : observers) observer->RemoveSubject(this);
  Observers.clear();
  for (BYTE* block : Packets) delete[] block;
  Packets.clear();
}

void COutputPage::ClearPackets() {
  Guarded("COutputPage::ClearPackets()", [&] {
    for (BYTE* block : Packets) delete[] block;
    Packets.clear();
  });
}

std::string COutputPage::ReplaceAll(std::string text, const std::string& from, const std::string& to) {
  return Guarded("COutputPage::ReplaceAll()", [&] {
    if (from.empty()) return text;
    // Each search starts again at the beginning of the string.
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from)) {
      text.replace(at, from.size(), to);
      if (to.find(from) != std::string::npos) break;  // would never end
    }
    return text;
  });
}

void COutputPage::SetFilename(const std::string& filename) {
  Guarded("COutputPage::SetFilename()", [&] {
    Filename = filename;
    ExportName = Path;
    const std::size_t dot = filename.rfind('.');
    if (dot == std::string::npos) {
      ExportName += filename;
      return;
    }
    Extension = filename.substr(dot + 1);
    const std::string stem = filename.substr(0, dot);
    if (filename == "ZOLFeed.zol") {
      ExportName += stem + ".xml";
      IsTemplate = 1;
    } else if (Extension == "zol") {
      ExportName += stem + ".html";
      IsTemplate = 1;
    } else {
      ExportName += filename;
      IsTemplate = 0;
    }
  });
}

BOOL COutputPage::FileImport(const std::string& root) {
  return Guarded("COutputPage::FileImport()", [&]() -> BOOL {
    const std::string fullPath = ReplaceAll(root + Path + Filename, "/", "\\");
    SourceRoot = root;
    SourceFilename = Filename;
    return platform::ReadWholeFile(fullPath, Data) ? TRUE : FALSE;
  });
}

bool COutputPage::ShouldRepeat() {
  return Guarded("COutputPage::ShouldRepeat()", [&] {
    if (RepeatCountdown != 0) {
      --RepeatCountdown;
      return false;
    }
    RepeatCountdown = Repeat - 1;  // Repeat 0 wraps to the highest value
    return true;
  });
}

double COutputPage::GetCompressionRatio() const {
  return Guarded("COutputPage::GetCompressionRatio()", [&] {
    if (PlainSize == 0) return 0.0;
    double ratio = static_cast<double>(CompressedSize) / static_cast<double>(PlainSize);
    if (ratio > 1.0) ratio = 1.0;
    return (1.0 - ratio) * 100.0;
  });
}

std::string COutputPage::GetDataAsString() const {
  return Guarded("COutputPage::GetDataAsString()",
                 [&] { return std::string(reinterpret_cast<const char*>(Data.data()), Data.size()); });
}

std::vector<BYTE> COutputPage::MakePageRecord() const {
  std::vector<BYTE> record;
  record.reserve(16 + Path.size() + Filename.size() + Data.size());
  record.push_back(1);  // record type
  record.push_back(0);  // record version
  AppendWord(record, static_cast<WORD>(Path.size()));
  record.insert(record.end(), Path.begin(), Path.end());
  AppendWord(record, static_cast<WORD>(Filename.size()));
  record.insert(record.end(), Filename.begin(), Filename.end());
  AppendDword(record, IsTemplate);
  AppendDword(record, static_cast<DWORD>(Data.size()));
  record.insert(record.end(), Data.begin(), Data.end());
  return record;
}

void COutputPage::BuildPackets() {
  Guarded("COutputPage::BuildPackets()", [&] {
    if (++SequenceLow > 63) {
      SequenceLow = 0;
      if (++SequenceHigh > 127) SequenceHigh = 0;
    }
    ClearPackets();

    const std::vector<BYTE> record = MakePageRecord();
    PlainSize = static_cast<DWORD>(record.size());

    // Room for the result is twice the record; a small record can grow past that
    // under the gzip wrapper, so the room is at least what the library may need.
    CompressedSize = 2 * PlainSize;
    const std::size_t room = std::max<std::size_t>(CompressedSize, deflateBound(nullptr, PlainSize) + 18);
    // The page stream: PlainSize and CompressedSize, then the compressed record.
    constexpr std::size_t kSizeHeader = 8;
    std::vector<BYTE> stream(kSizeHeader + room);
    DWORD produced = 0;
    if (CompressPageRecord(record, stream, kSizeHeader, produced)) CompressedSize = produced;
    // A failed compression goes out as the buffer holds it; the client rejects it.
    stream.resize(kSizeHeader + CompressedSize);
    std::vector<BYTE> header;
    AppendDword(header, PlainSize);
    AppendDword(header, CompressedSize);
    std::copy(header.begin(), header.end(), stream.begin());

    wire::InsertEscapes(stream);
    CutIntoPackets(stream);
  });
}

void COutputPage::CutIntoPackets(const std::vector<BYTE>& escapedStream) {
  const std::size_t packetSize = PacketSize;
  std::size_t remaining = escapedStream.size();
  std::size_t offset = 0;
  DWORD number = 0;
  while (remaining != 0) {
    std::vector<BYTE> id;
    AppendDword(id, wire::MakePacketID(PageKey, number, SequenceLow));
    wire::InsertEscapes(id);
    const std::size_t headerLength = id.size();
    const std::size_t capacity = packetSize - (headerLength + 7);
    const std::size_t chunk = std::min(capacity, remaining);

    BYTE* block = new BYTE[packetSize]();
    Packets.push_back(block);
    block[0] = wire::kStartMark;
    block[1] = SequenceHigh;
    block[2] = static_cast<BYTE>((chunk == remaining ? wire::kFlagLastPacket : 0) | (headerLength << 1));
    std::memcpy(block + wire::kHeaderBytes, id.data(), headerLength);
    std::memcpy(block + wire::kHeaderBytes + headerLength, escapedStream.data() + offset, chunk);
    // The end mark has a fixed index; a smaller block goes without it.
    if (wire::kEndMarkIndex < packetSize) block[wire::kEndMarkIndex] = wire::kEndMark;
    wire::StoreChecksum(block, wire::PacketChecksum(block, packetSize));

    offset += chunk;
    remaining -= chunk;
    ++number;
  }
}

void COutputPage::Attach(COutputPageObserver* observer) {
  Guarded("COutputPage::Attach()", [&] {
    if (std::find(Observers.begin(), Observers.end(), observer) == Observers.end()) Observers.push_back(observer);
  });
}

void COutputPage::Detach(COutputPageObserver* observer) {
  Guarded("COutputPage::Detach()", [&] {
    auto found = std::find(Observers.begin(), Observers.end(), observer);
    if (found != Observers.end()) Observers.erase(found);
  });
}

void COutputPage::NotifyPageUpdated() {
  Guarded("COutputPage::NotifyPageUpdated()", [&] {
    const std::vector<COutputPageObserver*> observers = Observers;
    for (COutputPageObserver* observer : observers) observer->OnPageUpdated(this);
  });
}
