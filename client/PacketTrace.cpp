#include "client/PacketTrace.h"

#include <cstdio>
#include <string>

#include "client/PageWriter.h"
#include "client/SiteTracker.h"
#include "distribution/PacketFormat.h"
#include "frame/KVTException.h"

namespace zolclient {

namespace {

std::string ChecksumText(const BYTE* block) {
  char text[8];
  std::snprintf(text, sizeof text, "%04x", static_cast<unsigned>(wire::LoadChecksum(block)));
  return text;
}

std::string VersionText(BYTE high, BYTE low) {
  std::string text = std::to_string(static_cast<unsigned>(high));
  text += '.';
  text += std::to_string(static_cast<unsigned>(low));
  return text;
}

}  // namespace

void CPacketTrace::OnBlock(const BYTE* block, std::size_t size, CPacketScanner::BlockState state,
                           const ScannedPacket& packet) {
  Guarded("CPacketTrace::OnBlock()", [&] {
    switch (state) {
      case CPacketScanner::BlockState::Good: break;
      case CPacketScanner::BlockState::BadChecksum:
        Out << "packet bad checksum " << ChecksumText(block) << " bytes " << size << std::endl;
        return;
      case CPacketScanner::BlockState::BadEndMark: Out << "packet bad end mark bytes " << size << std::endl; return;
      case CPacketScanner::BlockState::BadHeader: Out << "packet bad header bytes " << size << std::endl; return;
    }
    const DWORD identity = packet.PacketID & wire::kPageIdentityMask;
    const DWORD number = wire::PacketNumber(packet.PacketID);
    const BYTE low = static_cast<BYTE>(wire::SequenceLowOf(packet.PacketID));
    PageCount& count = Pages[identity];
    if (count.HasPrevious && (count.High != packet.SequenceHigh || count.Low != low)) count = PageCount();
    // The same rule as the assembler's: a step from the top of the range to its bottom
    // before the last packet is the next round of numbers; any other step back a new turn.
    if (count.HasPrevious) {
      if (count.PreviousWasLast) {
        count.Round = 0;
      } else if (number < count.PreviousNumber) {
        const bool wrapped = count.PreviousNumber >= kPacketNumberRange - kWrapWindow && number < kWrapWindow;
        count.Round = wrapped ? count.Round + 1 : 0;
      }
    }
    count.High = packet.SequenceHigh;
    count.Low = low;
    count.HasPrevious = true;
    count.PreviousNumber = number;
    count.PreviousWasLast = packet.IsLast;
    if (packet.IsLast) count.Packets = count.Round * kPacketNumberRange + number + 1;

    Out << "packet site " << wire::SiteNumber(identity) << " page " << wire::PageNumber(identity) << " level "
        << wire::PageLevel(identity) << " number " << number << " of ";
    if (packet.IsLast) {
      Out << count.Packets;
    } else {
      Out << "?";
    }
    Out << " version " << VersionText(packet.SequenceHigh, low) << " checksum " << ChecksumText(block)
        << " good bytes " << size << std::endl;
  });
}

void CPacketTrace::OnPage(const ReceivedPage& page) {
  Guarded("CPacketTrace::OnPage()", [&] {
    Out << "page site " << page.SiteNumber << " page " << page.PageNumber << " level " << page.Level << " version "
        << VersionText(page.SequenceHigh, page.SequenceLow) << " complete packets ";
    const auto found = Pages.find(page.PageIdentity);
    if (found != Pages.end() && found->second.Packets != 0) {
      Out << found->second.Packets;
    } else {
      Out << "?";
    }
    Out << " bytes " << page.Record.Data.size() << " ";
    if (page.PageNumber == 0) {
      Out << "(information)";
    } else {
      Out << PrintableText(DisplayLocation(page.Record.Path, page.Record.Name));
    }
    Out << std::endl;
  });
}

}  // namespace zolclient
