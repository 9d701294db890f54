// Field-by-field comparison of records and whole stores, for the tests and the replay
// check: each function returns an empty text when the two agree, else the first field
// that differs with its path.
#pragma once

#include <string>

#include "data/BaseDataComm.h"

namespace RecordEquality {

std::string Compare(const CBaseField& a, const CBaseField& b);
std::string Compare(const CBaseTrack& a, const CBaseTrack& b);
std::string Compare(const CBaseTimeline& a, const CBaseTimeline& b);
std::string Compare(const CBaseSection& a, const CBaseSection& b);
std::string Compare(const CBaseTrackRecord& a, const CBaseTrackRecord& b);
std::string Compare(const CBaseEvent& a, const CBaseEvent& b);
std::string Compare(const CBaseRun& a, const CBaseRun& b);
std::string Compare(const CBaseRange& a, const CBaseRange& b);
std::string Compare(const CBaseAnnouncement& a, const CBaseAnnouncement& b);
std::string Compare(const CBaseMerge& a, const CBaseMerge& b);
std::string Compare(const CBaseMergeRow& a, const CBaseMergeRow& b);
std::string Compare(const CBaseMergeCell& a, const CBaseMergeCell& b);
std::string Compare(const CBaseCompetitor& a, const CBaseCompetitor& b);
std::string Compare(const CBasePassing& a, const CBasePassing& b);
std::string Compare(const CBaseTxTranslation& a, const CBaseTxTranslation& b);
std::string Compare(const CBaseChampionship& a, const CBaseChampionship& b);
std::string Compare(const CBaseCompetitorContainer& a, const CBaseCompetitorContainer& b);

template <class Map>
std::string CompareMaps(const char* label, const Map& a, const Map& b) {
  if (a.size() != b.size()) {
    return std::string(label) + ": " + std::to_string(a.size()) + " vs " + std::to_string(b.size()) + " entries";
  }
  for (auto ia = a.begin(), ib = b.begin(); ia != a.end(); ++ia, ++ib) {
    if (ia->first != ib->first) return std::string(label) + ": key " + std::to_string(ia->first) + " vs " +
                                       std::to_string(ib->first);
    {
      std::string difference = Compare(*ia->second, *ib->second);
      if (!difference.empty()) return std::string(label) + "[" + std::to_string(ia->first) + "]." + difference;
    }
  }
  return {};
}

template <class Vector>
std::string CompareVectors(const char* label, const Vector& a, const Vector& b) {
  if (a.size() != b.size()) {
    return std::string(label) + ": " + std::to_string(a.size()) + " vs " + std::to_string(b.size()) + " entries";
  }
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::string difference = Compare(*a[i], *b[i]);
    if (!difference.empty()) return std::string(label) + "[" + std::to_string(i) + "]." + difference;
  }
  return {};
}

// Whole stores: records with their timelines, sections, track records, competitors,
// ranges, announcements, rows and (for runs) passings; side records and fields.
std::string CompareStores(const CBaseDataComm& a, const CBaseDataComm& b);

}  // namespace RecordEquality
