// What the client knows of each site it hears: its information page (build time, clock,
// site parameters), and which of its pages it holds complete since the site's latest
// build. From that it tells whether a site is complete.
//
// A site is complete when
//   - an information page of it was decoded (so page 0 is complete), and
//   - since its latest build time an information page brought the site's parameters with a
//     `pagecount` that is a plain number N, and
//   - at least N distinct page numbers other than 0 of that site were complete since the
//     latest build time (numbers may have gaps, so it is their count that matters).
// A new build time starts the site afresh: its page count is unknown again and its pages
// count from nothing. Pages completed before the first information page are counted for
// the first build time seen.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "client/SiteInformation.h"
#include "frame/Types.h"

namespace zolclient {

struct SiteState {
  bool HasInformation = false;
  DWORD BuildTime = 0;
  std::map<std::string, std::string> Clock;  // from the latest information page
  bool HasSiteParameters = false;            // seen since the latest build time
  std::map<std::string, std::string> SiteParameters;
  std::set<DWORD> CompletePages;  // page numbers other than 0, since the latest build time
  std::uint64_t InformationPages = 0;
  std::uint64_t BadInformationPages = 0;
  std::uint64_t Rebuilds = 0;
  std::string LastBadReason;
};

enum class InformationOutcome {
  NotInformation,  // the record does not decode; nothing changed but the count of bad ones
  FirstSeen,       // the first information page of the site
  SameBuild,
  Rebuilt,         // another build time than before: the site starts afresh
};

class CSiteTracker {
 public:
  // A good packet of `site` was seen: the site exists, even before any page of it is complete.
  void NoteSite(DWORD site);
  InformationOutcome OnInformationPage(DWORD site, const std::vector<BYTE>& data, std::string* reason = nullptr);
  // The same for information that came already decoded (from a broker, say).
  InformationOutcome OnDecodedInformation(DWORD site, SiteInformation information);
  // A page other than page 0 was complete.
  void OnContentPage(DWORD site, DWORD pageNumber);

  bool IsComplete(DWORD site) const;
  // At least one site was seen and every site seen is complete.
  bool AllSitesComplete() const;
  // One short text per site that is not complete, e.g. "site 2: 3 of 5 pages complete";
  // "no site seen" when there is none.
  std::vector<std::string> Shortfalls() const;
  // One line per site for the statistics, each ending in a line break.
  std::string StatsLines() const;
  // The information the client holds of a site, as "key=value" lines.
  std::string InformationFileText(DWORD site) const;

  const std::map<DWORD, SiteState>& Sites() const { return States; }

 private:
  std::map<DWORD, SiteState> States;
};

// Text from the wire with every control character written as \xNN, for messages and
// files: C0 (below 0x20), DEL, and C1 (0x80 to 0x9F) whether it stands as a single byte
// or encoded in UTF-8 (0xC2 0x80 to 0xC2 0x9F). Well-formed UTF-8 of any other character
// stays as it is; so do bytes from 0xA0 up that belong to no such sequence.
std::string PrintableText(const std::string& text);

}  // namespace zolclient
