// Feeds arbitrary bytes through the packet scanner, the page assembler and the page
// writer. The first byte chooses the mode:
//   bit 0: datagrams (one packet each) instead of a byte stream
//   bit 1: seal each block first (start mark, header bits in range, end mark, checksum),
//          so that the fuzzer reaches the assembler and unpacker past the checksum
//   bits 2 to 7: 0 for packets of 128 bytes, else a size from 16 to 128
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "client/PacketScanner.h"
#include "client/PageAssembler.h"
#include "client/PageWriter.h"
#include "distribution/PacketFormat.h"
#include "frame/KVTException.h"

namespace {

const std::string& OutputFolder() {
  static const std::string folder = [] {
    const std::filesystem::path path = std::filesystem::temp_directory_path() / "zolclient-fuzz-out";
    std::error_code code;
    std::filesystem::create_directories(path, code);
    return path.string();
  }();
  return folder;
}

void Seal(BYTE* block, std::size_t size) {
  block[0] = wire::kStartMark;
  block[1] &= 0x7F;
  block[2] &= 0x1F;
  block[3] = block[4] = block[5] = 0;
  if (size > wire::kEndMarkIndex) block[wire::kEndMarkIndex] = wire::kEndMark;
  wire::StoreChecksum(block, wire::PacketChecksum(block, size));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const BYTE mode = data[0];
  const bool datagrams = (mode & 1) != 0;
  const bool seal = (mode & 2) != 0;
  const std::size_t packetSize = (mode >> 2) == 0 ? 128 : 16 + ((mode >> 2) % 113);
  std::vector<BYTE> bytes(data + 1, data + size);
  if (seal) {
    for (std::size_t at = 0; at + packetSize <= bytes.size(); at += packetSize) Seal(bytes.data() + at, packetSize);
  }

  zolclient::CPacketScanner scanner(packetSize);
  zolclient::CPageAssembler assembler;
  zolclient::CPageWriter writer(OutputFolder());
  const auto onPacket = [&](const zolclient::ScannedPacket& packet) {
    assembler.Add(packet, [&](const zolclient::ReceivedPage& page) {
      std::string relative;
      // Whatever the bytes say, a location that is taken stays inside the folder.
      if (zolclient::SafeRelativeLocation(page.Record.Path, page.Record.Name, relative)) {
        if (relative.empty() || relative[0] == '/') __builtin_trap();
        std::size_t start = 0;
        while (start <= relative.size()) {
          std::size_t end = relative.find('/', start);
          if (end == std::string::npos) end = relative.size();
          if (relative.compare(start, end - start, "..") == 0) __builtin_trap();
          start = end + 1;
        }
      }
      writer.Write(page);
    });
  };
  try {
    if (datagrams) {
      for (std::size_t at = 0; at < bytes.size(); at += packetSize) {
        const std::size_t length = bytes.size() - at < packetSize ? bytes.size() - at : packetSize;
        scanner.FeedDatagram(bytes.data() + at, length, onPacket);
      }
    } else {
      // Uneven pieces, so that blocks straddle the feeds.
      std::size_t at = 0;
      std::size_t piece = 1;
      while (at < bytes.size()) {
        const std::size_t length = bytes.size() - at < piece ? bytes.size() - at : piece;
        scanner.Feed(bytes.data() + at, length, onPacket);
        at += length;
        piece = piece * 3 % 251 + 1;
      }
    }
  } catch (CKVTException* e) {
    // Nothing in the receiving path may fail on foreign bytes.
    delete e;
    __builtin_trap();
  }
  return 0;
}
