#include "client/ClientSession.h"

#include <sstream>
#include <utility>

#include "frame/KVTException.h"

namespace zolclient {

namespace {

// Names and paths come from the wire: show them without control bytes.
std::string Printable(const std::string& text) {
  std::string shown;
  for (char c : text) {
    const unsigned char u = static_cast<unsigned char>(c);
    if (u < 0x20 || u == 0x7F) {
      static const char kHex[] = "0123456789abcdef";
      shown += "\\x";
      shown += kHex[u >> 4];
      shown += kHex[u & 0xF];
    } else {
      shown += c;
    }
  }
  return shown;
}

}  // namespace

CClientSession::CClientSession(std::size_t packetSize, std::string outputFolder, std::ostream& out,
                               std::ostream& err)
    : PacketScanner(packetSize), Output(std::move(outputFolder)), Out(out), Err(err) {}

bool CClientSession::Prepare(std::string& error) {
  return Guarded("CClientSession::Prepare()", [&] {
    if (Output.OutputFolder().empty()) return true;
    return Output.Prepare(error);
  });
}

void CClientSession::OnPacket(const ScannedPacket& packet) {
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

void CClientSession::OnPage(const ReceivedPage& page) {
  Guarded("CClientSession::OnPage()", [&] {
    const std::string location = Printable(DisplayLocation(page.Record.Path, page.Record.Name));
    if (!Output.OutputFolder().empty()) {
      switch (Output.Write(page)) {
        case WriteResult::Written: break;
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
    Out << "site " << page.SiteNumber << " page " << page.PageNumber << " " << location << " "
        << page.Record.Data.size() << " bytes version " << static_cast<unsigned>(page.SequenceHigh) << "."
        << static_cast<unsigned>(page.SequenceLow) << std::endl;
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
    text << ", written " << w.Written << ", refused " << w.Refused << ", write failed " << w.Failed << "\n";
    return text.str();
  });
}

}  // namespace zolclient
