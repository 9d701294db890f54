#include "client/PageReceiver.h"

#include <utility>

#include "frame/KVTException.h"

namespace zolclient {

CPageReceiver::CPageReceiver(std::size_t packetSize) : PacketScanner(packetSize) {}

void CPageReceiver::OnPacket(const ScannedPacket& packet) {
  PageAssembler.Add(packet, [&](const ReceivedPage& page) { Completed.push_back(page); });
}

void CPageReceiver::FeedStream(const BYTE* data, std::size_t length) {
  Guarded("CPageReceiver::FeedStream()", [&] {
    PacketScanner.Feed(data, length, [&](const ScannedPacket& packet) { OnPacket(packet); });
  });
}

void CPageReceiver::FeedDatagram(const BYTE* data, std::size_t length) {
  Guarded("CPageReceiver::FeedDatagram()", [&] {
    PacketScanner.FeedDatagram(data, length, [&](const ScannedPacket& packet) { OnPacket(packet); });
  });
}

void CPageReceiver::FeedBlocks(const std::vector<std::vector<BYTE>>& blocks) {
  Guarded("CPageReceiver::FeedBlocks()", [&] {
    for (const std::vector<BYTE>& block : blocks) FeedStream(block.data(), block.size());
  });
}

std::vector<ReceivedPage> CPageReceiver::TakePages() {
  return Guarded("CPageReceiver::TakePages()", [&] {
    std::vector<ReceivedPage> pages;
    pages.swap(Completed);
    return pages;
  });
}

}  // namespace zolclient
