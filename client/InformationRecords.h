// Test helper: information page contents written by the module's own buffer and parameter
// writers, so that the client's decoder is checked against the sending side.
#pragma once

#include <string>

#include "client/HandBuiltPackets.h"
#include "frame/Parameters.h"
#include "frame/TTBuffer.h"

namespace inforecords {

using handbuilt::Bytes;

inline CParameters Clock(const std::string& flag = "green", const std::string& timeOfDay = "10:15:22") {
  CParameters clock;
  clock.Add("flag", flag);
  clock.Add("racetime", "0:12:03.400");
  clock.Add("timeofday", timeOfDay);
  clock.Add("timetogo", "-");
  return clock;
}

inline CParameters SiteParameters(const std::string& name, int pageCount) {
  CParameters site;
  site.Add("name", name);
  site.Add("width", 800);
  site.Add("height", 600);
  site.Add("pagecount", pageCount);
  return site;
}

// Build time, clock block, then the site's block or, without one, the int 0.
inline Bytes Record(DWORD buildTime, const CParameters& clock, const CParameters* site) {
  CTTBuffer buffer(4096);
  buffer << buildTime;
  clock.ParametersToBuffer(buffer);
  if (site != nullptr) {
    site->ParametersToBuffer(buffer);
  } else {
    buffer << 0;
  }
  return Bytes(buffer.GetData(), buffer.GetData() + buffer.GetFilled());
}

// The information page of a site as packets: page 0, empty path and name.
inline std::vector<Bytes> Packets(DWORD site, BYTE sequenceLow, const Bytes& record, BYTE sequenceHigh = 0) {
  return handbuilt::PagePackets(site, 0, sequenceHigh, sequenceLow, "", "", record);
}

}  // namespace inforecords
