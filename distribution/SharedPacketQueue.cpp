#include "distribution/SharedPacketQueue.h"

#include <algorithm>
#include <cstring>

#include "distribution/PacketFormat.h"

CSharedPageVersion::CSharedPageVersion(DWORD key, BYTE sequence, const PacketBlocks& packets, std::size_t packetSize)
    : Key(key), Sequence(sequence), PacketSize(packetSize), PacketCount(packets.size()), Bytes(packets.size() * packetSize) {
  for (std::size_t i = 0; i < packets.size(); ++i) std::memcpy(Bytes.data() + i * packetSize, packets[i], packetSize);
}

bool CSharedPacketQueue::Add(const SharedPageVersion& version) {
  if (version == nullptr || version->GetPacketCount() == 0) return false;
  const auto [slot, added] = Pages.try_emplace(version->GetKey(), Waiting{version, 0});
  if (!added) return false;
  QueuedBytes += version->GetPacketCount() * version->GetPacketSize();
  return true;
}

std::size_t CSharedPacketQueue::DropSite(DWORD siteNumber) {
  std::size_t dropped = 0;
  for (auto page = Pages.begin(); page != Pages.end();) {
    if (wire::SiteNumber(page->first) != siteNumber) {
      ++page;
      continue;
    }
    const CSharedPageVersion& version = *page->second.Version;
    dropped += (version.GetPacketCount() - page->second.NextPacket) * version.GetPacketSize();
    page = Pages.erase(page);
  }
  QueuedBytes -= dropped;
  return dropped;
}

void CSharedPacketQueue::Clear() {
  Pages.clear();
  Cut.reset();
  CutFrom = CutTo = 0;
  QueuedBytes = 0;
}

std::size_t CSharedPacketQueue::NextSpans(platform::ByteSpan* spans, std::size_t most) const {
  std::size_t filled = 0;
  if (Cut != nullptr && filled < most) spans[filled++] = {Cut->GetBytes() + CutFrom, CutTo - CutFrom};
  for (const auto& [key, page] : Pages) {
    if (filled == most) break;
    const CSharedPageVersion& version = *page.Version;
    const std::size_t from = page.NextPacket * version.GetPacketSize();
    spans[filled++] = {version.GetBytes() + from, version.GetPacketCount() * version.GetPacketSize() - from};
  }
  return filled;
}

void CSharedPacketQueue::Consume(std::size_t bytes) {
  bytes = std::min(bytes, QueuedBytes);
  QueuedBytes -= bytes;
  if (Cut != nullptr) {
    const std::size_t taken = std::min(bytes, CutTo - CutFrom);
    CutFrom += taken;
    bytes -= taken;
    if (CutFrom == CutTo) Cut.reset();
  }
  while (bytes > 0 && !Pages.empty()) {
    Waiting& page = Pages.begin()->second;
    const SharedPageVersion version = page.Version;
    const std::size_t size = version->GetPacketSize();
    const std::size_t left = (version->GetPacketCount() - page.NextPacket) * size;
    if (bytes >= left) {
      bytes -= left;
      Pages.erase(Pages.begin());
      continue;
    }
    page.NextPacket += bytes / size;
    const std::size_t into = bytes % size;
    bytes = 0;
    if (into != 0) {
      // The packet is begun: the rest of it goes first from now on.
      Cut = version;
      CutFrom = page.NextPacket * size + into;
      CutTo = (page.NextPacket + 1) * size;
      ++page.NextPacket;
      if (page.NextPacket == version->GetPacketCount()) Pages.erase(Pages.begin());
    }
  }
}

std::size_t CSharedPacketQueue::GetPacketCount() const {
  std::size_t count = Cut != nullptr ? 1 : 0;
  for (const auto& [key, page] : Pages) count += page.Version->GetPacketCount() - page.NextPacket;
  return count;
}
