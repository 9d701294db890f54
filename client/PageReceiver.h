// Scanner and assembler in one object, for code that just wants the pages out of some
// packets: the server's own tests, tools, and the client session.
#pragma once

#include <cstddef>
#include <vector>

#include "client/PacketScanner.h"
#include "client/PageAssembler.h"

namespace zolclient {

class CPageReceiver {
 public:
  explicit CPageReceiver(std::size_t packetSize = kDefaultPacketSize);

  void FeedStream(const BYTE* data, std::size_t length);
  void FeedDatagram(const BYTE* data, std::size_t length);
  // Each block as it would come over a byte stream, one after the other.
  void FeedBlocks(const std::vector<std::vector<BYTE>>& blocks);

  // The page versions completed so far, oldest first; the list is emptied.
  std::vector<ReceivedPage> TakePages();

  const CPacketScanner& Scanner() const { return PacketScanner; }
  const CPageAssembler& Assembler() const { return PageAssembler; }

 private:
  void OnPacket(const ScannedPacket& packet);

  CPacketScanner PacketScanner;
  CPageAssembler PageAssembler;
  std::vector<ReceivedPage> Completed;
};

}  // namespace zolclient
