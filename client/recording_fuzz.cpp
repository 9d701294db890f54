// libFuzzer target over the recording reader and the replay source built on it.
//
// An input is a recording file. The reader must either refuse the header in one line, or
// give records until a clean end or one damage line; every record it gives must be one
// the writer would store at the place it was read from (the same bytes, checksum
// included), and times never go back. The replay source, at speed 0, then gives the same
// data and counts the new connections, and finishes.
//
// Seeds: run the target once with --write-seeds=DIR to write a few valid recordings (a
// stream with new connections, datagrams, an empty one) into DIR.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "client/ClientOptions.h"
#include "client/ClientSources.h"
#include "client/HandBuiltPackets.h"
#include "client/Recording.h"
#include "frame/KVTException.h"

namespace {

void Check(bool condition) {
  if (!condition) __builtin_trap();
}

bool OneLine(const std::string& text) { return !text.empty() && text.find('\n') == std::string::npos; }

std::vector<BYTE> Pattern(std::size_t n, unsigned seed) { return handbuilt::SeededBytes(n, seed); }

void WriteSeed(const std::string& path, const std::vector<BYTE>& bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                              static_cast<std::streamsize>(bytes.size()));
}

const std::string& ScratchFile() {
  static const std::string path =
      (std::filesystem::temp_directory_path() / ("zolclient-recording-fuzz-" + std::to_string(::getpid()))).string();
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  for (int i = 1; i < *argc; ++i) {
    const std::string argument = (*argv)[i];
    if (argument.rfind("--write-seeds=", 0) != 0) continue;
    const std::string directory = argument.substr(std::strlen("--write-seeds="));
    using zolclient::RecordKind;
    std::vector<BYTE> stream = zolclient::RecordingHeader(false, 1700000000000u);
    zolclient::AppendRecord(stream, 0, RecordKind::NewConnection, nullptr, 0);
    std::vector<BYTE> data = Pattern(300, 1);
    zolclient::AppendRecord(stream, 1500, RecordKind::Data, data.data(), data.size());
    zolclient::AppendRecord(stream, 2500, RecordKind::NewConnection, nullptr, 0);
    data = Pattern(40, 2);
    zolclient::AppendRecord(stream, 2600, RecordKind::Data, data.data(), data.size());
    WriteSeed(directory + "/seed-stream", stream);
    std::vector<BYTE> datagrams = zolclient::RecordingHeader(true, 1700000000000u);
    for (unsigned k = 0; k < 4; ++k) {
      data = Pattern(128, 10 + k);
      zolclient::AppendRecord(datagrams, 100u * k, RecordKind::Data, data.data(), data.size());
    }
    WriteSeed(directory + "/seed-datagrams", datagrams);
    WriteSeed(directory + "/seed-empty", zolclient::RecordingHeader(false, 0));
    std::printf("3 seeds written to %s\n", directory.c_str());
    std::exit(0);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size) {
  const std::vector<BYTE> file(input, input + size);
  try {
    zolclient::CRecordingReader reader;
    std::string error;
    if (!reader.OpenBytes(file, ScratchFile(), error)) {
      Check(OneLine(error));
      return 0;
    }
    std::size_t offset = zolclient::kRecordingHeaderSize;
    std::uint64_t latest = 0;
    std::vector<BYTE> data;
    std::vector<std::vector<BYTE>> datagrams;
    unsigned connections = 0;
    zolclient::RecordedRead record;
    while (reader.Next(record)) {
      Check(record.Bytes.size() <= zolclient::kMaxRecordLength);
      Check(record.Kind == zolclient::RecordKind::Data || record.Bytes.empty());
      Check(record.Microseconds >= latest);
      latest = record.Microseconds;
      std::vector<BYTE> again;
      zolclient::AppendRecord(again, record.Microseconds, record.Kind, record.Bytes.data(), record.Bytes.size());
      Check(offset + again.size() <= file.size());
      Check(std::memcmp(again.data(), file.data() + offset, again.size()) == 0);
      offset += again.size();
      if (record.Kind == zolclient::RecordKind::NewConnection) {
        ++connections;
      } else {
        data.insert(data.end(), record.Bytes.begin(), record.Bytes.end());
        if (!record.Bytes.empty()) datagrams.push_back(record.Bytes);
      }
    }
    // A clean end only where the file ends; damage told in one line, at the place read to.
    if (reader.Damage().empty()) {
      Check(offset == file.size());
    } else {
      Check(OneLine(reader.Damage()));
      Check(reader.Damage().find(" at byte " + std::to_string(offset) + " ") != std::string::npos);
    }
    // The replay source at speed 0 gives the same bytes, however the reads are cut.
    WriteSeed(ScratchFile(), file);
    zolclient::ClientOptions options;
    options.Transport = zolclient::TransportKind::Replay;
    options.ReplayFile = ScratchFile();
    options.ReplaySpeed = 0;
    std::ostringstream err;
    std::unique_ptr<zolclient::CByteSource> source = zolclient::OpenByteSource(options, err, error);
    Check(source != nullptr);
    Check(source->IsDatagram() == reader.IsDatagram());
    std::vector<BYTE> replayed;
    std::vector<BYTE> buffer(size % 7 == 0 ? 65536 : 1 + size % 997);
    std::size_t reads = 0;
    while (!source->Finished()) {
      const long got = source->Read(buffer.data(), buffer.size(), 0);
      Check(got >= 0 && static_cast<std::size_t>(got) <= buffer.size());
      replayed.insert(replayed.end(), buffer.begin(), buffer.begin() + got);
      Check(++reads <= file.size() + 2);
    }
    Check(source->Connections() == connections);
    Check(err.str() == (reader.Damage().empty() ? "" : "zolclient: " + reader.Damage() + "\n"));
    if (source->IsDatagram()) {
      // Each datagram whole, or its start when the buffer is smaller.
      std::vector<BYTE> cut;
      for (const auto& datagram : datagrams) {
        cut.insert(cut.end(), datagram.begin(),
                   datagram.begin() + static_cast<std::ptrdiff_t>(std::min(datagram.size(), buffer.size())));
      }
      Check(replayed == cut);
    } else {
      Check(replayed == data);
    }
    std::remove(ScratchFile().c_str());
  } catch (CKVTException* e) {
    // Nothing in reading a recording may fail on foreign bytes.
    delete e;
    __builtin_trap();
  }
  return 0;
}
