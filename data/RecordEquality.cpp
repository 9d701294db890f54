#include "data/RecordEquality.h"

#include <cstring>
#include <sstream>

namespace RecordEquality {
namespace {

template <class T>
std::string Show(const T& value) {
  std::ostringstream out;
  if constexpr (std::is_same_v<T, BYTE>) {
    out << static_cast<int>(value);
  } else if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, std::string>) {
    out << value;
  } else {
    out << "(" << value.size() << " entries)";
  }
  return out.str();
}

template <class T>
bool Same(const T& a, const T& b) {
  if constexpr (std::is_same_v<T, double>) {
    return std::memcmp(&a, &b, sizeof a) == 0;
  } else {
    return a == b;
  }
}

}  // namespace

#define FIELD(name)                                                                                \
  if (!Same(a.name, b.name)) return std::string(#name ": ") + Show(a.name) + " vs " + Show(b.name);
#define NESTED(label, expr)                   \
  {                                           \
    std::string difference = (expr);          \
    if (!difference.empty()) return std::string(label) + "." + difference; \
  }

std::string Compare(const CBaseField& a, const CBaseField& b) {
  FIELD(FieldName) FIELD(FieldText) FIELD(FieldSize) FIELD(FieldType) FIELD(FieldByte1) FIELD(FieldParam)
  FIELD(FieldByte2) FIELD(FieldChoices)
  return {};
}

std::string Compare(const CBaseTimeline& a, const CBaseTimeline& b) {
  FIELD(UniqueID) FIELD(Flags) FIELD(Name) FIELD(TimelineParam1) FIELD(TimelineParam2) FIELD(Order) FIELD(Position)
  return {};
}

std::string Compare(const CBaseSection& a, const CBaseSection& b) {
  FIELD(UniqueID) FIELD(Flags) FIELD(Name) FIELD(Name2) FIELD(Length) FIELD(StartTimeline) FIELD(EndTimeline)
  FIELD(Order)
  return {};
}

std::string Compare(const CBaseTrackRecord& a, const CBaseTrackRecord& b) {
  FIELD(UniqueID) FIELD(RecordType) FIELD(Title) FIELD(RecordTime) FIELD(Time2) FIELD(Note)
  return {};
}

std::string Compare(const CBaseTrack& a, const CBaseTrack& b) {
  FIELD(UniqueID) FIELD(Tag) FIELD(Flags) FIELD(Name) FIELD(Name2) FIELD(Length) FIELD(Value2) FIELD(TrackParam1)
  FIELD(TrackParam2) FIELD(TrackParam3) FIELD(TrackParam4) FIELD(FieldValues)
  NESTED("", CompareMaps("Timelines", a.Timelines, b.Timelines))
  NESTED("", CompareMaps("Sections", a.Sections, b.Sections))
  NESTED("", CompareMaps("TrackRecords", a.TrackRecords, b.TrackRecords))
  return {};
}

std::string Compare(const CBaseCompetitor& a, const CBaseCompetitor& b) {
  FIELD(UniqueID) FIELD(Number) FIELD(Text1) FIELD(Transponders) FIELD(FieldValues) FIELD(Status) FIELD(Text2)
  FIELD(Class) FIELD(Word1) FIELD(Byte1) FIELD(Text3) FIELD(FirstName) FIELD(LastName) FIELD(Value1) FIELD(Time1)
  FIELD(Count1) FIELD(Time2) FIELD(Value2) FIELD(Count2) FIELD(Time3) FIELD(Count3) FIELD(Time4) FIELD(FullName)
  if (a.TransponderLabels != b.TransponderLabels) return "TransponderLabels differ";
  return {};
}

std::string Compare(const CBaseCompetitorContainer& a, const CBaseCompetitorContainer& b) {
  NESTED("", CompareMaps("Competitors", a.Competitors, b.Competitors))
  if (a.Transponders != b.Transponders) return "transponder map differs";
  return {};
}

std::string Compare(const CBaseEvent& a, const CBaseEvent& b) {
  FIELD(UniqueID) FIELD(Tag) FIELD(Flags) FIELD(TrackID) FIELD(ParentID) FIELD(Name) FIELD(Name2) FIELD(Name3)
  FIELD(StartDate) FIELD(EndDate) FIELD(EventParam) FIELD(FieldValues)
  const auto* ea = dynamic_cast<const Cevent*>(&a);
  const auto* eb = dynamic_cast<const Cevent*>(&b);
  if (ea != nullptr && eb != nullptr) NESTED("Competitors", Compare(*ea->Competitors, *eb->Competitors))
  return {};
}

std::string Compare(const CBaseRange& a, const CBaseRange& b) {
  FIELD(RangeFirst) FIELD(RangeLast) FIELD(RangeValue)
  return {};
}

std::string Compare(const CBaseAnnouncement& a, const CBaseAnnouncement& b) {
  FIELD(UniqueID) FIELD(AnnouncementParam) FIELD(AnnouncementType) FIELD(Text)
  return {};
}

std::string Compare(const CBasePassing& a, const CBasePassing& b) {
  FIELD(UniqueID) FIELD(PassingType) FIELD(Transponder) FIELD(TimeOfDay) FIELD(Word1) FIELD(Word2) FIELD(Byte1)
  FIELD(Byte2) FIELD(Byte3) FIELD(Dword1) FIELD(Byte4) FIELD(Dword2) FIELD(Dword3) FIELD(RawTime)
  FIELD(CorrectedTime) FIELD(DayOffset)
  return {};
}

std::string Compare(const CBaseRun& a, const CBaseRun& b) {
  FIELD(UniqueID) FIELD(Tag) FIELD(Flags) FIELD(EventID) FIELD(Name) FIELD(RunParam1) FIELD(RunParam2)
  FIELD(StartTime) FIELD(EndTime) FIELD(RunType) FIELD(Name2) FIELD(RunParam3) FIELD(RunParam4) FIELD(FieldValues)
  if (!(a.Parameters == b.Parameters)) return "Parameters differ";
  NESTED("", CompareVectors("Ranges", a.Ranges, b.Ranges))
  if ((a.Competitors == nullptr) != (b.Competitors == nullptr)) return "Competitors: one is missing";
  if (a.Competitors != nullptr) NESTED("Competitors", Compare(*a.Competitors, *b.Competitors))
  if ((a.Announcements == nullptr) != (b.Announcements == nullptr)) return "Announcements: one is missing";
  if (a.Announcements != nullptr) {
    NESTED("", CompareMaps("Announcements", a.Announcements->Announcements, b.Announcements->Announcements))
  }
  const auto* ra = dynamic_cast<const CRun*>(&a);
  const auto* rb = dynamic_cast<const CRun*>(&b);
  if (ra != nullptr && rb != nullptr) NESTED("", CompareMaps("Passings", ra->Passings->Passings, rb->Passings->Passings))
  return {};
}

std::string Compare(const CBaseMergeCell& a, const CBaseMergeCell& b) {
  FIELD(CellID) FIELD(CellWord) FIELD(CellTime1) FIELD(CellCount1) FIELD(CellValue1) FIELD(CellTime2)
  FIELD(CellCount2) FIELD(CellValue2) FIELD(CellCount3) FIELD(CellTime3) FIELD(CellValue3)
  NESTED("", Compare(static_cast<const CBaseCompetitor&>(a), static_cast<const CBaseCompetitor&>(b)))
  return {};
}

std::string Compare(const CBaseMergeRow& a, const CBaseMergeRow& b) {
  FIELD(UniqueID) FIELD(RowWord) FIELD(RowByte) FIELD(RowTime1) FIELD(RowTime2)
  NESTED("MainCell", Compare(*a.MainCell, *b.MainCell))
  NESTED("", CompareVectors("Cells", a.Cells, b.Cells))
  return {};
}

std::string Compare(const CBaseMerge& a, const CBaseMerge& b) {
  FIELD(UniqueID) FIELD(Tag) FIELD(Flags) FIELD(EventID) FIELD(Name) FIELD(MergeType) FIELD(IDs)
  if (!(a.Parameters == b.Parameters)) return "Parameters differ";
  NESTED("", CompareMaps("Rows", a.Rows, b.Rows))
  if (a.Announcements != nullptr && b.Announcements != nullptr) {
    NESTED("", CompareMaps("Announcements", a.Announcements->Announcements, b.Announcements->Announcements))
  }
  return {};
}

std::string Compare(const CBaseTxTranslation& a, const CBaseTxTranslation& b) {
  FIELD(UniqueID) FIELD(Text)
  return {};
}

std::string Compare(const CBaseChampionship& a, const CBaseChampionship& b) {
  FIELD(UniqueID) FIELD(Name) FIELD(ChampionshipType) FIELD(Text2) FIELD(Text3)
  return {};
}

std::string CompareStores(const CBaseDataComm& a, const CBaseDataComm& b) {
  for (int kind = 0; kind < 4; ++kind) {
    NESTED("", CompareVectors(("Fields" + std::to_string(kind)).c_str(), a.FieldVectors[kind], b.FieldVectors[kind]))
  }
  NESTED("", CompareMaps("Tracks", a.Tracks, b.Tracks))
  NESTED("", CompareMaps("Events", a.Events, b.Events))
  NESTED("", CompareMaps("Runs", a.Runs, b.Runs))
  NESTED("", CompareMaps("Merges", a.Merges, b.Merges))
  NESTED("", CompareMaps("TxTranslations", a.TxTranslations, b.TxTranslations))
  NESTED("", CompareMaps("Championships", a.Championships, b.Championships))
  return {};
}

#undef FIELD
#undef NESTED

}  // namespace RecordEquality
