// A table bound to a live result view: each change of the view rebuilds the table's rows
// from the view's rows, and the pages that hold the table are told.
#pragma once

#include <string>

#include "frame/Parameters.h"
#include "frame/Types.h"
#include "site/ZOLLiveObservers.h"
#include "site/ZOLTable.h"
#include "views/RMViewObserver.h"

class CMerge;
class CRMView;
class CRun;
class Cevent;

class CZOLServerTable : public CZOLTable, public CRMViewObserver, public CZOLServerTableSubject {
 public:
  CZOLServerTable(long id, CRMComm* comm);
  ~CZOLServerTable() override;

  // Deletes the rows (and with `full` the template); the rows are then up to date.
  void Clear(BOOL full) override;
  // Bind to the view of the table's type for a run, a merge or an event. Without a data
  // link (or without the run, merge or event) nothing happens and the template's sample
  // rows stay.
  virtual void RunConnect(CRun* run, CParameters parameters);
  virtual void MergeConnect(CMerge* merge, CParameters parameters);
  virtual void EventConnect(Cevent* event, CParameters parameters);
  // The view's rows into the table's rows, honouring startrow, maxrows and the lap separator.
  virtual void ImportRows();

  void OnNotifyStructure(CRMView* view) override;
  // Marks the rows out of date and tells the pages; the rows are rebuilt when the table
  // is next written, so many changes within one tick cost one rebuild.
  void OnNotifyData(int type, CRMView* view) override;
  void OnSubjectRemoved(CRMView* view) override;

  // The table as clients receive it; rows out of date are rebuilt first.
  std::string ZOLExport();
  // The rows that the table shows, each as a zol_rr element; rows out of date are rebuilt first.
  std::string ZOLExportRows();
  // HTMLExport (from CZOLTable) also rebuilds rows that are out of date first.
  void NotifyDataAvailable() { NotifyTableObservers(this); }

  // The view of a table type; empty for a type without a view.
  static std::string ZOLGetViewName(const std::string& type);
  // The view column key of a column name; empty for an unknown name.
  static std::string ZOLGetViewColumnName(const std::string& column);
  // The text of a time of a gap column.
  static std::string GetDiffAsString(KVTTIME time);

  CRMView* GetView() const { return m_view; }
  // Whether a data notification came since the rows were last built.
  bool AreRowsOutOfDate() const { return m_rowsOutOfDate; }
  int GetMarkerColumn() const { return m_markerColumn; }
  int GetStatusColumn() const { return m_statusColumn; }

 protected:
  void BringRowsUpToDate() override;

 private:
  // Leaves the view the table reads, if any, telling the data manager when it was the
  // view's last reader.
  void LeaveView();
  // Creates the view for the parameters, sets the sort when asked to, and reads it.
  void BindView(const std::string& viewName, const CParameters& parameters, bool setSort);

  CRMView* m_view = nullptr;
  // Looked up at each structure and kept; nothing reads them further.
  int m_markerColumn = -1;
  int m_statusColumn = -1;
  bool m_rowsOutOfDate = false;
};
