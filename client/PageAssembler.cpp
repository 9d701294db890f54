#include "client/PageAssembler.h"

#include "distribution/PacketFormat.h"
#include "frame/KVTException.h"

namespace zolclient {

void CPageAssembler::Forget(Collection& collection) {
  Pending -= collection.Bytes;
  collection.Chunks.clear();
  collection.Bytes = 0;
  collection.LastPosition = -1;
  collection.HasPrevious = false;
  collection.PreviousNumber = 0;
  collection.PreviousWasLast = false;
  collection.Round = 0;
  collection.Active = false;
}

std::uint64_t CPageAssembler::Position(Collection& collection, DWORD number, bool isLast) {
  if (collection.HasPrevious) {
    if (collection.PreviousWasLast) {
      // Behind its last packet a version can only come round again from its start.
      collection.Round = 0;
    } else if (number < collection.PreviousNumber) {
      if (collection.PreviousNumber >= kPacketNumberRange - kWrapWindow && number < kWrapWindow) {
        ++collection.Round;
      } else if (collection.PreviousNumber - number > kReorderWindow) {
        collection.Round = 0;
      }
    }
  }
  std::uint64_t position = collection.Round * kPacketNumberRange + number;
  // Nothing stands behind a known last packet: the wrap was misjudged (its last packet was
  // lost the turn before), and this is a new turn.
  if (collection.LastPosition >= 0 && position > static_cast<std::uint64_t>(collection.LastPosition)) {
    collection.Round = 0;
    position = number;
  }
  collection.HasPrevious = true;
  collection.PreviousNumber = number;
  collection.PreviousWasLast = isLast;
  return position;
}

void CPageAssembler::DropAllUnfinished() {
  Guarded("CPageAssembler::DropAllUnfinished()", [&] {
    for (auto& [identity, collection] : Pages) {
      if (collection.Active) {
        ++Stats.CollectionsDropped;
        Forget(collection);
      }
    }
  });
}

void CPageAssembler::ForgetDeliveredVersions() {
  Guarded("CPageAssembler::ForgetDeliveredVersions()", [&] {
    for (auto& [identity, collection] : Pages) collection.HasDelivered = false;
  });
}

void CPageAssembler::ForgetDeliveredVersionsOfSite(DWORD siteNumber, DWORD keepIdentity) {
  Guarded("CPageAssembler::ForgetDeliveredVersionsOfSite()", [&] {
    for (auto& [identity, collection] : Pages) {
      if (wire::SiteNumber(identity) == siteNumber && identity != keepIdentity) collection.HasDelivered = false;
    }
  });
}

void CPageAssembler::Add(const ScannedPacket& packet, const Sink& sink) {
  Guarded("CPageAssembler::Add()", [&] {
    ++Stats.Packets;
    const DWORD identity = packet.PacketID & wire::kPageIdentityMask;
    const DWORD number = wire::PacketNumber(packet.PacketID);
    const BYTE high = packet.SequenceHigh;
    const BYTE low = static_cast<BYTE>(wire::SequenceLowOf(packet.PacketID));
    Collection& collection = Pages[identity];

    // A version already delivered comes round again with every repeat: nothing new in it,
    // and it must not disturb a newer version being collected.
    if (collection.HasDelivered && collection.DeliveredHigh == high && collection.DeliveredLow == low) {
      ++Stats.RepeatsOfComplete;
      return;
    }
    if (collection.Active && (collection.High != high || collection.Low != low)) {
      ++Stats.VersionsReplaced;
      Forget(collection);
    }
    if (!collection.Active) {
      collection.Active = true;
      collection.High = high;
      collection.Low = low;
    }
    const std::uint64_t position = Position(collection, number, packet.IsLast);
    if (collection.Chunks.count(position) != 0) {
      ++Stats.Duplicates;
      return;
    }
    if (Pending + packet.Chunk.size() > kMaxPendingBytes) {
      const std::uint64_t round = collection.Round;
      DropAllUnfinished();
      collection.Active = true;
      collection.High = high;
      collection.Low = low;
      collection.HasPrevious = true;
      collection.PreviousNumber = number;
      collection.PreviousWasLast = packet.IsLast;
      collection.Round = round;
    }
    collection.Chunks.emplace(position, packet.Chunk);
    collection.Bytes += packet.Chunk.size();
    Pending += packet.Chunk.size();
    if (packet.IsLast) collection.LastPosition = static_cast<long long>(position);
    TryComplete(identity, collection, sink);
  });
}

void CPageAssembler::TryComplete(DWORD identity, Collection& collection, const Sink& sink) {
  Guarded("CPageAssembler::TryComplete()", [&] {
    if (collection.LastPosition < 0) return;
    const std::size_t expected = static_cast<std::size_t>(collection.LastPosition) + 1;
    // Positions behind the last packet cannot belong to this version.
    if (collection.Chunks.rbegin()->first > static_cast<std::uint64_t>(collection.LastPosition)) {
      ++Stats.Inconsistent;
      Forget(collection);
      return;
    }
    if (collection.Chunks.size() != expected) return;

    std::vector<BYTE> escaped;
    escaped.reserve(collection.Bytes);
    for (const auto& [number, chunk] : collection.Chunks) escaped.insert(escaped.end(), chunk.begin(), chunk.end());
    const std::size_t lastCapacity = collection.Chunks.rbegin()->second.size();
    ReceivedPage page;
    page.PageIdentity = identity;
    page.SiteNumber = wire::SiteNumber(identity);
    page.PageNumber = wire::PageNumber(identity);
    page.Level = wire::PageLevel(identity);
    page.SequenceHigh = collection.High;
    page.SequenceLow = collection.Low;
    Forget(collection);

    // The version is finished either way: a broken one is not collected again.
    collection.HasDelivered = true;
    collection.DeliveredHigh = page.SequenceHigh;
    collection.DeliveredLow = page.SequenceLow;
    const UnpackResult result = UnpackPageStream(escaped, lastCapacity, page.Record);
    switch (result) {
      case UnpackResult::Ok: break;
      case UnpackResult::BadEscape: ++Stats.BadEscape; return;
      case UnpackResult::BadLength: ++Stats.BadLength; return;
      case UnpackResult::BadCompression: ++Stats.BadCompression; return;
      case UnpackResult::BadRecord: ++Stats.BadRecord; return;
    }
    ++Stats.PagesComplete;
    Delivered.insert(identity);
    sink(page);
  });
}

}  // namespace zolclient

