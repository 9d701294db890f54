// The ordered list of all passings of one run, as the data manager reports them. Rows
// arrive out of time order and are slotted in; photocell rows can be withdrawn.
#pragma once

#include <cstddef>
#include <map>
#include <vector>

#include "frame/TTBuffer.h"
#include "frame/Types.h"
#include "views/RMLapViewRow.h"

class CRMData;
class CRMLapView;
class CRun;

inline constexpr WORD kMsgAllPassings = 0x8000;
inline constexpr WORD kMsgAddLapRow = 0x8001;
inline constexpr WORD kMsgModifyLapRows = 0x8002;

class CRMLapViewObserver {
 public:
  CRMLapViewObserver() = default;
  CRMLapViewObserver(const CRMLapViewObserver&) = delete;
  CRMLapViewObserver& operator=(const CRMLapViewObserver&) = delete;
  virtual ~CRMLapViewObserver();

  virtual void OnAllRows(CRMLapView* view) { (void)view; }
  virtual void OnRowAdded(CRMLapView* view, CRMLapViewRow* row) {
    (void)view;
    (void)row;
  }
  virtual void OnRowsModified(CRMLapView* view, const std::vector<CRMLapViewRow*>& rows) {
    (void)view;
    (void)rows;
  }
  virtual void OnRowRemoved(CRMLapView* view, CRMLapViewRow* row) {
    (void)view;
    (void)row;
  }
  virtual void OnCleared(CRMLapView* view) { (void)view; }

  void Attach(CRMLapView* view);
  void Detach(CRMLapView* view);

 private:
  friend class CRMLapView;
  std::vector<CRMLapView*> Subjects;
};

class CRMLapView {
 public:
  CRMLapView(CRun* run, CRMData* data);
  CRMLapView(const CRMLapView&) = delete;
  CRMLapView& operator=(const CRMLapView&) = delete;
  virtual ~CRMLapView();

  void OnAllPassings(CTTBuffer& message);
  void OnAddLapRow(CTTBuffer& message);
  void OnModifyLapRows(CTTBuffer& message);
  // Clears and tells the observers.
  void OnClearAllPassings();
  // Empties the list and the rows; all passings received and the last passing time stay.
  void Clear();

  // Passing time first, then row ID.
  static bool LapRowViewSort(const CRMLapViewRow* a, const CRMLapViewRow* b);

  CRun* GetRun() const { return Run; }
  const std::vector<CRMLapViewRow*>& GetRows() const { return Rows; }
  const std::map<DWORD, CRMLapViewRow*>& GetRowMap() const { return RowMap; }
  KVTTIME GetLastPassingTime() const { return LastPassingTime; }
  BOOL HasAllPassings() const { return AllPassingsReceived; }
  const std::vector<CRMLapViewObserver*>& GetObservers() const { return Observers; }

 private:
  friend class CRMLapViewObserver;

  // Reads a row ID and body into a new row and gives it its texts.
  CRMLapViewRow* CreateLapRow(CTTBuffer& message);
  void CheckCompetitor(CRMLapViewRow* row, int kind);
  // Stores the row under its ID; FALSE when it has no passing time.
  BOOL AddLapRowToMap(CRMLapViewRow* row);
  void AddOutOfSequenceLapRow(CRMLapViewRow* row);

  template <class Call>
  void NotifyEach(Call&& call);
  void NotifyAll();
  void NotifyAdd(CRMLapViewRow* row);
  void NotifyModify(const std::vector<CRMLapViewRow*>& rows);
  void NotifyRemove(CRMLapViewRow* row);
  void NotifyClear();

  CRun* Run;
  CRMData* Data;
  WORD ResetWord = 0;
  KVTTIME LastPassingTime = 0;
  BOOL AllPassingsReceived = FALSE;
  std::vector<CRMLapViewRow*> Rows;
  std::map<DWORD, CRMLapViewRow*> RowMap;
  // Rows that a later row under the same ID pushed out of the row map; the list may
  // still hold them, so they live until the view is cleared.
  std::vector<CRMLapViewRow*> OverwrittenRows;
  std::vector<CRMLapViewObserver*> Observers;
  std::ptrdiff_t ObserverCursor = -1;
};
