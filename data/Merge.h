// Merges: results combined from several runs or merges, with their rows and cells.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "data/Competitor.h"
#include "frame/Parameters.h"
#include "data/SideRecords.h"
#include "data/Subjects.h"
#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CBaseModule;
class CBaseDataComm;
class CRMData;
class CTrack;
class Cevent;

class CBaseMergeCell : public CBaseCompetitor {
 public:
  void MessageToMergeCell(CTTBuffer& message);
  void MergeCellToMessage(CTTBuffer& message) const;

  DWORD CellID = 0xFFFFFFFF;
  WORD CellWord = 65535;
  KVTTIME CellTime1 = KVTTIME_NULL;
  int CellCount1 = 0;
  double CellValue1 = 0;
  KVTTIME CellTime2 = KVTTIME_NULL;
  int CellCount2 = 0;
  double CellValue2 = 0;
  int CellCount3 = 0;
  KVTTIME CellTime3 = KVTTIME_NULL;
  double CellValue3 = 0;
};

class CBaseMergeRow {
 public:
  CBaseMergeRow() : MainCell(new CBaseMergeCell) {}
  CBaseMergeRow(const CBaseMergeRow&) = delete;
  CBaseMergeRow& operator=(const CBaseMergeRow&) = delete;
  virtual ~CBaseMergeRow();

  void MessageToMergeRow(CTTBuffer& message);
  void MergeRowToMessage(CTTBuffer& message) const;

  DWORD UniqueID = 0xFFFFFFFF;
  WORD RowWord = 65535;
  BYTE RowByte = 1;
  KVTTIME RowTime1 = KVTTIME_NULL;
  KVTTIME RowTime2 = KVTTIME_NULL;
  CBaseMergeCell* MainCell;
  std::vector<CBaseMergeCell*> Cells;
};

class CBaseMerge : public CMergeSubject,
                   public CAnnouncementOwner,
                   public CMergeRowsSubject,
                   public CAnnouncementsSubject {
 public:
  CBaseMerge() = default;
  void MessageToMerge(CTTBuffer& message);
  DWORD IDGetHead();
  DWORD IDGetNext();

  DWORD UniqueID = 0xFFFFFFFF;
  DWORD Tag = 0;
  BYTE Flags = 0;
  DWORD EventID = 0xFFFFFFFF;
  std::string Name;
  BYTE MergeType = 0;
  std::vector<DWORD> IDs;
  CParameters Parameters;

  CTrack* Track = nullptr;
  Cevent* Event = nullptr;
  CAnnouncementContainer* Announcements = nullptr;
  std::map<DWORD, CBaseMergeRow*> Rows;
  std::vector<CBaseMergeRow*> RowList;
  std::vector<CBaseMergeRow*> UpdatedRows;
  std::vector<CBaseMergeRow*> RemovedRows;

 private:
  std::size_t IDCursor = 0;
};

class CMerge : public CBaseMerge {
 public:
  explicit CMerge(CBaseModule* module);
  ~CMerge() override;

  void AddAnnouncement() override;
  void ModifyAnnouncement() override;
  void RemoveAnnouncement() override;
  virtual void OnAddMerge() {}
  virtual void OnBeforeModifyMerge() {}
  virtual void OnAfterModifyMerge() {}
  virtual void OnAddMergeRows() {}
  virtual void OnModifyMergeRows() {}
  virtual void OnRemoveMergeRows() {}
  virtual void OnAddAnnouncement() {}
  virtual void OnModifyAnnouncement() {}
  virtual void OnRemoveAnnouncement() {}

  void Clear();
  void UpdateTrackEvent();
  void ProcessMessage(CModuleMessage& message);
  void ProcessAnnouncementMessage(CModuleMessage& message);
  BOOL OnAddMerge(CModuleMessage& message);
  void OnModifyMerge(CModuleMessage& message);
  // The list block of a merge: reads rows out of the message, telling nobody.
  void MergeRowsToMessage(CTTBuffer& message);
  void OnAddMergeRows(CModuleMessage& message);
  void OnModifyMergeRows(CModuleMessage& message);
  void OnRemoveMergeRows(CModuleMessage& message);

  CBaseModule* Module;
  CBaseDataComm* Data = nullptr;

 private:
  CBaseMergeRow* StoreRow(DWORD key, CBaseMergeRow* row);
};

class CRMCMerge : public CMerge {
 public:
  using CMerge::CMerge;
  CRMData* RMData = nullptr;
};
