// One receiving session: bytes or datagrams in, checked packets, rebuilt pages, files out,
// one line per new page version.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "client/PacketScanner.h"
#include "client/PageAssembler.h"
#include "client/PageWriter.h"
#include "client/SiteTracker.h"
#include "client/PageListener.h"
#include "client/PacketTrace.h"

namespace zolclient {

class CClientSession {
 public:
  // An empty `outputFolder` lists the pages without writing them; what is written there
  // stays within `maxBytes` (see CPageWriter).
  CClientSession(std::size_t packetSize, std::string outputFolder, std::ostream& out, std::ostream& err,
                 std::uint64_t maxBytes = kDefaultMaxBytes);

  // Creates the output folder; false with a one-line `error` when that is impossible.
  bool Prepare(std::string& error);

  void OnStreamBytes(const BYTE* data, std::size_t length);
  void OnDatagram(const BYTE* data, std::size_t length);
  // A new connection starts at a packet boundary, and the server may have restarted.
  void OnNewConnection();
  // A page that came whole (from a broker): goes the way of a rebuilt one. A version of
  // a page number already taken is passed over.
  void OnWholePage(const ReceivedPage& page);
  // A site's information that came decoded; `page` is its page 0, the record's data what
  // it was decoded from (for the page line).
  void OnWholeInformation(const ReceivedPage& page, SiteInformation information);
  // Tells `listener` of every good packet, content page and site clock as well.
  void AddListener(CPageListener* listener) { Listeners.push_back(listener); }
  // zolclient --trace: every checked block and every completed page are told to `trace` too.
  void SetTrace(CPacketTrace* trace);

  std::size_t DistinctCompletePages() const { return Assembler.DistinctCompletePages() + WholePageVersions.size(); }
  // Every site heard is complete (see CSiteTracker for the rule).
  bool AllSitesComplete() const { return Sites.AllSitesComplete(); }
  std::string StatsText() const;

  const CPacketScanner& Scanner() const { return PacketScanner; }
  const CPageAssembler& Pages() const { return Assembler; }
  const CSiteTracker& SiteStates() const { return Sites; }
  const CPageWriter* Writer() const { return Output.OutputFolder().empty() ? nullptr : &Output; }

 private:
  void OnPacket(const ScannedPacket& packet);
  void OnPage(const ReceivedPage& page);
  // Page 0: decoded, never written as a page; a rebuilt site's pages are taken afresh.
  void OnInformationPage(const ReceivedPage& page);
  // What follows an information page that decoded, or came decoded.
  void OnSiteInformation(const ReceivedPage& page, InformationOutcome outcome);
  void PrintPageLine(const ReceivedPage& page, const std::string& location);
  // Says once that the output reached its byte limit.
  void TellLimitReached();

  CPacketScanner PacketScanner;
  CPageAssembler Assembler;
  CPageWriter Output;
  CSiteTracker Sites;
  std::set<DWORD> InformationWriteFailed;  // sites whose information file could not be written
  bool LimitTold = false;
  std::vector<CPageListener*> Listeners;
  CPacketTrace* Trace = nullptr;
  // Pages that came whole: site << 9 | page number -> version (high << 8 | low).
  std::map<DWORD, unsigned> WholePageVersions;
  std::ostream& Out;
  std::ostream& Err;
};

}  // namespace zolclient
