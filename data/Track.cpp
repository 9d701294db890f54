#include "data/Track.h"

#include <algorithm>
#include <memory>

#include "data/BaseDataComm.h"
#include "data/SideRecords.h"
#include "frame/KVTException.h"

namespace {

template <class Map, class Overwritten, class Record>
void StoreOverwriting(Map& map, typename Map::key_type key, Record* record, Overwritten& overwritten) {
  auto& slot = map[key];
  if (slot != nullptr) overwritten.push_back(slot);
  slot = record;
}

template <class Vector, class Value>
void EraseValue(Vector& vector, Value value) {
  auto found = std::find(vector.begin(), vector.end(), value);
  if (found != vector.end()) vector.erase(found);
}

}  // namespace

void CBaseTimeline::MessageToTimeLine(CTTBuffer& message) {
  Guarded("CBaseTimeline::MessageToTimeLine()",
          [&] { message >> Flags >> Name >> TimelineParam1 >> TimelineParam2 >> Order >> Position; });
}

void CBaseSection::MessageToSection(CTTBuffer& message) {
  Guarded("CBaseSection::MessageToSection()",
          [&] { message >> Flags >> Name >> Name2 >> Length >> StartTimeline >> EndTimeline >> Order; });
}

void CBaseTrackRecord::MessageToTrackRecord(CTTBuffer& message) {
  Guarded("CBaseTrackRecord::MessageToTrackRecord()",
          [&] { message >> RecordType >> Title >> RecordTime >> Time2 >> Note; });
}

CBaseTrack::~CBaseTrack() {
  for (auto& [key, timeline] : Timelines) delete timeline;
  for (auto& [key, section] : Sections) delete section;
  for (auto& [key, record] : TrackRecords) delete record;
  for (auto* record : OverwrittenTimelines) delete record;
  for (auto* record : OverwrittenSections) delete record;
  for (auto* record : OverwrittenTrackRecords) delete record;
}

void CBaseTrack::MessageToTrack(CTTBuffer& message) {
  Guarded("CBaseTrack::MessageToTrack()", [&] {
    message >> Tag >> Flags >> Name >> Name2 >> Length >> Value2 >> TrackParam1 >> TrackParam2 >> TrackParam3 >>
        TrackParam4;
    ReadStringList(message, FieldValues);
    TrackNotify();
  });
}

void CBaseTrack::SortTimelines() {
  std::sort(SortedTimelines.begin(), SortedTimelines.end(),
            [](const CTimeline* a, const CTimeline* b) { return a->Order < b->Order; });
}

void CBaseTrack::SortSections() {
  std::sort(SortedSections.begin(), SortedSections.end(),
            [](const CSection* a, const CSection* b) { return a->Order < b->Order; });
}

void CBaseTrack::SortTrackRecords() {
  std::sort(SortedTrackRecords.begin(), SortedTrackRecords.end(),
            [](const CBaseTrackRecord* a, const CBaseTrackRecord* b) { return a->RecordTime < b->RecordTime; });
}

CTimeline* CTrack::FindTimeline(BYTE key) const {
  auto found = Timelines.find(key);
  return found == Timelines.end() ? nullptr : found->second;
}

void CTrack::ProcessMessage(CModuleMessage& message) {
  Guarded("CTrack::ProcessMessage()", [&] {
    switch (message.ID) {
      case 34: OnModifyTrack(message); break;
      case 35: OnAddTimeline(message); break;
      case 36: OnModifyTimeline(message); break;
      case 37: OnRemoveTimeline(message); break;
      case 38: OnAddSection(message); break;
      case 39: OnModifySection(message); break;
      case 40: OnRemoveSection(message); break;
      case 41: OnAddTrackRecord(message); break;
      case 42: OnModifyTrackRecord(message); break;
      case 43: OnRemoveTrackRecord(message); break;
      default: break;
    }
  });
}

BOOL CTrack::OnAddTrack(CModuleMessage& message) {
  return Guarded("CTrack::OnAddTrack()", [&] {
    MessageToTrack(message);
    LinkSectionsAndTimelines();
    if (message.ID == 2) return FALSE;
    OnAddTrack();
    if (Data != nullptr) Data->TracksNotify(1, this);
    return TRUE;
  });
}

void CTrack::OnModifyTrack(CModuleMessage& message) {
  Guarded("CTrack::OnModifyTrack()", [&] {
    OnBeforeModifyTrack();
    const BYTE old = Flags;
    MessageToTrack(message);
    OnAfterModifyTrack();
    BYTE kind = 2;
    if (((old ^ Flags) & 1) != 0) kind = (Flags & 1) != 0 ? 3 : 1;
    if (Data != nullptr) Data->TracksNotify(kind, this);
  });
}

void CTrack::LinkSectionsAndTimelines() {
  Guarded("CTrack::LinkSectionsAndTimelines()", [&] {
    for (CSection* section : SortedSections) LinkSectionAndTimelines(section);
  });
}

void CTrack::LinkSectionAndTimelines(CSection* section) {
  Guarded("CTrack::LinkSectionAndTimelines()", [&] {
    if (CTimeline* start = FindTimeline(section->StartTimeline)) section->Start = start;
    if (CTimeline* end = FindTimeline(section->EndTimeline)) {
      section->End = end;
      end->EndingSections.push_back(section);
    }
  });
}

void CTrack::OnAddTimeline(CModuleMessage& message) {
  Guarded("CTrack::OnAddTimeline()", [&] {
    BYTE key = 0;
    message >> key;
    auto fresh = std::make_unique<CTimeline>();
    fresh->UniqueID = key;
    fresh->MessageToTimeLine(message);
    CTimeline* timeline = fresh.release();
    StoreOverwriting(Timelines, key, timeline, OverwrittenTimelines);
    SortedTimelines.push_back(timeline);
    SortTimelines();
    if (message.ID != 2) OnAddTimeline(timeline);
  });
}

void CTrack::OnModifyTimeline(CModuleMessage& message) {
  Guarded("CTrack::OnModifyTimeline()", [&] {
    BYTE key = 0;
    message >> key;
    CTimeline* timeline = FindTimeline(key);
    if (timeline == nullptr) return;
    OnBeforeModifyTimeline(timeline);
    timeline->MessageToTimeLine(message);
    SortTimelines();
    OnAfterModifyTimeline(timeline);
  });
}

void CTrack::OnRemoveTimeline(CModuleMessage& message) {
  Guarded("CTrack::OnRemoveTimeline()", [&] {
    BYTE key = 0;
    message >> key;
    CTimeline* timeline = FindTimeline(key);
    if (timeline == nullptr) return;
    for (auto& [sectionKey, section] : Sections) {
      if (section->Start == timeline) section->Start = nullptr;
      if (section->End == timeline) section->End = nullptr;
    }
    OnRemoveTimeline(timeline);
    EraseValue(SortedTimelines, timeline);
    delete timeline;
    Timelines.erase(key);
  });
}

void CTrack::OnAddSection(CModuleMessage& message) {
  Guarded("CTrack::OnAddSection()", [&] {
    BYTE key = 0;
    message >> key;
    auto fresh = std::make_unique<CSection>();
    fresh->UniqueID = key;
    fresh->MessageToSection(message);
    CSection* section = fresh.release();
    section->Start = FindTimeline(section->StartTimeline);
    section->End = FindTimeline(section->EndTimeline);
    StoreOverwriting(Sections, key, section, OverwrittenSections);
    SortedSections.push_back(section);
    SortSections();
    LinkSectionAndTimelines(section);
    if (message.ID != 2) OnAddSection(section);
  });
}

void CTrack::OnModifySection(CModuleMessage& message) {
  Guarded("CTrack::OnModifySection()", [&] {
    BYTE key = 0;
    message >> key;
    auto found = Sections.find(key);
    if (found == Sections.end()) return;
    CSection* section = found->second;
    OnBeforeModifySection(section);
    section->MessageToSection(message);
    SortSections();
    section->Start = FindTimeline(section->StartTimeline);
    section->End = FindTimeline(section->EndTimeline);
    OnAfterModifySection(section);
  });
}

void CTrack::OnRemoveSection(CModuleMessage& message) {
  Guarded("CTrack::OnRemoveSection()", [&] {
    BYTE key = 0;
    message >> key;
    auto found = Sections.find(key);
    if (found == Sections.end()) return;
    CSection* section = found->second;
    OnRemoveSection(section);
    EraseValue(SortedSections, section);
    // A timeline's list of ending sections is not read by this module; drop the pointer
    // there too, so that nothing holds a destroyed section.
    for (auto& [timelineKey, timeline] : Timelines) {
      auto& ending = timeline->EndingSections;
      ending.erase(std::remove(ending.begin(), ending.end(), section), ending.end());
    }
    delete section;
    Sections.erase(found);
  });
}

void CTrack::OnAddTrackRecord(CModuleMessage& message) {
  Guarded("CTrack::OnAddTrackRecord()", [&] {
    DWORD key = 0;
    message >> key;
    auto fresh = std::make_unique<CTrackRecord>();
    fresh->UniqueID = key;
    fresh->MessageToTrackRecord(message);
    CBaseTrackRecord* record = fresh.release();
    StoreOverwriting(TrackRecords, key, record, OverwrittenTrackRecords);
    SortedTrackRecords.push_back(record);
    SortTrackRecords();
    if (message.ID != 2) {
      OnAddTrackRecord(record);
      TrackRecordsNotify(1, record);
    }
  });
}

void CTrack::OnModifyTrackRecord(CModuleMessage& message) {
  Guarded("CTrack::OnModifyTrackRecord()", [&] {
    DWORD key = 0;
    message >> key;
    auto found = TrackRecords.find(key);
    if (found == TrackRecords.end()) return;
    CBaseTrackRecord* record = found->second;
    OnBeforeModifyTrackRecord(record);
    record->MessageToTrackRecord(message);
    SortTrackRecords();
    OnAfterModifyTrackRecord(record);
    TrackRecordsNotify(2, record);
  });
}

void CTrack::OnRemoveTrackRecord(CModuleMessage& message) {
  Guarded("CTrack::OnRemoveTrackRecord()", [&] {
    DWORD key = 0;
    message >> key;
    auto found = TrackRecords.find(key);
    if (found == TrackRecords.end()) return;
    CBaseTrackRecord* record = found->second;
    OnRemoveTrackRecord(record);
    TrackRecordsNotify(3, record);
    EraseValue(SortedTrackRecords, record);
    delete record;
    TrackRecords.erase(found);
  });
}
