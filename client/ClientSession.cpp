#include "client/ClientSession.h"

#include <iterator>
#include <sstream>
#include <utility>

#include "distribution/PacketFormat.h"
#include "frame/KVTException.h"

namespace zolclient {

CClientSession::CClientSession(std::size_t packetSize, std::string outputFolder, std::ostream& out,
                               std::ostream& err, std::uint64_t maxBytes)
    : PacketScanner(packetSize), Output(std::move(outputFolder), maxBytes), Out(out), Err(err) {}

void CClientSession::TellLimitReached() {
  if (LimitTold) return;
  LimitTold = true;
  Err << "zolclient: the files under " << PrintableText(Output.OutputFolder()) << " reached the limit of "
      << Output.MaxBytes() << " bytes (--max-bytes); nothing more is written" << std::endl;
}

bool CClientSession::Prepare(std::string& error) {
  return Guarded("CClientSession::Prepare()", [&] {
    if (Output.OutputFolder().empty()) return true;
    return Output.Prepare(error);
  });
}

void CClientSession::SetTrace(CPacketTrace* trace) {
  Trace = trace;
  if (trace == nullptr) {
    PacketScanner.WatchBlocks(nullptr);
    return;
  }
  PacketScanner.WatchBlocks([this](const BYTE* block, CPacketScanner::BlockState state, const ScannedPacket& packet) {
    Trace->OnBlock(block, PacketScanner.PacketSize(), state, packet);
  });
}

void CClientSession::OnPacket(const ScannedPacket& packet) {
  Sites.NoteSite(wire::SiteNumber(packet.PacketID));
  for (CPageListener* listener : Listeners) listener->OnPacket();
  Assembler.Add(packet, [&](const ReceivedPage& page) { OnPage(page); });
}

void CClientSession::OnStreamBytes(const BYTE* data, std::size_t length) {
  Guarded("CClientSession::OnStreamBytes()", [&] {
    PacketScanner.Feed(data, length, [&](const ScannedPacket& packet) { OnPacket(packet); });
  });
}

void CClientSession::OnDatagram(const BYTE* data, std::size_t length) {
  Guarded("CClientSession::OnDatagram()", [&] {
    PacketScanner.FeedDatagram(data, length, [&](const ScannedPacket& packet) { OnPacket(packet); });
  });
}

void CClientSession::OnNewConnection() {
  Guarded("CClientSession::OnNewConnection()", [&] {
    PacketScanner.Reset();
    Assembler.ForgetDeliveredVersions();
  });
}

void CClientSession::PrintPageLine(const ReceivedPage& page, const std::string& location) {
  Out << "site " << page.SiteNumber << " page " << page.PageNumber << " " << location << " "
      << page.Record.Data.size() << " bytes version " << static_cast<unsigned>(page.SequenceHigh) << "."
      << static_cast<unsigned>(page.SequenceLow) << std::endl;
}

void CClientSession::OnInformationPage(const ReceivedPage& page) {
  Guarded("CClientSession::OnInformationPage()", [&] {
    std::string why;
    const bool firstBad = Sites.Sites().count(page.SiteNumber) == 0 ||
                          Sites.Sites().at(page.SiteNumber).BadInformationPages == 0;
    const InformationOutcome outcome = Sites.OnInformationPage(page.SiteNumber, page.Record.Data, &why);
    if (outcome == InformationOutcome::NotInformation) {
      // Once per site: a server that sends something else as page 0 does so every second.
      if (firstBad) {
        Err << "zolclient: site " << page.SiteNumber << " page 0 is not an information page (" << why << ")"
            << std::endl;
      }
      PrintPageLine(page, "(not an information page)");
      return;
    }
    OnSiteInformation(page, outcome);
  });
}

void CClientSession::OnSiteInformation(const ReceivedPage& page, InformationOutcome outcome) {
  Guarded("CClientSession::OnSiteInformation()", [&] {
    if (outcome == InformationOutcome::Rebuilt) {
      Assembler.ForgetDeliveredVersionsOfSite(page.SiteNumber, page.PageIdentity);
      for (auto it = WholePageVersions.begin(); it != WholePageVersions.end();) {
        const bool otherPageOfSite = (it->first >> 9) == page.SiteNumber && (it->first & 0x1FF) != 0;
        it = otherPageOfSite ? WholePageVersions.erase(it) : std::next(it);
      }
      Out << "site " << page.SiteNumber << " rebuilt: build time " << Sites.Sites().at(page.SiteNumber).BuildTime
          << std::endl;
    }
    for (CPageListener* listener : Listeners) listener->OnSiteClock(page.SiteNumber, Sites.Sites().at(page.SiteNumber).Clock);
    if (!Output.OutputFolder().empty()) {
      const WriteResult written = Output.WriteInformation(page.SiteNumber, Sites.InformationFileText(page.SiteNumber));
      if (written == WriteResult::OverLimit) {
        TellLimitReached();
      } else if (written != WriteResult::Written && InformationWriteFailed.insert(page.SiteNumber).second) {
        // Told once per site, as it would be every second; the statistics count them all.
        Err << "zolclient: could not write " << InformationFileName(page.SiteNumber) << std::endl;
      }
    }
    PrintPageLine(page, "(information)");
  });
}

void CClientSession::OnPage(const ReceivedPage& page) {
  Guarded("CClientSession::OnPage()", [&] {
    if (Trace != nullptr) Trace->OnPage(page);
    if (page.PageNumber == 0) {
      OnInformationPage(page);
      return;
    }
    // Complete is complete: a page that cannot be written still counts for its site.
    Sites.OnContentPage(page.SiteNumber, page.PageNumber);
    for (CPageListener* listener : Listeners) listener->OnPage(page);
    const std::string location = PrintableText(DisplayLocation(page.Record.Path, page.Record.Name));
    if (!Output.OutputFolder().empty()) {
      switch (Output.Write(page)) {
        case WriteResult::Written: break;
        case WriteResult::OverLimit:
          // Received all the same, so it is listed; the statistics count what was not written.
          TellLimitReached();
          break;
        case WriteResult::Refused:
          Err << "zolclient: refused page site " << page.SiteNumber << " page " << page.PageNumber << " '"
              << location << "': its location would leave the output folder" << std::endl;
          return;
        case WriteResult::Failed:
          Err << "zolclient: could not write page site " << page.SiteNumber << " page " << page.PageNumber
              << " '" << location << "'" << std::endl;
          return;
      }
    }
    PrintPageLine(page, location);
  });
}

void CClientSession::OnWholePage(const ReceivedPage& page) {
  Guarded("CClientSession::OnWholePage()", [&] {
    Sites.NoteSite(page.SiteNumber);
    // What came whole is the source's sign of life, as a packet is of a stream's.
    for (CPageListener* listener : Listeners) listener->OnPacket();
    const unsigned version = (unsigned{page.SequenceHigh} << 8) | page.SequenceLow;
    const auto [known, added] = WholePageVersions.try_emplace((page.SiteNumber << 9) | page.PageNumber, version);
    if (!added) {
      if (known->second == version) return;
      known->second = version;
    }
    OnPage(page);
  });
}

void CClientSession::OnWholeInformation(const ReceivedPage& page, SiteInformation information) {
  Guarded("CClientSession::OnWholeInformation()", [&] {
    Sites.NoteSite(page.SiteNumber);
    for (CPageListener* listener : Listeners) listener->OnPacket();
    WholePageVersions[page.SiteNumber << 9] = (unsigned{page.SequenceHigh} << 8) | page.SequenceLow;
    OnSiteInformation(page, Sites.OnDecodedInformation(page.SiteNumber, std::move(information)));
  });
}

std::string CClientSession::StatsText() const {
  return Guarded("CClientSession::StatsText()", [&] {
    const ScanCounters& s = PacketScanner.Counters();
    const AssemblyCounters& a = Assembler.Counters();
    std::ostringstream text;
    text << "packets: good " << s.Good << ", bad checksum " << s.BadChecksum << ", bad end mark " << s.BadEndMark
         << ", bad header " << s.BadHeader << ", bad size " << s.BadSize << ", resyncs " << s.Resyncs
         << ", skipped bytes " << s.SkippedBytes << ", truncated bytes " << s.TruncatedBytes << "\n";
    text << "chunks: duplicates " << a.Duplicates << ", repeats of complete versions " << a.RepeatsOfComplete
         << ", versions replaced " << a.VersionsReplaced << ", collections dropped " << a.CollectionsDropped
         << ", inconsistent " << a.Inconsistent << "\n";
    text << "pages: complete " << a.PagesComplete << ", distinct " << Assembler.DistinctCompletePages()
         << ", bad escape " << a.BadEscape << ", bad length " << a.BadLength << ", bad compression "
         << a.BadCompression << ", bad record " << a.BadRecord;
    const WriteCounters& w = Output.Counters();
    text << ", written " << w.Written << ", refused " << w.Refused << ", write failed " << w.Failed
         << ", information files written " << w.InformationWritten << "\n";
    text << "files: bytes kept " << Output.BytesHeld() << " of " << Output.MaxBytes() << ", old files removed "
         << w.Removed << ", not written for the byte limit " << w.OverLimit << "\n";
    text << Sites.StatsLines();
    return text.str();
  });
}

}  // namespace zolclient
