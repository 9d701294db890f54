// The information page of a site (page number 0): a binary record, not text. In the byte
// buffer encoding (little-endian; a string is a DWORD length and its bytes) it holds:
//   DWORD  build time of the site (it changes when the site is rebuilt)
//   int    count, then count pairs of key and value strings: the clock
//          (flag, racetime, timeofday, timetogo)
//   int    count, then count pairs: the site's parameters (name, width, height, pagecount,
//          maybe others); only in some exports, the others carry a count of 0 here.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>

#include "frame/Types.h"

namespace zolclient {

struct SiteInformation {
  DWORD BuildTime = 0;
  std::map<std::string, std::string> Clock;
  // False when the record carried an empty block (count 0) in the place of the site's parameters.
  bool HasSiteParameters = false;
  std::map<std::string, std::string> SiteParameters;
};

// Decodes a whole information page. Every length and count is checked against the bytes
// that are there; a record that is cut short, has a negative count, a string running past
// the end, or bytes left over after the last block is not an information page: the result
// is false, `information` is left as it was and `reason` (when given) says why in a few words.
bool DecodeSiteInformation(const BYTE* data, std::size_t length, SiteInformation& information,
                           std::string* reason = nullptr);

// The site's `pagecount` when it is a plain decimal number (digits only, at most 9 of them).
std::optional<std::size_t> SitePageCount(const std::map<std::string, std::string>& siteParameters);

}  // namespace zolclient
