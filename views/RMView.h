// The local mirror of one result view that the data manager computes: typed columns and
// a keyed set of rows for one set of parameters, kept sorted on one column, with the
// readers (tables and labels) told of every change. Views are created and fed by
// CRMComm, which shares one view among all readers that ask for the same thing.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "frame/Parameters.h"
#include "frame/TTBuffer.h"
#include "frame/Types.h"
#include "views/Column.h"
#include "views/RMViewObserver.h"
#include "views/RMViewRow.h"

class CBaseModule;
class CRMData;

inline constexpr WORD kMsgViewConnect = 0x8021;
inline constexpr WORD kMsgViewDisconnect = 0x8022;
inline constexpr WORD kMsgAllRows = 0x8024;
inline constexpr WORD kMsgAddRows = 0x8025;
inline constexpr WORD kMsgModifyRows = 0x8026;
inline constexpr WORD kMsgRemoveRows = 0x8027;

// How a filter value is held against a cell's text.
enum class EFilterMode : int {
  ShowOnlyMatchingAll = 0,  // hidden as soon as one text differs
  ShowIfAnyMatches = 1,     // shown as soon as one text matches
  ShowIfAnyDiffers = 2,     // shown as soon as one text differs
  HideIfAnyMatches = 3,     // hidden as soon as one text matches
};

class CRMView {
 public:
  CRMView(const std::string& name, DWORD viewID, BOOL isPrivate, BOOL grouped, const CParameters& parameters,
          CRMData* data, CBaseModule* module);
  CRMView(const CRMView&) = delete;
  CRMView& operator=(const CRMView&) = delete;
  // Clears, then tells every observer that the view is gone.
  virtual ~CRMView();

  // The first observer asks the data manager for the view (0x8021); a later one gets
  // the structure and all rows at once and causes no message.
  void Attach(CRMViewObserver* observer);
  // When the last observer leaves, the view is cleared, the data manager told (0x8022)
  // if asked for, and the name and parameters emptied: the view can no longer be found.
  void Detach(CRMViewObserver* observer, BOOL tellDataManager);

  // Name, view ID and parameter block: the body of 0x8021 and 0x8022 out.
  void ViewToMessage(CTTBuffer& message) const;
  // The structure block of 0x8021 in: columns are appended, the structure row built.
  void MessageToViewStructure(CTTBuffer& message);

  // The row handlers of 0x8024 to 0x8027; the message is read from behind the view ID.
  void OnAllRows(CTTBuffer& message);
  void OnAddRows(CTTBuffer& message);
  void OnModifyRows(CTTBuffer& message);
  void OnRemoveRows(CTTBuffer& message);

  void SetSortColumn(const std::string& key, BOOL ascending);
  // Filters only a private view; the values pair with the column names by position.
  void SetFilter(BOOL on, BOOL contains, EFilterMode mode, const std::vector<std::string>& columnNames,
                 const std::vector<std::string>& values);
  BOOL CompareParameters(const CParameters& parameters) const;
  // Null for 0xFFFFFFFF and for an index not below the column count.
  CColumn* ColumnGetAt(DWORD index) const;
  // The index of the first column whose key equals key byte for byte, else -1.
  int ColumnFind(const std::string& key) const;
  void Clear();

  // What observers read inside a notification.
  const std::vector<CRMViewRow*>& GetSortedRows() const { return SortedRows; }
  std::size_t GetRowCount() const { return SortedRows.size(); }
  const std::vector<CRMViewRow*>& GetChangedRows() const { return ChangedRows; }
  const std::vector<CRMViewRow*>& GetRemovedRows() const { return RemovedRows; }
  const std::map<DWORD, CRMViewRow*>& GetRowMap() const { return RowMap; }
  const std::map<DWORD, std::string>& GetGroupNames() const { return GroupNames; }
  const std::vector<CRMViewRow*>& GetGroupRows() const { return GroupRows; }
  std::size_t GetColumnCount() const { return Columns.size(); }
  const CRMViewRow* GetStructureRow() const { return StructureRow; }

  const std::string& GetName() const { return Name; }
  DWORD GetViewID() const { return ViewID; }
  BOOL IsPrivate() const { return Private; }
  BOOL IsGrouped() const { return Grouped; }
  BOOL IsWaitingForAllRows() const { return WaitingForAllRows; }
  const CParameters& GetParameters() const { return Parameters; }
  const std::vector<CRMViewObserver*>& GetObservers() const { return Observers; }
  const std::string& GetSortColumnName() const { return SortColumnName; }
  BOOL IsAscending() const { return Ascending; }
  int GetSortColumnIndex() const { return SortColumnIndex; }

 private:
  // The walk over the observers keeps its cursor here, so that an observer may detach
  // itself or another during a notification.
  template <class Call>
  void NotifyEach(Call&& call);
  void NotifyStructure();
  void NotifyBeforeData(int type);
  void NotifyData(int type);
  void SendViewRequest(WORD id);

  // A row with the structure row's empty cells.
  CRMViewRow* NewRow(DWORD rowID) const;
  // Step 4 of all-rows and add: reads the rows and enters them as new.
  void ReadNewRows(CTTBuffer& message);
  // Reads the row count and hands each known row to `known`; unknown rows are read into
  // a throw-away row so that the next row starts at the right place.
  template <class Known>
  void ReadKnownRows(CTTBuffer& message, Known&& known);
  // Steps 4 and 5 of modify and remove: tells of changed rows, then of removed rows,
  // which are destroyed after.
  void NotifyChangedAndRemoved();
  void ProcessGroupsMessage(CTTBuffer& message);

  void Sort();
  void Filter();
  void SetFilterColumnIndexes();
  void ClearGroupRows();
  void UpdateGroupRows();
  void DestroyRemovedRows();

  std::string Name;
  DWORD ViewID;
  BOOL WaitingForAllRows = TRUE;
  BOOL Private;
  BOOL Grouped;
  CBaseModule* Module;
  CRMData* Data;
  CRMViewRow* StructureRow = nullptr;

  std::vector<CRMViewObserver*> Observers;
  // Index of the observer being told; -1 before the first.
  std::ptrdiff_t ObserverCursor = -1;
  bool Notifying = false;

  std::vector<CColumn*> Columns;
  std::map<DWORD, CRMViewRow*> RowMap;
  std::map<DWORD, std::string> GroupNames;
  std::vector<CRMViewRow*> GroupRows;
  std::vector<CRMViewRow*> SortedRows;
  std::vector<CRMViewRow*> ChangedRows;
  std::vector<CRMViewRow*> RemovedRows;
  // Rows that a second add under a known ID pushed out of the row map: the sorted rows
  // may still show them, so they live until the view is cleared.
  std::vector<CRMViewRow*> OverwrittenRows;
  CParameters Parameters;

  std::string SortColumnName;
  BOOL Ascending = TRUE;
  int SortColumnIndex = -1;

  BOOL FilterOn = FALSE;
  BOOL FilterContains = FALSE;
  EFilterMode FilterMode = EFilterMode::ShowOnlyMatchingAll;
  std::vector<std::string> FilterColumnNames;
  std::vector<std::string> FilterValues;
  std::vector<std::string> ResolvedFilterValues;
  std::vector<int> ResolvedFilterColumns;
};
