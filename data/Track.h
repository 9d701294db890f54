// Tracks with their timelines, sections and track records, each kept in a map by key
// and in a vector sorted by its own sort key.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "data/Subjects.h"
#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CBaseModule;
class CBaseDataComm;
class CRMData;
class CBaseSection;

class CBaseTimeline {
 public:
  virtual ~CBaseTimeline() = default;
  void MessageToTimeLine(CTTBuffer& message);

  BYTE UniqueID = 255;
  BYTE Flags = 0;
  std::string Name;
  DWORD TimelineParam1 = 255;
  BYTE TimelineParam2 = 255;
  BYTE Order = 0;
  double Position = 0;
};

class CTimeline : public CBaseTimeline {
 public:
  // The sections that end here; not owned, and a section may stand in it twice.
  std::vector<CBaseSection*> EndingSections;
};

class CBaseSection {
 public:
  virtual ~CBaseSection() = default;
  void MessageToSection(CTTBuffer& message);

  BYTE UniqueID = 0;
  BYTE Flags = 0;
  std::string Name;
  std::string Name2;
  double Length = 0;
  BYTE StartTimeline = 255;
  BYTE EndTimeline = 255;
  BYTE Order = 0;
};

class CSection : public CBaseSection {
 public:
  CTimeline* Start = nullptr;
  CTimeline* End = nullptr;
};

class CBaseTrackRecord {
 public:
  virtual ~CBaseTrackRecord() = default;
  void MessageToTrackRecord(CTTBuffer& message);

  DWORD UniqueID = 0xFFFFFFFF;
  BYTE RecordType = 0;
  std::string Title;
  KVTTIME RecordTime = KVTTIME_NULL;
  KVTTIME Time2 = KVTTIME_NULL;
  std::string Note;
};

using CTrackRecord = CBaseTrackRecord;

class CBaseTrack : public CTrackSubject, public CTrackRecordsSubject {
 public:
  CBaseTrack() = default;
  ~CBaseTrack() override;

  void MessageToTrack(CTTBuffer& message);

  DWORD UniqueID = 0;
  DWORD Tag = 0;
  BYTE Flags = 0;
  std::string Name;
  std::string Name2;
  double Length = 0;
  double Value2 = 0;
  DWORD TrackParam1 = 20;
  DWORD TrackParam2 = 0;
  BYTE TrackParam3 = 3;
  DWORD TrackParam4 = 0;
  std::vector<std::string> FieldValues;

  std::map<BYTE, CTimeline*> Timelines;
  std::map<BYTE, CSection*> Sections;
  std::map<DWORD, CBaseTrackRecord*> TrackRecords;
  std::vector<CTimeline*> SortedTimelines;
  std::vector<CSection*> SortedSections;
  std::vector<CBaseTrackRecord*> SortedTrackRecords;
  // Entries overwritten by an add under a known key: alive until the track goes.
  std::vector<CBaseTimeline*> OverwrittenTimelines;
  std::vector<CBaseSection*> OverwrittenSections;
  std::vector<CBaseTrackRecord*> OverwrittenTrackRecords;

  void SortTimelines();
  void SortSections();
  void SortTrackRecords();
};

class CTrack : public CBaseTrack {
 public:
  explicit CTrack(CBaseModule* module) : Module(module) {}

  virtual void OnAddTrack() {}
  virtual void OnBeforeModifyTrack() {}
  virtual void OnAfterModifyTrack() {}
  virtual void OnAddTimeline(CTimeline* timeline) { (void)timeline; }
  virtual void OnBeforeModifyTimeline(CTimeline* timeline) { (void)timeline; }
  virtual void OnAfterModifyTimeline(CTimeline* timeline) { (void)timeline; }
  virtual void OnRemoveTimeline(CTimeline* timeline) { (void)timeline; }
  virtual void OnAddSection(CSection* section) { (void)section; }
  virtual void OnBeforeModifySection(CSection* section) { (void)section; }
  virtual void OnAfterModifySection(CSection* section) { (void)section; }
  virtual void OnRemoveSection(CSection* section) { (void)section; }
  virtual void OnAddTrackRecord(CBaseTrackRecord* record) { (void)record; }
  virtual void OnBeforeModifyTrackRecord(CBaseTrackRecord* record) { (void)record; }
  virtual void OnAfterModifyTrackRecord(CBaseTrackRecord* record) { (void)record; }
  virtual void OnRemoveTrackRecord(CBaseTrackRecord* record) { (void)record; }

  void ProcessMessage(CModuleMessage& message);
  // Decodes the body; TRUE when the add was announced (the message was not a snapshot).
  BOOL OnAddTrack(CModuleMessage& message);
  void OnModifyTrack(CModuleMessage& message);
  void OnAddTimeline(CModuleMessage& message);
  void OnModifyTimeline(CModuleMessage& message);
  void OnRemoveTimeline(CModuleMessage& message);
  void OnAddSection(CModuleMessage& message);
  void OnModifySection(CModuleMessage& message);
  void OnRemoveSection(CModuleMessage& message);
  void OnAddTrackRecord(CModuleMessage& message);
  void OnModifyTrackRecord(CModuleMessage& message);
  void OnRemoveTrackRecord(CModuleMessage& message);
  void LinkSectionsAndTimelines();
  void LinkSectionAndTimelines(CSection* section);

  CBaseModule* Module;
  CBaseDataComm* Data = nullptr;

 private:
  CTimeline* FindTimeline(BYTE key) const;
};

class CRMCTrack : public CTrack {
 public:
  using CTrack::CTrack;
  CRMData* RMData = nullptr;
};
