// Runs: the live part of the programme, with their ranges, competitors, announcements
// and passings, and the active-run bit.
#pragma once

#include <string>
#include <vector>

#include "data/Competitor.h"
#include "frame/Parameters.h"
#include "data/Passing.h"
#include "data/SideRecords.h"
#include "data/Subjects.h"
#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CBaseModule;
class CBaseDataComm;
class CRMData;
class CTrack;
class Cevent;

// Bits of a run's Flags.
inline constexpr WORD kRunDeleted = 1;
inline constexpr WORD kRunActive = 2;
inline constexpr WORD kRunHasPassings = 4;
inline constexpr WORD kRunLocal = 16;
inline constexpr WORD kRunFresh = 32;
inline constexpr WORD kRunSecondTimeBasis = 512;

class CBaseRange {
 public:
  virtual ~CBaseRange() = default;
  void MessageToRange(CTTBuffer& message);

  DWORD RangeFirst = 0xFFFFFFFF;
  DWORD RangeLast = 0xFFFFFFFF;
  DWORD RangeValue = 0;
};

class CBaseRun : public CCompetitorOwner,
                 public CAnnouncementOwner,
                 public CRunSubject,
                 public CCompetitorsSubject,
                 public CAnnouncementsSubject,
                 public CResultsSubject {
 public:
  CBaseRun() = default;
  ~CBaseRun() override;
  void MessageToRun(CTTBuffer& message);

  DWORD UniqueID = 0xFFFFFFFF;
  DWORD Tag = 0;
  WORD Flags = kRunLocal | kRunFresh;
  DWORD EventID = 0xFFFFFFFF;
  std::string Name = "New Run";
  DWORD RunParam1 = 0;
  WORD RunParam2 = 65535;
  KVTTIME StartTime = KVTTIME_NULL;
  KVTTIME EndTime = KVTTIME_NULL;
  BYTE RunType = 0;
  std::string Name2;
  DWORD RunParam3 = 0xFFFFFFFF;
  DWORD RunParam4 = 0;
  std::vector<std::string> FieldValues;
  CParameters Parameters;

  std::vector<CBaseRange*> Ranges;
  CTrack* Track = nullptr;
  Cevent* Event = nullptr;
  CCompetitorContainer* Competitors = nullptr;
  CAnnouncementContainer* Announcements = nullptr;
};

class CRun : public CBaseRun {
 public:
  explicit CRun(CBaseModule* module);
  ~CRun() override;

  // The passing owner side of the run: reports of its passing list come back here.
  class CPassingSide : public CPassingOwner {
   public:
    explicit CPassingSide(CRun* run) : Run(run) {}
    CRun* Run;
  };

  void AddCompetitors() override;
  void ModifyCompetitors() override;
  void RemoveCompetitors() override;
  void AddAnnouncement() override;
  void ModifyAnnouncement() override;
  void RemoveAnnouncement() override;
  virtual void OnAddRun() {}
  virtual void OnBeforeModifyRun() {}
  virtual void OnAfterModifyRun() {}
  virtual void OnActiveRunChanged() {}
  virtual void OnAddRange(CBaseRange* range) { (void)range; }
  virtual void OnModifyRange(CBaseRange* range) { (void)range; }
  virtual void OnRemoveRange(CBaseRange* range) { (void)range; }
  virtual void OnAddAnnouncement() {}
  virtual void OnModifyAnnouncement() {}
  virtual void OnRemoveAnnouncement() {}
  virtual void OnAddCompetitors() {}
  virtual void OnModifyCompetitors() {}
  virtual void OnRemoveCompetitors() {}
  virtual void OnClearAllPassings() {}

  void ProcessMessage(CModuleMessage& message);
  void ProcessAnnouncementMessage(CModuleMessage& message);
  BOOL OnAddRun(CModuleMessage& message);
  void OnModifyRun(CModuleMessage& message);
  void MessageToRanges(CTTBuffer& message);
  void OnAddRange(CModuleMessage& message);
  void OnModifyRange(CModuleMessage& message);
  void OnRemoveRange(CModuleMessage& message);
  void UpdateTrackEvent();
  void ClearAllPassings();
  void OnAddPassings(CModuleMessage& message);
  void OnModifyPassings(CModuleMessage& message);
  void OnAllPassings(CModuleMessage& message);

  BOOL IsActive() const { return (Flags & kRunActive) != 0 ? TRUE : FALSE; }

  CPassingSide PassingSide{this};
  CBaseModule* Module;
  CPassingList* Passings;
  CBaseDataComm* Data = nullptr;
  BOOL PassingsLive = FALSE;
  BOOL PassingsWanted = FALSE;
};

class CRMCRun : public CRun {
 public:
  using CRun::CRun;
  void OnActiveRunChanged() override;
  void OnClearAllPassings() override;
  CRMData* RMData = nullptr;
};

// Whether a run type is one that has results: practice, qualify or race.
inline BOOL RunTypeHasResults(BYTE type) { return type <= 2 ? TRUE : FALSE; }
